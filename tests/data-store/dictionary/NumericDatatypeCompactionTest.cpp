#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DictionaryCompactionState.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

template<typename ResourceID>
class NumericDatatypeCompactionTest : public ::testing::Test {
protected:
    using Store = NumericStore<ResourceID>;
    NumericDatatypeCompactionTest() { m_store.initialize(); }

    static void sort(DictionaryCompactionState& state) {
        std::stable_sort(state.begin(), state.end(), [](const CompactionEntry& first, const CompactionEntry& second) {
            return first.datatypeID < second.datatypeID;
        });
    }

    Store m_store;
};

TYPED_TEST_SUITE(NumericDatatypeCompactionTest, ResourceIDTypes);

TYPED_TEST(NumericDatatypeCompactionTest, NoEntryIsMappable) {
    this->m_store.resolve("1", D_XSD_INT);
    EXPECT_EQ(this->m_store.m_dictionary->getNumberOfMappableEntriesInCompaction(), 0u);
}

TYPED_TEST(NumericDatatypeCompactionTest, EntriesNameWhatIsToBeKept) {
    const uint64_t integerID = this->m_store.resolve("-7", D_XSD_INT);
    const uint64_t decimalID = this->m_store.resolve("0.5", D_XSD_DECIMAL);
    DictionaryCompactionState state(this->m_store.m_memoryManager, 2);
    this->m_store.m_dictionary->prepareCompact(integerID, 70, state);
    this->m_store.m_dictionary->prepareCompact(decimalID, 71, state);
    ASSERT_EQ(state.getNumberOfEntries(), 2u);
    const CompactionEntry& integer = state.begin()[0];
    EXPECT_EQ(integer.newResourceID, 70u);
    EXPECT_EQ(integer.datatypeID, D_XSD_INT);
    EXPECT_EQ(integer.isInline, 1u);
    EXPECT_EQ(integer.data, static_cast<uint64_t>(-7));
    EXPECT_EQ(integer.dataSize, 0u);
    const CompactionEntry& decimal = state.begin()[1];
    EXPECT_EQ(decimal.newResourceID, 71u);
    EXPECT_EQ(decimal.datatypeID, D_XSD_DECIMAL);
    EXPECT_EQ(decimal.isInline, 0u);
    EXPECT_EQ(decimal.data, DataPool::FIRST_OFFSET);
    EXPECT_EQ(decimal.dataSize, TestFixture::Store::RECORD_SIZE);
}

TYPED_TEST(NumericDatatypeCompactionTest, WithoutEntriesEveryTableIsEmptyWith1024Buckets) {
    DictionaryUsageContext context;
    for (int i = 0; i < 3000; ++i)
        for (uint8_t datatypeID = FIRST_NUMERIC_DATATYPE; datatypeID <= D_XSD_INTEGER; ++datatypeID)
            this->m_store.resolve(std::to_string(i), datatypeID, &context);
    const uint64_t lastID = this->m_store.resolve("1", D_XSD_UNSIGNED_BYTE, &context);
    this->m_store.m_dictionary->deleteUncommittedResourceID(Visibility(0, 0), lastID, D_XSD_UNSIGNED_BYTE);
    const DictionaryCompactionState state(this->m_store.m_memoryManager, 0);
    this->m_store.m_dictionary->finishCompact(state);
    const NumericImage image = saveToImage(*this->m_store.m_dictionary);
    for (const ImageTable& table : image.m_tables) {
        EXPECT_EQ(table.m_numberOfBuckets, 1024u);
        EXPECT_EQ(table.m_usedCount, 0u);
        EXPECT_EQ(table.m_deletedCount, 0u);
        EXPECT_EQ(table.sumFreeReservations(), 0u);
        EXPECT_EQ(table.countBuckets([](uint64_t word) { return word != 0; }), 0u);
        EXPECT_EQ(table.m_buckets.size(), 1024u);
    }
    checkTables<TypeParam>(image);
    EXPECT_EQ(
        this->m_store.m_dictionary->getComponentInfo()->getNumericProperty("Aggregate size"),
        8192u + 13 * 16384u); // the pages were released
    EXPECT_EQ(this->m_store.tryResolve("1", D_XSD_INTEGER), 0u);
}

