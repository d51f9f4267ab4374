#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "support/ExpectError.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace kavix::test {

namespace {

const std::string CAPACITY_MESSAGE = "The capacity of Kavix for the number of resources has been exceeded.";
const std::string CAPACITY_SOURCE = "Engine/core/data-store/dictionary/DictionaryDatatype";

template<typename ResourceID>
class NumericDatatypeResolveTest : public ::testing::Test {
protected:
    using Store = NumericStore<ResourceID>;
    NumericDatatypeResolveTest() { m_store.initialize(); }
    Store m_store;
};

TYPED_TEST_SUITE(NumericDatatypeResolveTest, ResourceIDTypes);

TYPED_TEST(NumericDatatypeResolveTest, FormsOfOneValueHaveOneID) {
    const struct {
        uint8_t datatypeID;
        const char* first;
        const char* second;
        bool isSame;
    } rows[] = {
        {D_XSD_INT, "5", "+5", true},          {D_XSD_INT, "5", "0005", true},
        {D_XSD_INT, "0", "-0", true},          {D_XSD_INT, "5", "-5", false},
        {D_XSD_INT, "5", "50", false},         {D_XSD_UNSIGNED_BYTE, "0", "-0", true},
        {D_XSD_DECIMAL, "5", "5.000", true},   {D_XSD_DECIMAL, ".5", "+0.50", true},
        {D_XSD_DECIMAL, "0", "-0.0", true},    {D_XSD_DECIMAL, "5", "0.5", false}, // the same unscaled value
        {D_XSD_DECIMAL, "0.5", "0.6", false}, // the same number of fraction digits
        {D_XSD_DECIMAL, "0.5", "-0.5", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.first) + " and " + row.second);
        const uint64_t first = this->m_store.resolve(row.first, row.datatypeID);
        EXPECT_EQ(first == this->m_store.resolve(row.second, row.datatypeID), row.isSame);
        EXPECT_EQ(first == this->m_store.tryResolve(row.second, row.datatypeID), row.isSame);
    }
}

TYPED_TEST(NumericDatatypeResolveTest, OneNumberInEveryDatatypeIsAsManyResources) {
    std::set<uint64_t> resourceIDs;
    for (uint8_t datatypeID = FIRST_NUMERIC_DATATYPE; datatypeID <= LAST_NUMERIC_DATATYPE; ++datatypeID) {
        const std::string form =
            datatypeID == D_XSD_NEGATIVE_INTEGER || datatypeID == D_XSD_NON_POSITIVE_INTEGER ? "-5" : "5";
        const uint64_t resourceID = this->m_store.resolve(form, datatypeID);
        EXPECT_NE(resourceID, 0u);
        EXPECT_TRUE(resourceIDs.insert(resourceID).second);
        EXPECT_EQ(this->m_store.getDatatypeID(resourceID), datatypeID);
        EXPECT_EQ(this->m_store.getText(resourceID, datatypeID), form);
    }
    EXPECT_EQ(resourceIDs.size(), 14u);
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 15u);
}

TYPED_TEST(NumericDatatypeResolveTest, TheEndsOfEveryRangeAreAcceptedAndTheNextValuesRefused) {
    for (const IntegerDatatypeInfo& info : s_integerDatatypeInfos) {
        SCOPED_TRACE(info.datatypeIRI);
        for (const int64_t bound : {info.minimum, info.maximum}) {
            const uint64_t resourceID = this->m_store.resolve(std::to_string(bound), info.datatypeID);
            EXPECT_EQ(this->m_store.resolve(makeInteger(info.datatypeID, bound)), resourceID);
            EXPECT_EQ(this->m_store.m_resourceData[resourceID], static_cast<uint64_t>(bound));
        }
        const std::string name = "xsd:" + info.datatypeIRI.substr(info.datatypeIRI.find('#') + 1);
        const auto expectRefused = [&](int64_t integer) {
            const std::string form = std::to_string(integer);
            for (const bool inserts : {true, false})
                expectError(
                    "Engine/core/data-store/dictionary/NumericDatatype", 78,
                    "Value '" + form + "' is not in the range of datatype " + name + ".", [&] {
                        inserts ? this->m_store.resolve(form, info.datatypeID)
                                : this->m_store.tryResolve(form, info.datatypeID);
                    });
        };
        if (info.minimum != std::numeric_limits<int64_t>::min())
            expectRefused(info.minimum - 1);
        if (info.maximum != std::numeric_limits<int64_t>::max())
            expectRefused(info.maximum + 1);
    }
}

