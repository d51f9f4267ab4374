#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/platform/errors/KavixException.h"
#include "support/ExpectError.h"
#include "support/NumericBatches.h"
#include "support/NumericImage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

template<typename Fixture>
class NumericDatatypeBatchTest : public ::testing::Test { };

TYPED_TEST_SUITE(NumericDatatypeBatchTest, AllBatchFixtures, BatchFixtureNames);

/// The numbers 0 to n - 1 such that many come again, near and far.
std::vector<uint64_t> makeNumbersWithDuplicates(size_t n) {
    std::vector<uint64_t> numbers;
    for (size_t i = 0; i < n; ++i)
        numbers.push_back(i % 7 == 3 ? numbers[i - 1] : i % 5 == 4 ? numbers[i / 2] : i * 7919 % (n + 1));
    return numbers;
}

/// The numbers 0 to n - 1 in another order, each once.
std::vector<uint64_t> makeDistinctNumbers(size_t n) {
    std::vector<uint64_t> numbers;
    for (size_t i = 0; i < n; ++i)
        numbers.push_back(i * 7919 % 5003);
    return numbers;
}

TYPED_TEST(NumericDatatypeBatchTest, LeavesWhatOneAtATimeLeaves) {
    using Fixture = TypeParam;
    for (const size_t n : {0u, 1u, 2u, 47u, 48u, 49u, 100u, 101u, 700u, 701u, 1023u, 1024u, 1025u, 1500u, 5000u})
        for (const bool hasDuplicates : {false, true})
            for (const bool usesContext : {false, true}) {
                SCOPED_TRACE(
                    std::to_string(n) + (hasDuplicates ? " with duplicates" : "") +
                    (usesContext ? " with a context" : ""));
                const auto values =
                    Fixture::makeValues(hasDuplicates ? makeNumbersWithDuplicates(n) : makeDistinctNumbers(n));
                typename Fixture::Store single;
                typename Fixture::Store batched;
                single.initialize();
                batched.initialize();
                DictionaryUsageContext singleContext;
                DictionaryUsageContext batchedContext;
                const std::vector<uint64_t> expected =
                    Fixture::resolveSingly(single, usesContext ? &singleContext : nullptr, values);
                std::vector<uint64_t> resourceIDs(n + 2, 999);
                Fixture::resolveAll(batched, usesContext ? &batchedContext : nullptr, values, resourceIDs.data() + 1);
                EXPECT_EQ(resourceIDs.front(), 999u);
                EXPECT_EQ(resourceIDs.back(), 999u);
                EXPECT_EQ(std::vector<uint64_t>(resourceIDs.begin() + 1, resourceIDs.end() - 1), expected);
                Fixture::expectSameResources(single, batched);
                for (size_t i = 0; i < n; ++i)
                    Fixture::expectPublished(batched, expected[i], values[i]);
                if (!hasDuplicates) { // looking for one that is present may take reservations, one by one
                    EXPECT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true);
                    EXPECT_EQ(batched.m_memoryManager.getChargedBytes(), single.m_memoryManager.getChargedBytes());
                }
                EXPECT_EQ(Fixture::resolveAll(batched, nullptr, values), expected); // all are present now
                const std::string image = saveToBytes(*batched.m_dictionary);
                EXPECT_EQ(Fixture::tryResolveAll(batched, values), expected);
                EXPECT_EQ(saveToBytes(*batched.m_dictionary) == image, true); // looking up enters nothing
                checkTables<typename Fixture::ResourceID>(saveToImage(*batched.m_dictionary));
            }
}

