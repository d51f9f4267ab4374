#include "core/data-store/dictionary/NumericDatatype.h"

#include "core/data-store/dictionary/ComponentInfo.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

template<typename ResourceID>
class NumericDatatypeTest : public ::testing::Test {
protected:
    using Store = NumericStore<ResourceID>;
};

TYPED_TEST_SUITE(NumericDatatypeTest, ResourceIDTypes);

TYPED_TEST(NumericDatatypeTest, TheFactoryMakesTheRequestedWidthAlignedToACacheLine) {
    typename TestFixture::Store store;
    EXPECT_NE(dynamic_cast<NumericDatatype<TypeParam>*>(store.m_dictionary.get()), nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(store.m_dictionary.get()) % 64, 0u);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(reinterpret_cast<uintptr_t>(store.makeDictionary().get()) % 64, 0u);
}

TYPED_TEST(NumericDatatypeTest, ConstructionCommitsNothing) {
    typename TestFixture::Store store;
    EXPECT_EQ(store.m_memoryManager.getChargedBytes(), 0u);
    EXPECT_EQ(store.m_nextResourceID.load(), 1u);
}

TYPED_TEST(NumericDatatypeTest, InitializationGivesEveryTable1024EmptyBuckets) {
    typename TestFixture::Store store;
    store.initialize();
    const NumericImage image = saveToImage(*store.m_dictionary);
    for (const ImageTable& table : image.m_tables) {
        EXPECT_EQ(table.m_numberOfBuckets, 1024u);
        EXPECT_EQ(table.m_resizeThreshold, 716u);
        EXPECT_EQ(table.m_usedCount, 0u);
        EXPECT_EQ(table.m_deletedCount, 0u);
        EXPECT_EQ(table.sumFreeReservations(), 0u);
        EXPECT_EQ(table.countBuckets([](uint64_t word) { return word != 0; }), 0u);
    }
    EXPECT_EQ(store.m_memoryManager.getChargedBytes(), 8192u + 13 * 16384u); // the shared objects have no pages yet
}

TYPED_TEST(NumericDatatypeTest, TheBoundOfBlocksIsAlways1024LessEvenBelowZero) {
    const struct {
        const char* name;
        uint64_t maxResourceID;
        uint64_t boundOfBlocks;
    } rows[] = {
        {"usual", 1u << 20, (1u << 20) - 1024},
        {"exactly one block", 1024, 0},
        {"less than a block", 1000, uint64_t(0) - 24},
        {"the 32-bit bound", 0xfffffffeULL, 0xfffffffeULL - 1024},
        {"beyond 32 bits, which nothing here refuses", 1ULL << 34, (1ULL << 34) - 1024},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        typename TestFixture::Store store;
        store.m_dictionary->initialize(row.maxResourceID, 77); // the second argument means nothing
        const NumericImage image = saveToImage(*store.m_dictionary);
        EXPECT_EQ(image.m_maxResourceID, row.maxResourceID);
        EXPECT_EQ(image.m_maxResourceIDForBlocks, row.boundOfBlocks);
    }
}

TYPED_TEST(NumericDatatypeTest, InitializationEmptiesAUsedDictionaryAndReturnsItsMemory) {
    typename TestFixture::Store store;
    store.initialize();
    const uint64_t emptyTablesBytes = store.m_memoryManager.getChargedBytes();
    DictionaryUsageContext context;
    for (int i = 0; i < 5000; ++i)
        store.resolve(std::to_string(i), D_XSD_INT, &context);
    store.resolve("0.5", D_XSD_DECIMAL, &context);
    const uint64_t sharedBytes = store.m_resourceData.getCommittedBytes() +
                                 store.m_resourceDatatypeIDs.getCommittedBytes() + store.m_dataPool.getCommittedBytes();
    store.initialize(5000);
    EXPECT_EQ(store.m_memoryManager.getChargedBytes(), emptyTablesBytes + sharedBytes);
    EXPECT_EQ(store.tryResolve("7", D_XSD_INT), 0u);
    EXPECT_EQ(store.tryResolve("0.5", D_XSD_DECIMAL), 0u);
    const NumericImage image = saveToImage(*store.m_dictionary);
    checkTables<TypeParam>(image);
    EXPECT_EQ(image[D_XSD_INT].m_numberOfBuckets, 1024u);
    EXPECT_EQ(image.m_maxResourceID, 5000u);
}