TYPED_TEST(NumericDatatypeResolveTest, InvalidFormsAreRefusedBeforeAnythingIsTouched) {
    const std::string before = saveToBytes(*this->m_store.m_dictionary);
    DictionaryUsageContext context;
    const auto expectRefused = [&](const std::string& sourceFile, long line, const std::string& message,
                                   const std::string& form, uint8_t datatypeID) {
        SCOPED_TRACE(form);
        expectError(sourceFile, line, message, [&] { this->m_store.resolve(form, datatypeID, &context); });
        expectError(sourceFile, line, message, [&] { this->m_store.resolve(form, datatypeID); });
        expectError(sourceFile, line, message, [&] { this->m_store.tryResolve(form, datatypeID); });
    };
    const std::string source = "Engine/core/data-store/dictionary/NumericDatatype";
    expectRefused(source, 78, "Value '300' is not in the range of datatype xsd:byte.", "300", D_XSD_BYTE);
    expectRefused(source, 76, "Lexical form 'abc' is invalid for datatype xsd:int.", "abc", D_XSD_INT);
    expectRefused(source, 76, "Lexical form '' is invalid for datatype xsd:int.", "", D_XSD_INT);
    expectRefused(
        source, 76, "Lexical form ' 5 ' is invalid for datatype xsd:unsignedLong.", " 5 ", D_XSD_UNSIGNED_LONG);
    expectRefused(
        source, 76, "Lexical form '9223372036854775808' is invalid for datatype xsd:integer.", "9223372036854775808",
        D_XSD_INTEGER);
    expectRefused(
        "Engine/core/data-store/dictionary/XSDDecimal", 58, "Lexical form '1e5' is invalid for datatype xsd:decimal.",
        "1e5", D_XSD_DECIMAL);
    expectRefused(
        "Engine/core/data-store/dictionary/XSDDecimal", 60,
        "Value '0.00000000000000000001' exceeds the capacity of datatype xsd:decimal: at most 19 fraction digits and a "
        "signed 64-bit unscaled value.",
        "0.00000000000000000001", D_XSD_DECIMAL);

    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), before);
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 1u);
    EXPECT_EQ(this->m_store.m_resourceData.getEnd(), 0u);
    EXPECT_EQ(this->m_store.m_dataPool.getEnd(), DataPool::FIRST_OFFSET);
    EXPECT_EQ(context.m_resourceIDBlockEnd, 0u);
    EXPECT_EQ(context.m_dataPoolChunkEnd, 0u);
}

TYPED_TEST(NumericDatatypeResolveTest, WithoutAContextEveryNewValueTakesOneID) {
    EXPECT_EQ(this->m_store.resolve("10", D_XSD_INT), 1u);
    EXPECT_EQ(this->m_store.resolve("0.5", D_XSD_DECIMAL), 2u);
    EXPECT_EQ(this->m_store.resolve("10", D_XSD_INT), 1u);
    EXPECT_EQ(this->m_store.resolve("10", D_XSD_LONG), 3u);
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 4u);
    EXPECT_EQ(this->m_store.m_resourceData[1], 10u);
    EXPECT_EQ(this->m_store.m_resourceData[2], DataPool::FIRST_OFFSET);
    EXPECT_EQ(this->m_store.m_dataPool.getEnd(), DataPool::FIRST_OFFSET + TestFixture::Store::RECORD_SIZE);
}

