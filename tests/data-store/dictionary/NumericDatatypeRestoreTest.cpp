#include "core/data-store/dictionary/NumericDatatype.h"
#include "support/ExpectError.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

template<typename ResourceID>
class NumericDatatypeRestoreTest : public ::testing::Test {
protected:
    using Store = NumericStore<ResourceID>;
    NumericDatatypeRestoreTest() { m_store.initialize(); }
    void restore(uint64_t resourceID, const ResourceValue& value, DictionaryUsageContext* context = nullptr) {
        m_store.m_dictionary->restoreResource(context, resourceID, value);
    }
    void deleteResource(uint64_t resourceID, uint8_t datatypeID) {
        m_store.m_dictionary->deleteUncommittedResourceID(Visibility(0, 0), resourceID, datatypeID);
    }
    Store m_store;
};

TYPED_TEST_SUITE(NumericDatatypeRestoreTest, ResourceIDTypes);

TYPED_TEST(NumericDatatypeRestoreTest, ARestoredValueIsFoundAndReadUnderItsID) {
    this->restore(70, makeInteger(D_XSD_INT, -5));
    this->restore(30, makeDecimal("-0.25"));
    EXPECT_EQ(this->m_store.tryResolve("-5", D_XSD_INT), 70u);
    EXPECT_EQ(this->m_store.resolve("-5", D_XSD_INT), 70u);
    EXPECT_EQ(this->m_store.tryResolve("-0.25", D_XSD_DECIMAL), 30u);
    EXPECT_EQ(this->m_store.getText(70, D_XSD_INT), "-5");
    EXPECT_EQ(this->m_store.getText(30, D_XSD_DECIMAL), "-0.25");
    EXPECT_EQ(this->m_store.getDatatypeID(70), D_XSD_INT);
    EXPECT_EQ(this->m_store.getDatatypeID(30), D_XSD_DECIMAL);
    EXPECT_EQ(this->m_store.m_resourceData[70], static_cast<uint64_t>(-5));
    EXPECT_EQ(this->m_store.m_resourceData[30], DataPool::FIRST_OFFSET);
    EXPECT_EQ(this->m_store.getRecordBytes(DataPool::FIRST_OFFSET), this->m_store.makeRecordBytes(30, -25, 2));
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 1u); // the caller sets it
    const NumericImage image = saveToImage(*this->m_store.m_dictionary);
    checkTables<TypeParam>(image);
    EXPECT_EQ(image[D_XSD_INT].m_buckets[image[D_XSD_INT].findWord(70)].m_value, -5);
    image[D_XSD_DECIMAL].findWord(DataPool::FIRST_OFFSET);
}

TYPED_TEST(NumericDatatypeRestoreTest, AValueThatIsPresentKeepsItsIDAndNothingIsWritten) {
    const ResourceValue values[] = {makeInteger(D_XSD_INT, 5), makeDecimal("5.5")};
    for (const ResourceValue& value : values) {
        SCOPED_TRACE(int(value.datatypeID));
        const uint64_t firstID = value.datatypeID == D_XSD_INT ? 10 : 11;
        this->restore(firstID, value);
        const std::string before = saveToBytes(*this->m_store.m_dictionary);
        const uint64_t poolEnd = this->m_store.m_dataPool.getEnd();
        this->restore(20, value);
        this->restore(firstID, value);
        this->restore(5000000, value); // not even memory for it
        EXPECT_EQ(this->m_store.tryResolve(value), firstID);
        EXPECT_EQ(this->m_store.getDatatypeID(20), D_NONE);
        EXPECT_EQ(this->m_store.m_resourceData[20], 0u);
        EXPECT_EQ(this->m_store.m_resourceData.getEnd(), 512u);
        EXPECT_EQ(this->m_store.m_dataPool.getEnd(), poolEnd);
        EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), before);
    }
}

TYPED_TEST(NumericDatatypeRestoreTest, TheArraysGrowToTheIDForAnyCounterAndBound) {
    for (const bool isDecimal : {false, true}) {
        typename TestFixture::Store store;
        store.initialize(2000); // below the restored ID
        store.m_dictionary->restoreResource(
            nullptr, 5000000, isDecimal ? makeDecimal("1.5") : makeInteger(D_XSD_INT, 1));
        EXPECT_EQ(store.m_resourceData.getEnd(), 5000192u); // 5,000,001 rounded to a page of 512
        EXPECT_EQ(store.m_resourceDatatypeIDs.getEnd(), 5001216u); // and of 4096
        EXPECT_EQ(store.getText(5000000, isDecimal ? D_XSD_DECIMAL : D_XSD_INT), isDecimal ? "1.5" : "1");
        EXPECT_EQ(store.m_nextResourceID.load(), 1u);
    }
}

TYPED_TEST(NumericDatatypeRestoreTest, EachArrayIsGrownByItsOwnEnd) {
    this->m_store.m_resourceData.ensureEndAtLeast(100000);
    this->restore(99999, makeInteger(D_XSD_INT, 1));
    EXPECT_EQ(this->m_store.getDatatypeID(99999), D_XSD_INT);
}