TYPED_TEST(NumericDatatypeBatchTest, OnlyWhatIsBelowBothBoundsIsVisible) {
    using Fixture = TypeParam;
    typename Fixture::Store store;
    store.initialize();
    std::vector<uint64_t> numbers;
    for (uint64_t number = 0; number < 200; ++number)
        numbers.push_back(number);
    const auto values = Fixture::makeValues(numbers);
    const std::vector<uint64_t> resourceIDs = Fixture::resolveAll(store, nullptr, values);
    const uint64_t offset = store.m_resourceData[resourceIDs[100]]; // of a record, where it has one
    const struct {
        const char* name;
        Visibility visibility;
        size_t visibleIDs;
        size_t visibleDecimals;
    } rows[] = {
        {"everything", ALL_VISIBLE, 200, 200},
        {"no ID", {0, UINT64_MAX}, 0, 0},
        {"none but the ID of none", {1, UINT64_MAX}, 0, 0},
        {"the first ID", {2, UINT64_MAX}, 1, 1},
        {"up to an ID", {resourceIDs[100], UINT64_MAX}, 100, 100},
        {"with that ID", {resourceIDs[100] + 1, UINT64_MAX}, 101, 101},
        {"no record", {UINT64_MAX, 0}, 200, 0},
        {"up to a record", {UINT64_MAX, offset}, 200, 100},
        {"with that record", {UINT64_MAX, offset + 1}, 200, 101},
        {"the narrower bound, of records", {resourceIDs[150], offset}, 150, 100},
        {"the narrower bound, of IDs", {resourceIDs[50], offset}, 50, 50},
    };
    for (const auto& row : rows) {
        if (!Fixture::IS_DECIMAL && row.visibility.second == offset)
            continue;
        SCOPED_TRACE(row.name);
        const std::vector<uint64_t> found = Fixture::tryResolveAll(store, values, row.visibility);
        EXPECT_EQ(found, Fixture::tryResolveSingly(store, values, row.visibility));
        const size_t visible = Fixture::IS_DECIMAL ? row.visibleDecimals : row.visibleIDs;
        for (size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(found[i], i < visible ? resourceIDs[i] : 0u) << i;
    }
}

TYPED_TEST(NumericDatatypeBatchTest, FollowsProbeChainsAcrossCacheLinesAndTheEndOfTheTable) {
    using Fixture = TypeParam;
    for (const uint64_t start : {0u, 3u, 5u, 500u, 990u, 1008u, 1016u, 1020u, 1022u, 1023u}) {
        SCOPED_TRACE(start);
        std::vector<typename Fixture::Value> values, strangers;
        for (uint64_t i = 0; i < 40; ++i) {
            values.push_back(Fixture::makeValueWithHash(start + 1024 * i));
            strangers.push_back(Fixture::makeValueWithHash(start + 1024 * (i + 100)));
        }
        typename Fixture::Store single;
        typename Fixture::Store batched;
        const std::vector<uint64_t> expected = Fixture::resolveSingly(single.initialize(), nullptr, values);
        batched.initialize();
        std::vector<typename Fixture::Value> half(values.begin(), values.begin() + 20);
        Fixture::resolveAll(batched, nullptr, half);
        EXPECT_EQ(Fixture::resolveAll(batched, nullptr, values), expected);
        EXPECT_EQ(Fixture::tryResolveAll(batched, values), expected);
        EXPECT_EQ(Fixture::tryResolveAll(batched, strangers), std::vector<uint64_t>(40, 0));
        EXPECT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true); // the same buckets
    }
}