TYPED_TEST(NumericDatatypeResolveTest, ContextsTakeBlocksOf1024IDs) {
    DictionaryUsageContext first;
    DictionaryUsageContext second;
    EXPECT_EQ(this->m_store.resolve("0", D_XSD_INT, &first), 1u);
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 1025u);
    EXPECT_EQ(first.m_resourceIDBlockNext, 2u);
    EXPECT_EQ(first.m_resourceIDBlockEnd, 1025u);
    EXPECT_EQ(this->m_store.resolve("100000", D_XSD_INT, &second), 1025u);
    EXPECT_EQ(this->m_store.resolve("-7", D_XSD_INT), 2049u); // a single one between the blocks
    for (uint64_t i = 1; i < 1024; ++i)
        ASSERT_EQ(this->m_store.resolve(std::to_string(i), D_XSD_INT, &first), 1 + i);
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 2050u);
    EXPECT_EQ(first.m_resourceIDBlockNext, first.m_resourceIDBlockEnd);
    EXPECT_EQ(this->m_store.resolve("50", D_XSD_INT, &first), 51u); // present: needs no ID
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 2050u);
    EXPECT_EQ(this->m_store.resolve("1024", D_XSD_INT, &first), 2050u);
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 2050u + 1024u);
}

TYPED_TEST(NumericDatatypeResolveTest, TheArraysAreGrownBeforeTheCounterMoves) {
    DictionaryUsageContext context;
    this->m_store.m_nextResourceID = 511; // the data array has 512 entries a page
    this->m_store.resolve("1", D_XSD_INT);
    EXPECT_EQ(this->m_store.m_resourceData.getEnd(), 512u);
    EXPECT_EQ(this->m_store.m_resourceDatatypeIDs.getEnd(), 4096u);
    this->m_store.resolve("2", D_XSD_INT);
    EXPECT_EQ(this->m_store.m_resourceData.getEnd(), 1024u);
    this->m_store.m_nextResourceID = 3500;
    this->m_store.resolve("3", D_XSD_INT, &context);
    EXPECT_EQ(this->m_store.m_resourceData.getEnd(), 4608u); // 4524 rounded to pages
    EXPECT_EQ(this->m_store.m_resourceDatatypeIDs.getEnd(), 8192u);
}

TYPED_TEST(NumericDatatypeResolveTest, EachArrayIsGrownByItsOwnEnd) {
    this->m_store.m_resourceData.ensureEndAtLeast(5000); // as a thread leaves it that was stopped between the two
    EXPECT_EQ(this->m_store.resolve("1", D_XSD_INT), 1u);
    EXPECT_GE(this->m_store.m_resourceDatatypeIDs.getEnd(), 2u);
    EXPECT_EQ(this->m_store.getDatatypeID(1), D_XSD_INT);
}

TYPED_TEST(NumericDatatypeResolveTest, RecordsLieOneAfterTheOtherInTheChunkOfTheContext) {
    constexpr uint64_t R = TestFixture::Store::RECORD_SIZE;
    constexpr uint64_t CHUNK = 65536 + R;
    DictionaryUsageContext context;
    uint64_t resourceID = this->m_store.resolve("0.5", D_XSD_DECIMAL, &context);
    EXPECT_EQ(this->m_store.m_resourceData[resourceID], 64u);
    EXPECT_EQ(context.m_dataPoolChunkNext, 64 + R);
    EXPECT_EQ(context.m_dataPoolChunkEnd, 64 + CHUNK);
    EXPECT_EQ(this->m_store.m_dataPool.getEnd(), 64 + CHUNK);
    EXPECT_EQ(this->m_store.getRecordBytes(64), this->m_store.makeRecordBytes(resourceID, 5, 1));
    const uint64_t recordsOfAChunk = CHUNK / R;
    for (uint64_t i = 1; i < recordsOfAChunk; ++i) {
        resourceID = this->m_store.resolve("-" + std::to_string(i) + ".25", D_XSD_DECIMAL, &context);
        ASSERT_EQ(this->m_store.m_resourceData[resourceID], 64 + i * R);
        ASSERT_EQ(
            this->m_store.getRecordBytes(64 + i * R),
            this->m_store.makeRecordBytes(resourceID, -static_cast<int64_t>(i * 100 + 25), 2));
    }
    EXPECT_EQ(this->m_store.m_dataPool.getEnd(), 64 + CHUNK);
    // What is left is less than a record and is abandoned.
    EXPECT_LT(context.m_dataPoolChunkEnd - context.m_dataPoolChunkNext, R);
    EXPECT_EQ(context.m_dataPoolChunkEnd - context.m_dataPoolChunkNext, CHUNK % R);
    resourceID = this->m_store.resolve("0.75", D_XSD_DECIMAL, &context);
    EXPECT_EQ(this->m_store.m_resourceData[resourceID], 64 + CHUNK);
    EXPECT_EQ(this->m_store.m_dataPool.getEnd(), 64 + 2 * CHUNK);
    EXPECT_EQ(context.m_dataPoolChunkNext, 64 + CHUNK + R);
    // Without a context, one record.
    resourceID = this->m_store.resolve("0.125", D_XSD_DECIMAL);
    EXPECT_EQ(this->m_store.m_resourceData[resourceID], 64 + 2 * CHUNK);
    EXPECT_EQ(this->m_store.m_dataPool.getEnd(), 64 + 2 * CHUNK + R);
    EXPECT_EQ(this->m_store.getRecordBytes(64 + 2 * CHUNK), this->m_store.makeRecordBytes(resourceID, 125, 3));
}