TYPED_TEST(NumericDatatypeRestoreTest, RecordsComeFromTheChunkOfTheContextAndIDsDoNot) {
    constexpr uint64_t R = TestFixture::Store::RECORD_SIZE;
    DictionaryUsageContext context;
    this->restore(100, makeDecimal("0.1"), &context);
    this->restore(101, makeDecimal("0.2"), &context);
    EXPECT_EQ(this->m_store.m_resourceData[100], 64u);
    EXPECT_EQ(this->m_store.m_resourceData[101], 64u + R);
    EXPECT_EQ(context.m_dataPoolChunkEnd, 64u + 65536u + R);
    EXPECT_EQ(context.m_resourceIDBlockEnd, 0u);
    this->restore(102, makeDecimal("0.3"));
    EXPECT_EQ(this->m_store.m_resourceData[102], 64u + 65536u + R);
    EXPECT_EQ(this->m_store.m_dataPool.getEnd(), 64u + 65536u + R + R);
}

TYPED_TEST(NumericDatatypeRestoreTest, ARecordOfEarlierResolutionsIsRebuilt) {
    DictionaryUsageContext context;
    for (int i = 0; i < 2000; ++i) {
        this->m_store.resolve(std::to_string(i), D_XSD_INTEGER, &context);
        this->m_store.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL, &context);
    }
    typename TestFixture::Store store;
    store.initialize();
    std::vector<uint64_t> counts(36, 0);
    counts[D_XSD_INTEGER] = counts[D_XSD_DECIMAL] = 2000;
    store.m_dictionary->restoreEmpty(counts);
    DictionaryUsageContext restoringContext;
    for (uint64_t resourceID = 1; resourceID <= 4000; ++resourceID) {
        ResourceValue value;
        this->m_store.m_dictionary->getResource(resourceID, this->m_store.getDatatypeID(resourceID), value);
        store.m_dictionary->restoreResource(&restoringContext, resourceID, value);
    }
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(
            store.tryResolve(std::to_string(i), D_XSD_INTEGER),
            this->m_store.tryResolve(std::to_string(i), D_XSD_INTEGER));
        ASSERT_EQ(
            store.tryResolve(std::to_string(i) + ".5", D_XSD_DECIMAL),
            this->m_store.tryResolve(std::to_string(i) + ".5", D_XSD_DECIMAL));
    }
    EXPECT_EQ(saveToImage(*store.m_dictionary)[D_XSD_INTEGER].m_numberOfBuckets, 4096u); // as sized: it did not grow
    checkTables<TypeParam>(saveToImage(*store.m_dictionary));
}

TYPED_TEST(NumericDatatypeRestoreTest, AFailureLeavesTheBucketEmptyAndTheNextCallSucceeds) {
    for (const uint8_t datatypeID : {uint8_t(D_XSD_INT), uint8_t(D_XSD_DECIMAL)}) {
        const ResourceValue value = datatypeID == D_XSD_INT ? makeInteger(D_XSD_INT, 5) : makeDecimal("5.5");
        expectError(
            "Engine/core/platform/system/MemoryRegion", 242,
            "Failed to ensure that a memory region could hold 8388609 items because it was initialized to hold at most "
            "8388608 items.",
            [&] { this->restore(8388608, value); });
        EXPECT_EQ(this->m_store.tryResolve(value), 0u);
        checkTables<TypeParam>(saveToImage(*this->m_store.m_dictionary));
        this->restore(datatypeID, value);
        EXPECT_EQ(this->m_store.tryResolve(value), datatypeID);
    }
}

TYPED_TEST(NumericDatatypeRestoreTest, ADeletedValueIsAbsentAndEnteredAgainUnderANewIDInANewBucket) {
    for (const uint8_t datatypeID : {uint8_t(D_XSD_SHORT), uint8_t(D_XSD_DECIMAL)}) {
        SCOPED_TRACE(int(datatypeID));
        const uint64_t oldID = this->m_store.resolve("5", datatypeID);
        const uint64_t oldData = this->m_store.m_resourceData[oldID];
        const uint64_t oldWord = datatypeID == D_XSD_DECIMAL ? oldData : oldID;
        const size_t oldIndex = saveToImage(*this->m_store.m_dictionary)[datatypeID].findWord(oldWord);
        const uint64_t nextResourceID = this->m_store.m_nextResourceID.load();
        const uint64_t poolEnd = this->m_store.m_dataPool.getEnd();

        this->deleteResource(oldID, datatypeID);

        EXPECT_EQ(this->m_store.tryResolve("5", datatypeID), 0u);
        NumericImage image = saveToImage(*this->m_store.m_dictionary);
        checkTables<TypeParam>(image);
        EXPECT_EQ(image[datatypeID].m_deletedCount, 1u);
        EXPECT_EQ(image[datatypeID].m_usedCount, 100u);
        EXPECT_EQ(image[datatypeID].sumFreeReservations(), 99u);
        EXPECT_EQ(
            image[datatypeID].m_buckets[oldIndex].m_word,
            datatypeID == D_XSD_DECIMAL ? uint64_t(-2) : uint64_t(static_cast<TypeParam>(-2)));
        // Nothing else is undone.
        EXPECT_EQ(this->m_store.m_resourceData[oldID], oldData);
        EXPECT_EQ(this->m_store.getDatatypeID(oldID), datatypeID);
        EXPECT_EQ(this->m_store.m_nextResourceID.load(), nextResourceID);
        EXPECT_EQ(this->m_store.m_dataPool.getEnd(), poolEnd);
        EXPECT_EQ(this->m_store.getText(oldID, datatypeID), "5");

        const uint64_t newID = this->m_store.resolve("5", datatypeID);
        EXPECT_EQ(newID, nextResourceID);
        image = saveToImage(*this->m_store.m_dictionary);
        checkTables<TypeParam>(image);
        EXPECT_EQ(
            image[datatypeID].findWord(datatypeID == D_XSD_DECIMAL ? this->m_store.m_resourceData[newID] : newID),
            oldIndex + 1);
        EXPECT_EQ(image[datatypeID].sumFreeReservations(), 98u);
    }
}

