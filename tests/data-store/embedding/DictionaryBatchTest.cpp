#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "support/ExpectError.h"
#include "support/MixedBatches.h"
#include "support/MixedValues.h"
#include "support/ResourceIDWidths.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace kavix::test {

namespace {

/// Where a table or its memory ends in the middle of a batch of one datatype is NumericDatatypeBatchTest's.
constexpr Mixture SEVERAL_DATATYPES[] = {
    ALL_DATATYPES, ALL_DATATYPES_MANY_TWICE, TWO_DATATYPES, ONE_AMONG_DECIMALS, ONE_NUMBER_TWICE};

constexpr size_t SIZES[] = {0, 1, 2, 31, 32, 33, 1023, 1024, 1025, 2048, 5000};

class DictionaryBatchTest : public ResourceIDWidthTest { };

INSTANTIATE_TEST_SUITE_P(Widths, DictionaryBatchTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

TEST_P(DictionaryBatchTest, GivesTheIDsOfOneValueAtATime) {
    for (const Mixture& mixture : MIXTURES)
        for (const size_t n : SIZES) {
            SCOPED_TRACE(std::to_string(n) + " values: " + mixture.m_name);
            const std::vector<ResourceValue> values = makeValues(mixture, n);
            Dictionary single(makeOptions());
            Dictionary batched(makeOptions());
            Transaction singleTransaction(single);
            Transaction transaction(batched);
            const SingleResults expected = resolveSingly(singleTransaction, values);
            std::vector<uint64_t> resourceIDs(n + 2, 999);

            transaction.resolve(values, resourceIDs.data() + 1);

            ASSERT_EQ(expected.m_error, "");
            EXPECT_EQ(resourceIDs.front(), 999u);
            EXPECT_EQ(resourceIDs.back(), 999u);
            EXPECT_EQ(std::vector<uint64_t>(resourceIDs.begin() + 1, resourceIDs.end() - 1), expected.m_resourceIDs);
            for (int i = 0; i < 2; ++i) { // all are present now
                resourceIDs.assign(n + 2, 999);
                if (i == 0)
                    transaction.resolve(values, resourceIDs.data() + 1);
                else
                    std::as_const(batched).tryResolve(values, resourceIDs.data() + 1);
                EXPECT_EQ(resourceIDs.front(), 999u);
                EXPECT_EQ(resourceIDs.back(), 999u);
                EXPECT_EQ(
                    std::vector<uint64_t>(resourceIDs.begin() + 1, resourceIDs.end() - 1), expected.m_resourceIDs);
            }
            singleTransaction.commit();
            transaction.commit();
            expectSameContents(single, batched);
            expectConsistent(batched);
        }
}

TEST_P(DictionaryBatchTest, SomeValuesMayBePresent) {
    for (const Mixture& mixture : MIXTURES)
        for (const size_t step : {2, 3, 100}) {
            SCOPED_TRACE(std::string(mixture.m_name) + ", of which one is present in " + std::to_string(step));
            const std::vector<ResourceValue> values = makeValues(mixture, 3000);
            Dictionary single(makeOptions());
            Dictionary batched(makeOptions());
            Transaction singleTransaction(single);
            Transaction transaction(batched);
            for (size_t index = 0; index < values.size(); index += step)
                ASSERT_EQ(transaction.resolve(values[index]), singleTransaction.resolve(values[index]));
            std::vector<uint64_t> resourceIDs(values.size(), 999);
            std::vector<uint64_t> expected;
            for (const ResourceValue& value : values)
                expected.push_back(single.tryResolve(value));
            const uint64_t usedBytes = batched.getUsedBytes();
            batched.tryResolve(values, resourceIDs.data());
            EXPECT_EQ(resourceIDs, expected);
            EXPECT_EQ(batched.getUsedBytes(), usedBytes); // looking up enters nothing
            transaction.resolve(values, resourceIDs.data());
            EXPECT_EQ(resourceIDs, resolveSingly(singleTransaction, values).m_resourceIDs);
        }
}

TEST_P(DictionaryBatchTest, TheBytesOfAValueMayBeAnywhere) {
    std::vector<char> bytes(17 * 3000);
    std::vector<ResourceValue> values;
    for (size_t index = 0; index < 3000; ++index) {
        ResourceValue value = makeMixedValue(index);
        std::memcpy(bytes.data() + 17 * index, value.data, value.dataSize);
        value.data = reinterpret_cast<const uint8_t*>(bytes.data() + 17 * index);
        std::memset(value.buffer, 0xff, sizeof(value.buffer));
        values.push_back(value);
    }
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    std::vector<uint64_t> resourceIDs(values.size());
    transaction.resolve(values, resourceIDs.data());
    for (size_t index = 0; index < values.size(); ++index)
        ASSERT_TRUE(isSameValue(dictionary.getValue(resourceIDs[index]), makeMixedValue(index))) << index;
}

struct InvalidValue {
    const char* name;
    ResourceValue value;
};

std::vector<InvalidValue> makeInvalidValues() {
    std::vector<InvalidValue> values;
    const auto add = [&](const char* name, uint8_t datatypeID, const auto& binaryValue) {
        values.push_back(InvalidValue{name, ResourceValue()});
        values.back().value.setBinaryValue(datatypeID, binaryValue);
        return &values.back().value;
    };
    add("out of range", D_XSD_BYTE, int64_t(128));
    add("not normalised", D_XSD_DECIMAL, XSDDecimal::fromNormalisedFields(10, 1));
    add("of the wrong size", D_XSD_INT, XSDDecimal());
    add("of no datatype", D_NONE, int64_t(1));
    add("of an unknown datatype", 36, int64_t(1));
    add("of another family", 20, int64_t(1));
    add("without data", D_XSD_LONG, int64_t(1))->data = nullptr;
    return values;
}

TEST_P(DictionaryBatchTest, EndsAtTheFirstInvalidValueAndHasEnteredThoseBefore) {
    const std::vector<InvalidValue> invalidValues = makeInvalidValues();
    const std::vector<std::vector<size_t>> placesOfInvalidValues = {
        {0}, {1}, {500}, {1023}, {1024}, {1025}, {2999}, {700, 701, 2000}, {1023, 1024}, {0, 2999}};
    for (const Mixture& mixture : {INTEGERS, ALL_DATATYPES})
        for (const InvalidValue& invalidValue : invalidValues)
            for (const std::vector<size_t>& places : placesOfInvalidValues) {
                SCOPED_TRACE(
                    std::string(mixture.m_name) + ", the first value " + invalidValue.name + " at " +
                    std::to_string(places.front()));
                std::vector<ResourceValue> values = makeValues(mixture, 3000);
                for (const size_t place : places) // what is wrong with the first one is what is reported
                    values[place] = place == places.front() ? invalidValue.value
                                                            : invalidValues[(place + 1) % invalidValues.size()].value;
                Dictionary single(makeOptions());
                Dictionary batched(makeOptions());
                Transaction singleTransaction(single);
                Transaction transaction(batched);
                const SingleResults expected = resolveSingly(singleTransaction, values);
                ASSERT_EQ(expected.m_resourceIDs.size(), places.front());
                std::vector<uint64_t> resourceIDs(values.size(), 999);
                EXPECT_EQ(describeError([&] { transaction.resolve(values, resourceIDs.data()); }), expected.m_error);
                resourceIDs.resize(places.front());
                EXPECT_EQ(resourceIDs, expected.m_resourceIDs);
                resourceIDs.assign(values.size(), 999);
                EXPECT_EQ(describeError([&] { batched.tryResolve(values, resourceIDs.data()); }), expected.m_error);
                resourceIDs.resize(places.front());
                EXPECT_EQ(resourceIDs, expected.m_resourceIDs);
                singleTransaction.commit();
                transaction.commit();
                expectSameContents(single, batched);
            }
}

TEST_P(DictionaryBatchTest, AllValuesMayBeInvalid) {
    for (const InvalidValue& invalidValue : makeInvalidValues()) {
        SCOPED_TRACE(invalidValue.name);
        Dictionary dictionary(makeOptions());
        Transaction transaction(dictionary);
        const std::vector<ResourceValue> values(1500, invalidValue.value);
        std::vector<uint64_t> resourceIDs(values.size());
        const std::string expected = describeError([&] { transaction.resolve(invalidValue.value); });
        EXPECT_NE(expected, "");
        EXPECT_EQ(describeError([&] { transaction.resolve(values, resourceIDs.data()); }), expected);
        EXPECT_EQ(describeError([&] { dictionary.tryResolve(values, resourceIDs.data()); }), expected);
    }
}

TEST_P(DictionaryBatchTest, EndsWhereTheIDsRunOut) {
    // A transaction takes whole blocks, so below 2048 there is one, of 1024 IDs.
    for (const Mixture& mixture : SEVERAL_DATATYPES)
        for (const size_t n : {1000, 1024, 1025, 1026, 3000}) {
            SCOPED_TRACE(std::to_string(n) + " values: " + mixture.m_name);
            const std::vector<ResourceValue> values = makeValues(mixture, n);
            Dictionary single(makeOptions(2048));
            Dictionary batched(makeOptions(2048));
            Transaction singleTransaction(single);
            Transaction transaction(batched);
            const SingleResults expected = resolveSingly(singleTransaction, values);
            std::vector<uint64_t> resourceIDs(n, 999);
            EXPECT_EQ(describeError([&] { transaction.resolve(values, resourceIDs.data()); }), expected.m_error);
            resourceIDs.resize(expected.m_resourceIDs.size());
            EXPECT_EQ(resourceIDs, expected.m_resourceIDs);
            singleTransaction.commit();
            transaction.commit();
            expectSameContents(single, batched);
            expectConsistent(batched);
        }
}

TEST_P(DictionaryBatchTest, EndsWhereTheBudgetRunsOutAndContinuesWithMore) {
    for (const Mixture& mixture : {TWO_DATATYPES, ALL_DATATYPES}) {
        const std::vector<ResourceValue> values = makeValues(mixture, 4000);
        size_t numberOfFailures = 0;
        for (uint64_t extraBytes = 0;; extraBytes += 20480) {
            SCOPED_TRACE(std::string(mixture.m_name) + " with " + std::to_string(extraBytes) + " bytes to spend");
            Dictionary single(makeOptions());
            Dictionary batched(makeOptions());
            for (Dictionary* dictionary : {&single, &batched})
                dictionary->setMemoryBudget(dictionary->getUsedBytes() + extraBytes);
            Transaction singleTransaction(single);
            Transaction transaction(batched);
            const SingleResults expected = resolveSingly(singleTransaction, values);
            std::vector<uint64_t> resourceIDs(values.size(), 999);
            EXPECT_EQ(describeError([&] { transaction.resolve(values, resourceIDs.data()); }), expected.m_error);
            std::vector<uint64_t> before(
                resourceIDs.begin(), resourceIDs.begin() + static_cast<ptrdiff_t>(expected.m_resourceIDs.size()));
            EXPECT_EQ(before, expected.m_resourceIDs);
            if (expected.m_error.empty())
                break;
            ++numberOfFailures;
            for (Dictionary* dictionary : {&single, &batched})
                dictionary->setMemoryBudget(1 << 30);
            transaction.resolve(values, resourceIDs.data());
            EXPECT_EQ(resourceIDs, resolveSingly(singleTransaction, values).m_resourceIDs);
            singleTransaction.commit();
            transaction.commit();
            expectSameContents(single, batched);
            expectConsistent(batched);
        }
        EXPECT_GT(numberOfFailures, 3u);
    }
}

TEST_P(DictionaryBatchTest, PresentValuesNeedNoMemory) {
    // As many integers as a table of 1024 buckets takes; from then on another reservation would double it.
    std::vector<ResourceValue> values;
    for (size_t index = 0; index < 700; ++index)
        values.push_back(makeValue(D_XSD_INTEGER, index));
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    std::vector<uint64_t> expected(values.size());
    transaction.resolve(values, expected.data());
    dictionary.setMemoryBudget(dictionary.getUsedBytes());
    std::vector<uint64_t> resourceIDs(values.size());
    transaction.resolve(values, resourceIDs.data());
    EXPECT_EQ(resourceIDs, expected);
    EXPECT_NE(describeError([&] { transaction.resolve(makeValue(D_XSD_INTEGER, 700)); }), "");
}

TEST_P(DictionaryBatchTest, OnlyWhatASnapshotReachesIsFound) {
    const std::vector<ResourceValue> values = makeValues(ALL_DATATYPES, 3000);
    Dictionary dictionary(makeOptions());
    std::vector<Dictionary::Snapshot> snapshots{{0, 0}, {1, UINT64_MAX}, {UINT64_MAX, 0}, Dictionary::EVERYTHING};
    for (size_t index = 0; index < values.size(); ++index) {
        if (index % 500 == 0)
            snapshots.push_back(dictionary.takeSnapshot());
        if (index % 3 != 0)
            dictionary.resolve(values[index]);
    }
    for (const Dictionary::Snapshot& snapshot : snapshots) {
        SCOPED_TRACE(std::to_string(snapshot.resourceIDEnd) + ", " + std::to_string(snapshot.dataPoolEnd));
        std::vector<uint64_t> resourceIDs(values.size(), 999);
        std::vector<uint64_t> expected;
        for (const ResourceValue& value : values)
            expected.push_back(dictionary.tryResolve(value, snapshot));
        dictionary.tryResolve(values, resourceIDs.data(), snapshot);
        EXPECT_EQ(resourceIDs, expected);
    }
}

TEST_P(DictionaryBatchTest, LookingUpEntersNothing) {
    const std::vector<ResourceValue> values = makeValues(ALL_DATATYPES, 3000);
    Dictionary dictionary(makeOptions());
    const uint64_t usedBytes = dictionary.getUsedBytes();
    std::vector<uint64_t> resourceIDs(values.size(), 999);
    dictionary.tryResolve(values, resourceIDs.data());
    EXPECT_EQ(resourceIDs, std::vector<uint64_t>(values.size(), 0));
    EXPECT_EQ(dictionary.getUsedBytes(), usedBytes);
    EXPECT_EQ(dictionary.takeSnapshot().resourceIDEnd, 1u);
}

TEST_P(DictionaryBatchTest, AnEndedTransactionRefusesThem) {
    Dictionary dictionary(makeOptions());
    const std::vector<ResourceValue> values = makeValues(ALL_DATATYPES, 20);
    for (const bool isCommitted : {true, false}) {
        Transaction transaction(dictionary);
        if (isCommitted)
            transaction.commit();
        else
            transaction.rollback();
        for (const size_t n : {0, 1, 20}) {
            std::vector<uint64_t> resourceIDs(n, 999);
            expectError(
                "Engine/core/data-store/dictionary/Transaction", 40,
                "The transaction has already been committed or rolled back; begin another one to write.",
                [&] { transaction.resolve(std::span(values).first(n), resourceIDs.data()); });
            EXPECT_EQ(resourceIDs, std::vector<uint64_t>(n, 999));
        }
    }
    std::vector<uint64_t> resourceIDs(values.size(), 999);
    dictionary.tryResolve(values, resourceIDs.data());
    EXPECT_EQ(resourceIDs, std::vector<uint64_t>(values.size(), 0));
}

TEST_P(DictionaryBatchTest, ARollbackRemovesThem) {
    Dictionary dictionary(makeOptions());
    const std::vector<ResourceValue> values = makeValues(ALL_DATATYPES, 3000);
    std::vector<uint64_t> resourceIDs(values.size(), 999);
    {
        Transaction transaction(dictionary);
        transaction.resolve(values, resourceIDs.data());
    }
    dictionary.tryResolve(values, resourceIDs.data());
    EXPECT_EQ(resourceIDs, std::vector<uint64_t>(values.size(), 0));
    {
        Transaction transaction(dictionary);
        transaction.resolve(values, resourceIDs.data());
        transaction.commit();
    }
    for (size_t index = 0; index < values.size(); ++index)
        ASSERT_TRUE(isSameValue(dictionary.getValue(resourceIDs[index]), values[index])) << index;
    expectConsistent(dictionary);
}

}

}