TYPED_TEST(NumericDatatypeResolveTest, AChunkIsUsedToItsLastByte) {
    constexpr uint64_t R = TestFixture::Store::RECORD_SIZE;
    DictionaryUsageContext context;
    uint64_t end;
    context.m_dataPoolChunkNext = this->m_store.m_dataPool.allocate(2 * R + R - 1, end);
    context.m_dataPoolChunkEnd = context.m_dataPoolChunkNext + 2 * R; // exactly two records fit
    const uint64_t start = context.m_dataPoolChunkNext;
    EXPECT_EQ(this->m_store.m_resourceData[this->m_store.resolve("0.1", D_XSD_DECIMAL, &context)], start);
    EXPECT_EQ(this->m_store.m_resourceData[this->m_store.resolve("0.2", D_XSD_DECIMAL, &context)], start + R);
    EXPECT_EQ(this->m_store.m_resourceData[this->m_store.resolve("0.3", D_XSD_DECIMAL, &context)], end);
}

TYPED_TEST(NumericDatatypeResolveTest, WhatIsPublishedIsInBucketsArraysAndRecord) {
    const uint64_t integerID = this->m_store.resolve("-42", D_XSD_SHORT);
    const uint64_t decimalID = this->m_store.resolve("-42.5", D_XSD_DECIMAL);
    const NumericImage image = saveToImage(*this->m_store.m_dictionary);
    checkTables<TypeParam>(image);
    const size_t integerIndex = (static_cast<uint64_t>(-42) * 0x9e3779b1ULL) & 1023;
    EXPECT_EQ(image[D_XSD_SHORT].m_buckets[integerIndex], (ImageBucket{integerID, -42}));
    EXPECT_EQ(this->m_store.m_resourceData[integerID], static_cast<uint64_t>(-42));
    EXPECT_EQ(this->m_store.getDatatypeID(integerID), D_XSD_SHORT);
    uint64_t hash = 0xcbf29ce484222325ULL;
    hash = (hash ^ static_cast<uint64_t>(-425)) * 0x100000001b3ULL;
    hash = (hash ^ 1) * 0x100000001b3ULL;
    EXPECT_EQ(image[D_XSD_DECIMAL].m_buckets[hash & 1023].m_word, 64u);
    EXPECT_EQ(this->m_store.m_resourceData[decimalID], 64u);
    EXPECT_EQ(this->m_store.getDatatypeID(decimalID), D_XSD_DECIMAL);
    EXPECT_EQ(this->m_store.getRecordBytes(64), this->m_store.makeRecordBytes(decimalID, -425, 1));
    for (uint8_t datatypeID = FIRST_NUMERIC_DATATYPE; datatypeID <= LAST_NUMERIC_DATATYPE; ++datatypeID)
        EXPECT_EQ(image[datatypeID].m_usedCount, datatypeID == D_XSD_SHORT || datatypeID == D_XSD_DECIMAL ? 100u : 0u);
}