TYPED_TEST(NumericDatatypeCompactionTest, WhatIsKeptIsFoundUnderItsNewIDAndTheRestIsGone) {
    // Every third of 3000 values of three datatypes is kept; new IDs run from 1 on, across the datatypes.
    DictionaryUsageContext context;
    const uint8_t datatypeIDs[] = {D_XSD_UNSIGNED_BYTE, D_XSD_DECIMAL, D_XSD_INTEGER};
    const auto makeValue = [](uint8_t datatypeID, int i) {
        return datatypeID == D_XSD_DECIMAL ? makeDecimal(std::to_string(i) + ".5") : makeInteger(datatypeID, i);
    };
    struct Kept {
        uint8_t datatypeID;
        int number;
        uint64_t newID;
        uint64_t data;
    };
    std::vector<Kept> kept;
    DictionaryCompactionState state(this->m_store.m_memoryManager, 9000);
    for (int i = 0; i < 3000; ++i)
        for (const uint8_t datatypeID : datatypeIDs) {
            const uint64_t resourceID = this->m_store.resolve(makeValue(datatypeID, i), &context);
            if (i % 3 == 0) {
                kept.push_back({datatypeID, i, kept.size() + 1, this->m_store.m_resourceData[resourceID]});
                this->m_store.m_dictionary->prepareCompact(resourceID, kept.back().newID, state);
            }
            else if (i % 3 == 1)
                this->m_store.m_dictionary->deleteUncommittedResourceID(Visibility(0, 0), resourceID, datatypeID);
        }
    // Entries of other families lie around ours, in the array and nowhere else.
    state.addEntry(CompactionEntry{900001, D_XSD_FLOAT, 1, 7, 0});
    state.addEntry(CompactionEntry{900002, 36, 1, 7, 0});
    state.addEntry(CompactionEntry{900003, 255, 0, 7, 8});
    state.addEntry(CompactionEntry{900004, 1, 0, 7, 8});
    TestFixture::sort(state);
    const uint64_t lastOldData = this->m_store.m_resourceData[9000];

    this->m_store.m_dictionary->finishCompact(state);

    for (const Kept& entry : kept) {
        ASSERT_EQ(this->m_store.tryResolve(makeValue(entry.datatypeID, entry.number)), entry.newID);
        ASSERT_EQ(this->m_store.m_resourceData[entry.newID], entry.data);
        ASSERT_EQ(this->m_store.getDatatypeID(entry.newID), entry.datatypeID);
        if (entry.datatypeID == D_XSD_DECIMAL) {
            ASSERT_EQ(
                this->m_store.getRecordBytes(entry.data),
                this->m_store.makeRecordBytes(entry.newID, entry.number * 10 + 5, 1));
        }
    }
    for (int i = 0; i < 3000; ++i)
        for (const uint8_t datatypeID : datatypeIDs) {
            ASSERT_EQ(this->m_store.tryResolve(makeValue(datatypeID, i)) == 0, i % 3 != 0);
        }
    EXPECT_EQ(this->m_store.m_resourceData[9000], lastOldData); // entries at old IDs stay
    const NumericImage image = saveToImage(*this->m_store.m_dictionary);
    checkTables<TypeParam>(image);
    for (const uint8_t datatypeID : datatypeIDs) {
        EXPECT_EQ(image[datatypeID].m_numberOfBuckets, 2048u); // 1000 entries
        EXPECT_EQ(image[datatypeID].m_usedCount, 1000u);
        EXPECT_EQ(image[datatypeID].m_deletedCount, 0u);
    }
    // Resolution continues, with a fresh context.
    this->m_store.m_nextResourceID = kept.size() + 1;
    DictionaryUsageContext newContext;
    EXPECT_EQ(this->m_store.resolve(makeValue(D_XSD_DECIMAL, 1), &newContext), kept.size() + 1);
    EXPECT_EQ(this->m_store.resolve(makeValue(D_XSD_DECIMAL, 3), &newContext), 5u);
}

TYPED_TEST(NumericDatatypeCompactionTest, EveryDatatypeFindsItsRun) {
    DictionaryCompactionState state(this->m_store.m_memoryManager, 14);
    std::vector<uint64_t> resourceIDs;
    for (uint8_t datatypeID = LAST_NUMERIC_DATATYPE; datatypeID >= FIRST_NUMERIC_DATATYPE; --datatypeID) {
        const bool isNegative = datatypeID == D_XSD_NEGATIVE_INTEGER || datatypeID == D_XSD_NON_POSITIVE_INTEGER;
        this->m_store.m_dictionary->prepareCompact(
            this->m_store.resolve(isNegative ? "-1" : "1", datatypeID), 100 + uint64_t(datatypeID), state);
    }
    TestFixture::sort(state);
    this->m_store.m_dictionary->finishCompact(state);
    for (uint8_t datatypeID = FIRST_NUMERIC_DATATYPE; datatypeID <= LAST_NUMERIC_DATATYPE; ++datatypeID) {
        const bool isNegative = datatypeID == D_XSD_NEGATIVE_INTEGER || datatypeID == D_XSD_NON_POSITIVE_INTEGER;
        EXPECT_EQ(this->m_store.tryResolve(isNegative ? "-1" : "1", datatypeID), 100u + datatypeID);
    }
    checkTables<TypeParam>(saveToImage(*this->m_store.m_dictionary));
}