TYPED_TEST(NumericDatatypeBatchTest, PassesOverDeletedBuckets) {
    using Fixture = TypeParam;
    std::vector<typename Fixture::Value> values;
    for (uint64_t i = 0; i < 40; ++i)
        values.push_back(Fixture::makeValueWithHash(1010 + 1024 * i));
    typename Fixture::Store single;
    typename Fixture::Store batched;
    for (typename Fixture::Store* store : {&single, &batched}) {
        store->initialize();
        const std::vector<uint64_t> resourceIDs = Fixture::resolveAll(*store, nullptr, values);
        for (size_t i = 0; i < values.size(); i += 3)
            store->m_dictionary->deleteUncommittedResourceID(ALL_VISIBLE, resourceIDs[i], Fixture::DATATYPE_ID);
    }
    const std::vector<uint64_t> found = Fixture::tryResolveAll(batched, values);
    EXPECT_EQ(found, Fixture::tryResolveSingly(single, values));
    for (size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(found[i] == 0, i % 3 == 0);
    EXPECT_EQ(
        Fixture::resolveAll(batched, nullptr, values),
        Fixture::resolveSingly(single, nullptr, values)); // new IDs for the deleted
    Fixture::expectSameResources(single, batched);
    EXPECT_EQ(saveToImage(*batched.m_dictionary)[Fixture::DATATYPE_ID].m_deletedCount, 14u); // none was used again
    checkTables<typename Fixture::ResourceID>(saveToImage(*batched.m_dictionary));
}

TYPED_TEST(NumericDatatypeBatchTest, MayOutgrowTheTableInTheMiddle) {
    using Fixture = TypeParam;
    // Before the resize every second entry is where its search ended; after it, 1024 buckets beyond. The second half of
    // the batch repeats the first, whose buckets were found empty in the old array.
    for (const size_t enteredBefore : {0u, 250u, 599u, 600u, 650u, 699u, 700u}) {
        SCOPED_TRACE(enteredBefore);
        std::vector<typename Fixture::Value> before, values;
        for (uint64_t i = 0; i < enteredBefore; ++i)
            before.push_back(Fixture::makeValueWithHash(i));
        for (uint64_t i = 0; i < 512; ++i)
            values.push_back(Fixture::makeValueWithHash((i % 2 == 0 ? 1024 : 3072) + i + 4096 * (i % 9)));
        for (uint64_t i = 0; i < 512; ++i)
            values.push_back(values[i]);
        typename Fixture::Store single;
        typename Fixture::Store batched;
        Fixture::resolveSingly(single.initialize(), nullptr, before);
        Fixture::resolveSingly(batched.initialize(), nullptr, before);
        EXPECT_EQ(Fixture::resolveAll(batched, nullptr, values), Fixture::resolveSingly(single, nullptr, values));
        EXPECT_EQ(batched.m_nextResourceID.load(), 1 + enteredBefore + 512);
        EXPECT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true);
        EXPECT_GE(
            saveToImage(*batched.m_dictionary)[Fixture::DATATYPE_ID].m_numberOfBuckets,
            2048u - 1024u * (enteredBefore == 0));
    }
}

TYPED_TEST(NumericDatatypeBatchTest, MayRebuildTheTableAtItsSizeInTheMiddle) {
    using Fixture = TypeParam;
    typename Fixture::Store single;
    typename Fixture::Store batched;
    std::vector<typename Fixture::Value> doomed, values;
    for (uint64_t i = 0; i < 600; ++i)
        doomed.push_back(Fixture::makeValueWithHash(i));
    for (uint64_t i = 0; i < 400; ++i)
        values.push_back(Fixture::makeValueWithHash(i / 2 + 1024 * (i + 1)));
    values.insert(values.end(), values.begin(), values.begin() + 400);
    for (typename Fixture::Store* store : {&single, &batched}) {
        store->initialize();
        for (const uint64_t resourceID : Fixture::resolveAll(*store, nullptr, doomed))
            store->m_dictionary->deleteUncommittedResourceID(ALL_VISIBLE, resourceID, Fixture::DATATYPE_ID);
    }
    EXPECT_EQ(Fixture::resolveAll(batched, nullptr, values), Fixture::resolveSingly(single, nullptr, values));
    EXPECT_EQ(batched.m_nextResourceID.load(), 1001u);
    EXPECT_EQ(saveToImage(*batched.m_dictionary)[Fixture::DATATYPE_ID].m_numberOfBuckets, 1024u);
    EXPECT_EQ(Fixture::tryResolveAll(batched, doomed), std::vector<uint64_t>(600, 0));
    EXPECT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true);
}