TYPED_TEST(NumericDatatypeResolveTest, ValueAndFormAreTheSameToEveryOperation) {
    const uint64_t integerID = this->m_store.resolve(makeInteger(D_XSD_INT, 77));
    const uint64_t decimalID = this->m_store.resolve(makeDecimal("7.7"));
    EXPECT_EQ(this->m_store.resolve("77", D_XSD_INT), integerID);
    EXPECT_EQ(this->m_store.tryResolve(makeInteger(D_XSD_INT, 77)), integerID);
    EXPECT_EQ(this->m_store.tryResolve("77", D_XSD_INT), integerID);
    EXPECT_EQ(this->m_store.resolve("7.7", D_XSD_DECIMAL), decimalID);
    EXPECT_EQ(this->m_store.tryResolve(makeDecimal("7.70")), decimalID);
    EXPECT_EQ(this->m_store.tryResolve("7.7", D_XSD_DECIMAL), decimalID);
    EXPECT_EQ(this->m_store.tryResolve("78", D_XSD_INT), 0u);
    EXPECT_EQ(this->m_store.tryResolve("7.8", D_XSD_DECIMAL), 0u);
    EXPECT_EQ(this->m_store.tryResolve("0", D_XSD_INT), 0u); // an empty bucket has the value 0 too
    EXPECT_EQ(this->m_store.tryResolve("0", D_XSD_DECIMAL), 0u);
}

TYPED_TEST(NumericDatatypeResolveTest, ABinaryValueIsTrusted) {
    const uint64_t resourceID = this->m_store.resolve(makeInteger(D_XSD_BYTE, 300));
    EXPECT_EQ(this->m_store.getText(resourceID, D_XSD_BYTE), "300");
}

TYPED_TEST(NumericDatatypeResolveTest, BothBoundsOfVisibilityExclude) {
    for (int i = 0; i < 9; ++i)
        this->m_store.resolve(std::to_string(1000 + i), D_XSD_INT);
    const uint64_t integerID = this->m_store.resolve("5", D_XSD_INT);
    const uint64_t decimalID = this->m_store.resolve("5.5", D_XSD_DECIMAL);
    const uint64_t offset = this->m_store.m_resourceData[decimalID];
    const struct {
        const char* name;
        Visibility visibility;
        bool seesInteger;
        bool seesDecimal;
    } rows[] = {
        {"all", ALL_VISIBLE, true, true},
        {"nothing", {0, 0}, false, false},
        {"IDs up to the integer's", {integerID, UINT64_MAX}, false, false},
        {"IDs with the integer's", {integerID + 1, UINT64_MAX}, true, false},
        {"IDs with the decimal's", {decimalID + 1, UINT64_MAX}, true, true},
        {"offsets up to the decimal's", {UINT64_MAX, offset}, true, false},
        {"offsets with the decimal's", {UINT64_MAX, offset + 1}, true, true},
        {"offsets that do not matter to integers", {UINT64_MAX, 0}, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(this->m_store.tryResolve("5", D_XSD_INT, row.visibility), row.seesInteger ? integerID : 0);
        EXPECT_EQ(this->m_store.tryResolve(makeInteger(D_XSD_INT, 5), row.visibility), row.seesInteger ? integerID : 0);
        EXPECT_EQ(this->m_store.tryResolve("5.5", D_XSD_DECIMAL, row.visibility), row.seesDecimal ? decimalID : 0);
        EXPECT_EQ(this->m_store.tryResolve(makeDecimal("5.5"), row.visibility), row.seesDecimal ? decimalID : 0);
    }
}

TYPED_TEST(NumericDatatypeResolveTest, AnInvisibleRecordDoesNotEndTheProbe) {
    // Decimals until two start at one bucket: the later of them is reached through the earlier one.
    const auto getStart = [](int64_t unscaledValue) {
        uint64_t hash = (0xcbf29ce484222325ULL ^ static_cast<uint64_t>(unscaledValue)) * 0x100000001b3ULL;
        hash = (hash ^ 0) * 0x100000001b3ULL;
        return hash & 1023;
    };
    std::map<uint64_t, int64_t> byStart;
    int64_t first = 0;
    int64_t second = 0;
    for (int64_t value = 1; second == 0; ++value)
        if (!byStart.emplace(getStart(value), value).second) {
            first = byStart[getStart(value)];
            second = value;
        }
    uint64_t end;
    const uint64_t low = this->m_store.m_dataPool.allocate(TestFixture::Store::RECORD_SIZE, end);
    const uint64_t firstID =
        this->m_store.resolve(std::to_string(first), D_XSD_DECIMAL); // at a high offset, in the first bucket
    DictionaryUsageContext context;
    context.m_dataPoolChunkNext = low;
    context.m_dataPoolChunkEnd = end;
    const uint64_t secondID = this->m_store.resolve(std::to_string(second), D_XSD_DECIMAL, &context);
    const Visibility visibility(UINT64_MAX, end);
    EXPECT_EQ(this->m_store.tryResolve(std::to_string(first), D_XSD_DECIMAL, visibility), 0u);
    EXPECT_EQ(this->m_store.tryResolve(std::to_string(second), D_XSD_DECIMAL, visibility), secondID);
    EXPECT_EQ(this->m_store.tryResolve(std::to_string(first), D_XSD_DECIMAL), firstID);
}

TYPED_TEST(NumericDatatypeResolveTest, SingleIDsEndAtTheBound) {
    this->m_store.initialize(3000);
    this->m_store.m_nextResourceID = 2999;
    EXPECT_EQ(this->m_store.resolve("1", D_XSD_INT), 2999u);
    for (const uint8_t datatypeID : {uint8_t(D_XSD_INT), uint8_t(D_XSD_DECIMAL)})
        expectError(CAPACITY_SOURCE, 133, CAPACITY_MESSAGE, [&] { this->m_store.resolve("2", datatypeID); });
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 3000u);
    EXPECT_EQ(this->m_store.resolve("1", D_XSD_INT), 2999u); // what is present needs no ID
    EXPECT_EQ(this->m_store.tryResolve("2", D_XSD_INT), 0u);
    const NumericImage image = saveToImage(*this->m_store.m_dictionary);
    checkTables<TypeParam>(image); // the claimed buckets are empty again
    this->m_store.m_nextResourceID = 2500;
    EXPECT_EQ(this->m_store.resolve("2", D_XSD_INT), 2500u);
}