TYPED_TEST(NumericDatatypeCompactionTest, IDsMayChangePlaces) {
    const uint64_t firstID = this->m_store.resolve("1.5", D_XSD_DECIMAL);
    const uint64_t secondID = this->m_store.resolve("2.5", D_XSD_DECIMAL);
    const uint64_t thirdID = this->m_store.resolve("3", D_XSD_INT);
    DictionaryCompactionState state(this->m_store.m_memoryManager, 3);
    this->m_store.m_dictionary->prepareCompact(firstID, secondID, state);
    this->m_store.m_dictionary->prepareCompact(secondID, thirdID, state);
    this->m_store.m_dictionary->prepareCompact(thirdID, firstID, state);
    TestFixture::sort(state);
    this->m_store.m_dictionary->finishCompact(state);
    EXPECT_EQ(this->m_store.tryResolve("1.5", D_XSD_DECIMAL), secondID);
    EXPECT_EQ(this->m_store.tryResolve("2.5", D_XSD_DECIMAL), thirdID);
    EXPECT_EQ(this->m_store.tryResolve("3", D_XSD_INT), firstID);
    EXPECT_EQ(this->m_store.getText(firstID, D_XSD_INT), "3");
    EXPECT_EQ(this->m_store.getText(secondID, D_XSD_DECIMAL), "1.5");
    EXPECT_EQ(this->m_store.getText(thirdID, D_XSD_DECIMAL), "2.5");
    EXPECT_EQ(this->m_store.getDatatypeID(firstID), D_XSD_INT);
}

TYPED_TEST(NumericDatatypeCompactionTest, ATableAtItsThresholdIsRefilledWithoutGrowing) {
    DictionaryUsageContext context;
    DictionaryCompactionState state(this->m_store.m_memoryManager, 700);
    for (int i = 0; i < 700; ++i)
        this->m_store.m_dictionary->prepareCompact(
            this->m_store.resolve(std::to_string(i), D_XSD_INT, &context), 1 + static_cast<uint64_t>(i), state);
    this->m_store.m_dictionary->finishCompact(state);
    const NumericImage image = saveToImage(*this->m_store.m_dictionary);
    checkTables<TypeParam>(image);
    EXPECT_EQ(image[D_XSD_INT].m_numberOfBuckets, 1024u);
    EXPECT_EQ(image[D_XSD_INT].m_usedCount, 700u);
    EXPECT_EQ(image[D_XSD_INT].sumFreeReservations(), 0u);
}

TYPED_TEST(NumericDatatypeCompactionTest, AnEntryGivenTwiceIsEnteredOnce) {
    const uint64_t resourceID = this->m_store.resolve("5", D_XSD_INT);
    DictionaryCompactionState state(this->m_store.m_memoryManager, 2);
    this->m_store.m_dictionary->prepareCompact(resourceID, 8, state);
    this->m_store.m_dictionary->prepareCompact(resourceID, 9, state);
    this->m_store.m_dictionary->finishCompact(state);
    EXPECT_EQ(this->m_store.tryResolve("5", D_XSD_INT), 9u);
    EXPECT_EQ(saveToImage(*this->m_store.m_dictionary)[D_XSD_INT].countBuckets(isLiveWord), 1u);
}

TYPED_TEST(NumericDatatypeCompactionTest, TheStateHasRoomForItsEntriesAndChargesThem) {
    const uint64_t chargedBytes = this->m_store.m_memoryManager.getChargedBytes();
    {
        DictionaryCompactionState state(this->m_store.m_memoryManager, 1000);
        EXPECT_EQ(this->m_store.m_memoryManager.getChargedBytes(), chargedBytes + 32768);
        EXPECT_EQ(state.getNumberOfEntries(), 0u);
        EXPECT_EQ(state.begin(), state.end());
    }
    EXPECT_EQ(this->m_store.m_memoryManager.getChargedBytes(), chargedBytes);
}

}

}