TYPED_TEST(NumericDatatypeRestoreTest, ASecondDeletionChangesNothing) {
    for (const uint8_t datatypeID : {uint8_t(D_XSD_SHORT), uint8_t(D_XSD_DECIMAL)}) {
        const uint64_t oldID = this->m_store.resolve("5", datatypeID);
        this->deleteResource(oldID, datatypeID);
        const std::string before = saveToBytes(*this->m_store.m_dictionary);
        this->deleteResource(oldID, datatypeID);
        EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), before);
        const uint64_t newID = this->m_store.resolve("5", datatypeID);
        this->deleteResource(oldID, datatypeID); // does not hit the new resource of the value
        EXPECT_EQ(this->m_store.tryResolve("5", datatypeID), newID);
    }
}

TYPED_TEST(NumericDatatypeRestoreTest, AnIDThatWasNeverUsedIsIgnored) {
    this->m_store.m_resourceData.ensureEndAtLeast(100);
    this->m_store.resolve("0", D_XSD_INT);
    this->m_store.resolve("0", D_XSD_DECIMAL);
    const std::string before = saveToBytes(*this->m_store.m_dictionary);
    this->deleteResource(50, D_XSD_INT); // its data word looks like the value 0
    this->deleteResource(50, D_XSD_DECIMAL); // its data word names no record
    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), before);
}

TYPED_TEST(NumericDatatypeRestoreTest, ADecimalWithoutARecordIsIgnoredWhereThePoolHasNoPageYet) {
    this->m_store.m_resourceData.ensureEndAtLeast(100);
    this->deleteResource(50, D_XSD_DECIMAL);
    EXPECT_EQ(saveToImage(*this->m_store.m_dictionary)[D_XSD_DECIMAL].m_deletedCount, 0u);
}

TYPED_TEST(NumericDatatypeRestoreTest, ProbesPassOverDeletedBuckets) {
    // Multiples of 2^20 start at one bucket of a table of 1024.
    std::vector<uint64_t> resourceIDs;
    for (int64_t i = 0; i < 300; ++i)
        resourceIDs.push_back(this->m_store.resolve(makeInteger(D_XSD_LONG, i << 20)));
    for (size_t i = 0; i < 300; i += 2)
        this->deleteResource(resourceIDs[i], D_XSD_LONG);
    for (int64_t i = 0; i < 300; ++i)
        EXPECT_EQ(
            this->m_store.tryResolve(makeInteger(D_XSD_LONG, i << 20)),
            i % 2 == 0 ? 0 : resourceIDs[static_cast<size_t>(i)]);
    EXPECT_GT(this->m_store.resolve(makeInteger(D_XSD_LONG, 0)), resourceIDs.back());
    checkTables<TypeParam>(saveToImage(*this->m_store.m_dictionary));
}

TYPED_TEST(NumericDatatypeRestoreTest, DeletedBucketsVanishWhenTheTableIsRebuilt) {
    std::vector<uint64_t> resourceIDs;
    for (int64_t i = 0; i < 600; ++i)
        resourceIDs.push_back(this->m_store.resolve(makeInteger(D_XSD_LONG, i)));
    for (size_t i = 0; i < 580; ++i)
        this->deleteResource(resourceIDs[i], D_XSD_LONG);
    for (int64_t i = 600; i < 720; ++i)
        this->m_store.resolve(makeInteger(D_XSD_LONG, i));
    const NumericImage image = saveToImage(*this->m_store.m_dictionary);
    checkTables<TypeParam>(image);
    EXPECT_EQ(image[D_XSD_LONG].m_numberOfBuckets, 1024u); // more than half were deleted: the same size was enough
    EXPECT_EQ(image[D_XSD_LONG].m_deletedCount, 0u);
    for (int64_t i = 0; i < 720; ++i)
        EXPECT_EQ(this->m_store.tryResolve(makeInteger(D_XSD_LONG, i)) != 0, i >= 580);
}

}

}