TYPED_TEST(NumericDatatypeResolveTest, ABlockNeverCrossesTheBound) {
    this->m_store.initialize(3000);
    DictionaryUsageContext context;
    this->m_store.m_nextResourceID = 1975;
    EXPECT_EQ(this->m_store.resolve("0", D_XSD_INT, &context), 1975u); // up to 2998
    DictionaryUsageContext other;
    expectError(CAPACITY_SOURCE, 144, CAPACITY_MESSAGE, [&] { this->m_store.resolve("-1", D_XSD_INT, &other); });
    EXPECT_EQ(other.m_resourceIDBlockEnd, 0u);
    EXPECT_EQ(this->m_store.m_nextResourceID.load(), 2999u);
    EXPECT_EQ(this->m_store.resolve("-2", D_XSD_INT), 2999u); // the last single one
    expectError(CAPACITY_SOURCE, 133, CAPACITY_MESSAGE, [&] { this->m_store.resolve("-3", D_XSD_INT); });
    for (int i = 1; i < 1024; ++i)
        ASSERT_EQ(this->m_store.resolve(std::to_string(i), D_XSD_INT, &context), 1975u + static_cast<uint64_t>(i));
    expectError(CAPACITY_SOURCE, 144, CAPACITY_MESSAGE, [&] { this->m_store.resolve("1024", D_XSD_INT, &context); });
    expectError(CAPACITY_SOURCE, 144, CAPACITY_MESSAGE, [&] { this->m_store.resolve("0.5", D_XSD_DECIMAL, &context); });
    EXPECT_EQ(this->m_store.tryResolve("1023", D_XSD_INT), 2998u);
    checkTables<TypeParam>(saveToImage(*this->m_store.m_dictionary));
}

TYPED_TEST(NumericDatatypeResolveTest, TheBoundOfBlocksIsExclusive) {
    this->m_store.initialize(3000);
    DictionaryUsageContext context;
    this->m_store.m_nextResourceID = 1976; // 3000 - 1024
    expectError(CAPACITY_SOURCE, 144, CAPACITY_MESSAGE, [&] { this->m_store.resolve("0", D_XSD_INT, &context); });
}