TYPED_TEST(NumericDatatypeTest, RestoreEmptySizesEachTableForItsCount) {
    const struct {
        uint64_t count;
        uint64_t numberOfBuckets;
    } rows[] = {
        {0, 1024},    {1, 1024},    {700, 1024},  {716, 1024},   {717, 2048},      {1000, 2048},
        {1433, 2048}, {1434, 4096}, {5734, 8192}, {5735, 16384}, {100000, 262144},
    };
    for (uint8_t datatypeID = FIRST_NUMERIC_DATATYPE; datatypeID <= LAST_NUMERIC_DATATYPE; ++datatypeID)
        for (const auto& row : rows) {
            SCOPED_TRACE(std::to_string(row.count) + " of datatype " + std::to_string(datatypeID));
            typename TestFixture::Store store;
            store.initialize(9999);
            std::vector<uint64_t> counts(36, 0);
            counts[datatypeID] = row.count;
            counts[21] = counts[20] = 1000000; // other families' business
            store.m_dictionary->restoreEmpty(counts);
            const std::unique_ptr<ComponentInfo> info = store.m_dictionary->getComponentInfo();
            for (uint8_t other = FIRST_NUMERIC_DATATYPE; other <= LAST_NUMERIC_DATATYPE; ++other)
                EXPECT_EQ(
                    info->getChildren()[size_t(other) - FIRST_NUMERIC_DATATYPE]->getNumericProperty(
                        "Total number of buckets"),
                    other == datatypeID ? row.numberOfBuckets : 1024u);
        }
}

TYPED_TEST(NumericDatatypeTest, RestoreEmptyForgetsTheContentAndKeepsTheBounds) {
    typename TestFixture::Store store;
    store.initialize(9999);
    store.resolve("7", D_XSD_INT);
    store.resolve("7", D_XSD_DECIMAL);
    store.m_dictionary->restoreEmpty(std::vector<uint64_t>(40, 3));
    EXPECT_EQ(store.tryResolve("7", D_XSD_INT), 0u);
    EXPECT_EQ(store.tryResolve("7", D_XSD_DECIMAL), 0u);
    const NumericImage image = saveToImage(*store.m_dictionary);
    EXPECT_EQ(image.m_maxResourceID, 9999u);
    EXPECT_EQ(image.m_maxResourceIDForBlocks, 9999u - 1024u);
    checkTables<TypeParam>(image);
}

TYPED_TEST(NumericDatatypeTest, TheTextOfAResourceIsCanonicalAndReplacesWhatWasThere) {
    const struct {
        uint8_t datatypeID;
        const char* lexicalForm;
        const char* text;
    } rows[] = {
        {D_XSD_INTEGER, "-1", "-1"},
        {D_XSD_INTEGER, "-9223372036854775808", "-9223372036854775808"},
        {D_XSD_INTEGER, "9223372036854775807", "9223372036854775807"},
        {D_XSD_INTEGER, "+005", "5"},
        {D_XSD_UNSIGNED_BYTE, "-0", "0"},
        {D_XSD_BYTE, "-128", "-128"},
        {D_XSD_DECIMAL, "-0.50", "-0.5"},
        {D_XSD_DECIMAL, "7.0", "7"},
        {D_XSD_DECIMAL, ".5", "0.5"},
        {D_XSD_DECIMAL, "-0.9223372036854775808", "-0.9223372036854775808"},
    };
    typename TestFixture::Store store;
    store.initialize();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.lexicalForm);
        EXPECT_EQ(store.getText(store.resolve(row.lexicalForm, row.datatypeID), row.datatypeID), row.text);
    }
}

TYPED_TEST(NumericDatatypeTest, TheBinaryFormOfAnIntegerIsInTheBufferOfTheValue) {
    typename TestFixture::Store store;
    store.initialize();
    for (const int64_t integer :
         {std::numeric_limits<int64_t>::min(), int64_t(-1), int64_t(0), int64_t(1),
          std::numeric_limits<int64_t>::max()}) {
        const uint64_t resourceID = store.resolve(makeInteger(D_XSD_LONG, integer));
        ResourceValue value;
        value.auxiliaryData = value.buffer;
        value.auxiliaryDataSize = 3;
        store.m_dictionary->getResource(resourceID, D_XSD_LONG, value);
        EXPECT_EQ(value.datatypeID, D_XSD_LONG);
        EXPECT_EQ(value.data, value.buffer);
        EXPECT_EQ(value.dataSize, 8u);
        EXPECT_EQ(value.auxiliaryData, nullptr);
        EXPECT_EQ(value.auxiliaryDataSize, 0u);
        EXPECT_EQ(value.template getBinaryValue<int64_t>(), integer);
    }
}