TYPED_TEST(NumericDatatypeBatchTest, StopsWhereTheIDsEnd) {
    using Fixture = TypeParam;
    for (const bool usesContext : {false, true})
        for (const uint64_t maxResourceID : {2u, 48u, 500u, 1024u, 1500u, 2048u, 2100u, 3073u, 4500u}) {
            SCOPED_TRACE(std::to_string(maxResourceID) + (usesContext ? " with a context" : ""));
            const auto values = Fixture::makeValues(makeNumbersWithDuplicates(7000));
            typename Fixture::Store single;
            typename Fixture::Store batched;
            single.initialize(maxResourceID);
            batched.initialize(maxResourceID);
            DictionaryUsageContext singleContext;
            DictionaryUsageContext batchedContext;
            std::vector<uint64_t> expected;
            long line = usesContext ? 144 : 133;
            const auto resolveSingly = [&] {
                for (const auto& value : values)
                    expected.push_back(
                        single.resolve(Fixture::toResourceValue(value), usesContext ? &singleContext : nullptr));
            };
            constexpr const char* SOURCE = "Engine/core/data-store/dictionary/DictionaryDatatype";
            constexpr const char* MESSAGE = "The capacity of Kavix for the number of resources has been exceeded.";
            if (usesContext && maxResourceID < 1024)
                continue; // the bound of blocks has wrapped
            expectError(SOURCE, line, MESSAGE, resolveSingly);
            std::vector<uint64_t> resourceIDs(values.size(), 0);
            for (int attempt = 0; attempt < 2; ++attempt) {
                expectError(SOURCE, line, MESSAGE, [&] {
                    Fixture::resolveAll(batched, usesContext ? &batchedContext : nullptr, values, resourceIDs.data());
                });
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), resourceIDs.begin()));
                ASSERT_EQ(
                    Fixture::tryResolveAll(batched, values),
                    Fixture::tryResolveSingly(single, values)); // nothing more was entered
                Fixture::expectSameResources(single, batched);
            }
            checkTables<typename Fixture::ResourceID>(saveToImage(*batched.m_dictionary)); // and no bucket is busy
        }
}

TYPED_TEST(NumericDatatypeBatchTest, StopsWhereTheBudgetEndsAndSucceedsWithMore) {
    using Fixture = TypeParam;
    // Within one batch, so that both ask for the same reservations.
    const auto values = Fixture::makeValues(makeNumbersWithDuplicates(1024));
    typename Fixture::Store model;
    const std::vector<uint64_t> allExpected = Fixture::resolveSingly(model.initialize(), nullptr, values);
    const uint64_t needed = model.m_memoryManager.getChargedBytes();
    typename Fixture::Store empty;
    const uint64_t base = empty.initialize().m_memoryManager.getChargedBytes();
    size_t failures = 0;
    for (uint64_t budget = base; budget <= needed + 40960; budget += 4096) {
        SCOPED_TRACE(budget);
        typename Fixture::Store single(budget);
        typename Fixture::Store batched(budget);
        single.initialize();
        batched.initialize();
        std::vector<uint64_t> expected;
        std::string message;
        try {
            for (const auto& value : values)
                expected.push_back(single.resolve(Fixture::toResourceValue(value)));
        }
        catch (const KavixException& exception) {
            message = exception.what();
            ++failures;
        }
        std::vector<uint64_t> resourceIDs(values.size(), 0);
        std::string batchMessage;
        try {
            Fixture::resolveAll(batched, nullptr, values, resourceIDs.data());
        }
        catch (const KavixException& exception) {
            batchMessage = exception.what();
        }
        ASSERT_EQ(batchMessage, message);
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), resourceIDs.begin()));
        ASSERT_EQ(Fixture::tryResolveAll(batched, values), Fixture::tryResolveSingly(single, values));
        ASSERT_EQ(batched.m_memoryManager.getChargedBytes(), single.m_memoryManager.getChargedBytes());
        ASSERT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true);
        ASSERT_TRUE(batched.m_memoryManager.trySetTotalBytes(uint64_t(1) << 30));
        ASSERT_TRUE(single.m_memoryManager.trySetTotalBytes(uint64_t(1) << 30));
        ASSERT_EQ(Fixture::resolveAll(batched, nullptr, values), Fixture::resolveSingly(single, nullptr, values));
        checkTables<typename Fixture::ResourceID>(saveToImage(*batched.m_dictionary));
    }
    EXPECT_GE(failures, 3u);
}

}

}