TYPED_TEST(NumericDatatypeResolveTest, ABoundBelow1024LimitsOnlySingleIDs) {
    this->m_store.initialize(1000);
    DictionaryUsageContext context;
    this->m_store.m_nextResourceID = 1000;
    expectError(CAPACITY_SOURCE, 133, CAPACITY_MESSAGE, [&] { this->m_store.resolve("0", D_XSD_INT); });
    EXPECT_EQ(this->m_store.resolve("0", D_XSD_INT, &context), 1000u);
}

TYPED_TEST(NumericDatatypeResolveTest, AFailureAfterTheIDLosesTheIDAndNothingElse) {
    DictionaryUsageContext context;
    EXPECT_EQ(this->m_store.resolve("0", D_XSD_INT, &context), 1u);
    this->m_store.tryResolve("0.5", D_XSD_DECIMAL);
    const uint64_t totalBytes = this->m_store.m_memoryManager.getTotalBytes();
    ASSERT_TRUE(this->m_store.m_memoryManager.trySetTotalBytes(this->m_store.m_memoryManager.getChargedBytes() + 4096));
    const uint64_t total = this->m_store.m_memoryManager.getTotalBytes();
    const uint64_t chunkPages = (64 + 65536 + TestFixture::Store::RECORD_SIZE + 4095) / 4096 * 4096;
    expectOutOfMemory(total, 4096, chunkPages, [&] { this->m_store.resolve("0.5", D_XSD_DECIMAL, &context); });
    EXPECT_EQ(context.m_resourceIDBlockNext, 3u); // ID 2 is lost
    EXPECT_EQ(context.m_dataPoolChunkEnd, 0u);
    EXPECT_EQ(this->m_store.getDatatypeID(2), D_NONE);
    EXPECT_EQ(this->m_store.tryResolve("0.5", D_XSD_DECIMAL), 0u);
    EXPECT_EQ(this->m_store.m_dataPool.getEnd(), 64u);
    checkTables<TypeParam>(saveToImage(*this->m_store.m_dictionary));
    ASSERT_TRUE(this->m_store.m_memoryManager.trySetTotalBytes(totalBytes));
    EXPECT_EQ(this->m_store.resolve("0.5", D_XSD_DECIMAL, &context), 3u);
    EXPECT_EQ(saveToImage(*this->m_store.m_dictionary)[D_XSD_DECIMAL].m_usedCount, 100u); // the reservation was kept
}

TYPED_TEST(NumericDatatypeResolveTest, ManyValuesOfAllTablesAreFoundAfterManyResizes) {
    DictionaryUsageContext context;
    std::map<std::pair<uint8_t, std::string>, uint64_t> model;
    std::set<uint64_t> resourceIDs;
    for (int i = 0; i < 3000; ++i)
        for (const uint8_t datatypeID : {uint8_t(D_XSD_DECIMAL), uint8_t(D_XSD_INTEGER), uint8_t(D_XSD_INT)}) {
            const std::string form = std::to_string(i * (datatypeID == D_XSD_INT ? 4096 : 1) - 1500) +
                                     (datatypeID == D_XSD_DECIMAL ? ".5" : "");
            const uint64_t resourceID = this->m_store.resolve(form, datatypeID, &context);
            ASSERT_TRUE(resourceIDs.insert(resourceID).second);
            model[{datatypeID, form}] = resourceID;
        }
    for (const auto& [key, resourceID] : model) {
        ASSERT_EQ(this->m_store.tryResolve(key.second, key.first), resourceID);
        ASSERT_EQ(this->m_store.getText(resourceID, key.first), key.second);
        ASSERT_EQ(this->m_store.getDatatypeID(resourceID), key.first);
    }
    const NumericImage image = saveToImage(*this->m_store.m_dictionary);
    checkTables<TypeParam>(image);
    EXPECT_EQ(image[D_XSD_INT].m_numberOfBuckets, 8192u);
    EXPECT_EQ(image[D_XSD_DECIMAL].m_numberOfBuckets, 8192u);
}

}

}