TYPED_TEST(NumericDatatypeTest, TheBinaryFormOfADecimalEndsInZeroesNoMatterWhatTheBufferHeld) {
    typename TestFixture::Store store;
    store.initialize();
    const uint64_t resourceID = store.resolve("-12.345", D_XSD_DECIMAL);
    ResourceValue value;
    std::memset(value.buffer, 0xee, sizeof(value.buffer));
    value.auxiliaryData = value.buffer;
    value.auxiliaryDataSize = 3;
    store.m_dictionary->getResource(resourceID, D_XSD_DECIMAL, value);
    EXPECT_EQ(value.datatypeID, D_XSD_DECIMAL);
    EXPECT_EQ(value.data, value.buffer);
    EXPECT_EQ(value.dataSize, 16u);
    EXPECT_EQ(value.auxiliaryData, nullptr);
    EXPECT_EQ(value.auxiliaryDataSize, 0u);
    const int64_t unscaledValue = -12345;
    uint8_t expected[16] = {};
    std::memcpy(expected, &unscaledValue, 8);
    expected[8] = 3;
    EXPECT_EQ(std::memcmp(value.buffer, expected, 16), 0);
}

TYPED_TEST(NumericDatatypeTest, TheCallersDatatypeDecidesHowAResourceIsRead) {
    typename TestFixture::Store store;
    store.initialize();
    const uint64_t resourceID = store.resolve("5", D_XSD_INT);
    ResourceValue value;
    store.m_dictionary->getResource(resourceID, D_XSD_LONG, value);
    EXPECT_EQ(value.datatypeID, D_XSD_LONG);
    EXPECT_EQ(value.template getBinaryValue<int64_t>(), 5);
}

TYPED_TEST(NumericDatatypeTest, DestructionReturnsTheTablesAndTouchesNothingShared) {
    typename TestFixture::Store store;
    store.initialize();
    DictionaryUsageContext context;
    uint64_t resourceID = 0;
    for (int i = 0; i < 3000; ++i)
        resourceID = store.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL, &context);
    const uint64_t offset = store.m_resourceData[resourceID];
    const std::string record = store.getRecordBytes(offset);
    const uint64_t nextResourceID = store.m_nextResourceID.load();
    const uint64_t poolEnd = store.m_dataPool.getEnd();

    store.m_dictionary.reset();

    EXPECT_EQ(
        store.m_memoryManager.getChargedBytes(), store.m_resourceData.getCommittedBytes() +
                                                     store.m_resourceDatatypeIDs.getCommittedBytes() +
                                                     store.m_dataPool.getCommittedBytes());
    EXPECT_EQ(store.m_nextResourceID.load(), nextResourceID);
    EXPECT_EQ(store.m_dataPool.getEnd(), poolEnd);
    EXPECT_EQ(store.m_resourceData[resourceID], offset);
    EXPECT_EQ(store.getDatatypeID(resourceID), D_XSD_DECIMAL);
    EXPECT_EQ(store.getRecordBytes(offset), record);
}

TYPED_TEST(NumericDatatypeTest, BucketsAndRecordsHaveTheirSizes) {
    EXPECT_EQ(sizeof(typename NumericDatatype<TypeParam>::IntegerPolicy::Bucket), 16u);
    EXPECT_EQ(sizeof(typename NumericDatatype<TypeParam>::DecimalPolicy::Bucket), 8u);
    constexpr DecimalRecord RECORD = NumericDatatype<TypeParam>::RECORD;
    EXPECT_EQ(RECORD.getSize(), TestFixture::Store::RECORD_SIZE);
    uint8_t record[18];
    std::memset(record, 0xcc, sizeof(record));
    RECORD.write(record + 1, 0x01020304, XSDDecimal::fromNormalisedFields(-987654321, 4)); // at an odd address
    EXPECT_EQ(
        std::string(reinterpret_cast<char*>(record + 1), TestFixture::Store::RECORD_SIZE),
        TestFixture::Store::makeRecordBytes(0x01020304, -987654321, 4));
    EXPECT_EQ(record[0], 0xcc);
    if (TestFixture::Store::IS_NARROW) {
        EXPECT_EQ(record[1 + TestFixture::Store::RECORD_SIZE], 0xcc);
    }
    RECORD.writeResourceID(record + 1, 9);
    EXPECT_EQ(
        std::string(reinterpret_cast<char*>(record + 1), TestFixture::Store::RECORD_SIZE),
        TestFixture::Store::makeRecordBytes(9, -987654321, 4));
    EXPECT_EQ(RECORD.readResourceID(record + 1), 9u);
    EXPECT_EQ(RECORD.readValue(record + 1), XSDDecimal::fromNormalisedFields(-987654321, 4));
}

}

}
