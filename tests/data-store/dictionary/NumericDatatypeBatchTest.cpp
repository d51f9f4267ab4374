#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/platform/collections/ParallelHashTableBatchImpl.h"
#include "core/platform/errors/KavixException.h"
#include "support/ExpectError.h"
#include "support/NumericBatches.h"
#include "support/NumericImage.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kavix::test {

namespace {

template<typename Kit>
class NumericDatatypeBatch : public ::testing::Test { };

TYPED_TEST_SUITE(NumericDatatypeBatch, AllBatchKits, BatchKitNames);

/// The numbers 0 to n - 1 such that many come again, near and far.
std::vector<uint64_t> makeNumbersWithDuplicates(size_t n) {
    std::vector<uint64_t> numbers;
    for (size_t i = 0; i < n; ++i)
        numbers.push_back(i % 7 == 3 ? numbers[i - 1] : i % 5 == 4 ? numbers[i / 2] : i * 7919 % (n + 1));
    return numbers;
}

TYPED_TEST(NumericDatatypeBatch, GivesTheIDsAndResourcesOfOneAtATime) {
    using Kit = TypeParam;
    for (const size_t n : {0u, 1u, 2u, 47u, 48u, 49u, 1023u, 1024u, 1025u, 5000u})
        for (const bool usesContext : {false, true}) {
            SCOPED_TRACE(std::to_string(n) + (usesContext ? " with a context" : ""));
            const auto values = Kit::makeValues(makeNumbersWithDuplicates(n));
            typename Kit::Store single;
            typename Kit::Store batched;
            single.initialize();
            batched.initialize();
            DictionaryUsageContext singleContext;
            DictionaryUsageContext batchedContext;
            const std::vector<uint64_t> expected =
                Kit::resolveSingly(single, usesContext ? &singleContext : nullptr, values);
            std::vector<uint64_t> resourceIDs(n + 2, 999);
            Kit::resolveAll(batched, usesContext ? &batchedContext : nullptr, values, resourceIDs.data() + 1);
            EXPECT_EQ(resourceIDs.front(), 999u);
            EXPECT_EQ(resourceIDs.back(), 999u);
            EXPECT_EQ(std::vector<uint64_t>(resourceIDs.begin() + 1, resourceIDs.end() - 1), expected);
            Kit::expectSameResources(single, batched);
            for (size_t i = 0; i < n; ++i)
                Kit::expectPublished(batched, expected[i], values[i]);
            EXPECT_EQ(Kit::resolveSingly(batched, nullptr, values), expected);
            EXPECT_EQ(Kit::resolveAll(batched, nullptr, values), expected); // all are present now
            EXPECT_EQ(Kit::tryResolveAll(batched, values), expected);
            checkTables<typename Kit::ResourceID>(saveToImage(*batched.m_dictionary));
        }
}

TYPED_TEST(NumericDatatypeBatch, LeavesTheSameImageAsOneAtATime) {
    using Kit = TypeParam;
    for (const size_t n : {1u, 100u, 101u, 700u, 701u, 1024u, 1500u, 5000u}) {
        SCOPED_TRACE(n);
        std::vector<uint64_t> numbers;
        for (size_t i = 0; i < n; ++i)
            numbers.push_back(i * 7919 % 5003);
        const auto values = Kit::makeValues(numbers);
        typename Kit::Store single;
        typename Kit::Store batched;
        Kit::resolveSingly(single.initialize(), nullptr, values);
        Kit::resolveAll(batched.initialize(), nullptr, values);
        EXPECT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true);
        EXPECT_EQ(batched.m_memoryManager.getChargedBytes(), single.m_memoryManager.getChargedBytes());
    }
}

TYPED_TEST(NumericDatatypeBatch, FindsWhatIsThereAndReportsWhatIsNot) {
    using Kit = TypeParam;
    typename Kit::Store store;
    store.initialize();
    std::vector<uint64_t> even, all;
    for (uint64_t number = 0; number < 3000; ++number) {
        all.push_back(number);
        if (number % 2 == 0)
            even.push_back(number);
    }
    const std::vector<uint64_t> resourceIDs = Kit::resolveAll(store, nullptr, Kit::makeValues(even));
    const std::string image = saveToBytes(*store.m_dictionary);
    const std::vector<uint64_t> found = Kit::tryResolveAll(store, Kit::makeValues(all));
    for (size_t i = 0; i < all.size(); ++i)
        ASSERT_EQ(found[i], i % 2 == 0 ? resourceIDs[i / 2] : 0u) << i;
    EXPECT_EQ(saveToBytes(*store.m_dictionary) == image, true); // looking up enters nothing
}

TYPED_TEST(NumericDatatypeBatch, OnlyWhatIsBelowBothBoundsIsVisible) {
    using Kit = TypeParam;
    typename Kit::Store store;
    store.initialize();
    std::vector<uint64_t> numbers;
    for (uint64_t number = 0; number < 200; ++number)
        numbers.push_back(number);
    const auto values = Kit::makeValues(numbers);
    const std::vector<uint64_t> resourceIDs = Kit::resolveAll(store, nullptr, values);
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
        if (!Kit::IS_DECIMAL && row.visibility.second == offset)
            continue;
        SCOPED_TRACE(row.name);
        const std::vector<uint64_t> found = Kit::tryResolveAll(store, values, row.visibility);
        EXPECT_EQ(found, Kit::tryResolveSingly(store, values, row.visibility));
        const size_t visible = Kit::IS_DECIMAL ? row.visibleDecimals : row.visibleIDs;
        for (size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(found[i], i < visible ? resourceIDs[i] : 0u) << i;
    }
}

TYPED_TEST(NumericDatatypeBatch, FollowsProbeChainsOverLinesAndTheEndOfTheTable) {
    using Kit = TypeParam;
    for (const uint64_t start : {0u, 3u, 5u, 500u, 990u, 1008u, 1016u, 1020u, 1022u, 1023u}) {
        SCOPED_TRACE(start);
        std::vector<typename Kit::Value> values, strangers;
        for (uint64_t i = 0; i < 40; ++i) {
            values.push_back(Kit::makeValueWithHash(start + 1024 * i));
            strangers.push_back(Kit::makeValueWithHash(start + 1024 * (i + 100)));
        }
        typename Kit::Store single;
        typename Kit::Store batched;
        const std::vector<uint64_t> expected = Kit::resolveSingly(single.initialize(), nullptr, values);
        batched.initialize();
        std::vector<typename Kit::Value> half(values.begin(), values.begin() + 20);
        Kit::resolveAll(batched, nullptr, half);
        EXPECT_EQ(Kit::resolveAll(batched, nullptr, values), expected);
        EXPECT_EQ(Kit::tryResolveAll(batched, values), expected);
        EXPECT_EQ(Kit::tryResolveAll(batched, strangers), std::vector<uint64_t>(40, 0));
        EXPECT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true); // the same buckets
    }
}

TYPED_TEST(NumericDatatypeBatch, PassesOverDeletedBuckets) {
    using Kit = TypeParam;
    std::vector<typename Kit::Value> values;
    for (uint64_t i = 0; i < 40; ++i)
        values.push_back(Kit::makeValueWithHash(1010 + 1024 * i));
    typename Kit::Store single;
    typename Kit::Store batched;
    for (typename Kit::Store* store : {&single, &batched}) {
        store->initialize();
        const std::vector<uint64_t> resourceIDs = Kit::resolveAll(*store, nullptr, values);
        for (size_t i = 0; i < values.size(); i += 3)
            store->m_dictionary->deleteUncommittedResourceID(ALL_VISIBLE, resourceIDs[i], Kit::DATATYPE_ID);
    }
    const std::vector<uint64_t> found = Kit::tryResolveAll(batched, values);
    EXPECT_EQ(found, Kit::tryResolveSingly(single, values));
    for (size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(found[i] == 0, i % 3 == 0);
    EXPECT_EQ(
        Kit::resolveAll(batched, nullptr, values),
        Kit::resolveSingly(single, nullptr, values)); // new IDs for the deleted
    Kit::expectSameResources(single, batched);
    EXPECT_EQ(saveToImage(*batched.m_dictionary)[Kit::DATATYPE_ID].m_deletedCount, 14u); // none was used again
    checkTables<typename Kit::ResourceID>(saveToImage(*batched.m_dictionary));
}

TYPED_TEST(NumericDatatypeBatch, MayOutgrowTheTableInItsMiddle) {
    using Kit = TypeParam;
    // Before the resize every second entry is where its search ended; after it, 1024 buckets beyond. The second half of
    // the batch repeats the first, whose buckets were found empty in the old array.
    for (const size_t enteredBefore : {0u, 250u, 599u, 600u, 650u, 699u, 700u}) {
        SCOPED_TRACE(enteredBefore);
        std::vector<typename Kit::Value> before, values;
        for (uint64_t i = 0; i < enteredBefore; ++i)
            before.push_back(Kit::makeValueWithHash(i));
        for (uint64_t i = 0; i < 512; ++i)
            values.push_back(Kit::makeValueWithHash((i % 2 == 0 ? 1024 : 3072) + i + 4096 * (i % 9)));
        for (uint64_t i = 0; i < 512; ++i)
            values.push_back(values[i]);
        typename Kit::Store single;
        typename Kit::Store batched;
        Kit::resolveSingly(single.initialize(), nullptr, before);
        Kit::resolveSingly(batched.initialize(), nullptr, before);
        EXPECT_EQ(Kit::resolveAll(batched, nullptr, values), Kit::resolveSingly(single, nullptr, values));
        EXPECT_EQ(batched.m_nextResourceID.load(), 1 + enteredBefore + 512);
        EXPECT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true);
        EXPECT_GE(
            saveToImage(*batched.m_dictionary)[Kit::DATATYPE_ID].m_numberOfBuckets,
            2048u - 1024u * (enteredBefore == 0));
    }
}

TYPED_TEST(NumericDatatypeBatch, MayHaveTheTableRebuiltAtItsSizeInItsMiddle) {
    using Kit = TypeParam;
    typename Kit::Store single;
    typename Kit::Store batched;
    std::vector<typename Kit::Value> doomed, values;
    for (uint64_t i = 0; i < 600; ++i)
        doomed.push_back(Kit::makeValueWithHash(i));
    for (uint64_t i = 0; i < 400; ++i)
        values.push_back(Kit::makeValueWithHash(i / 2 + 1024 * (i + 1)));
    values.insert(values.end(), values.begin(), values.begin() + 400);
    for (typename Kit::Store* store : {&single, &batched}) {
        store->initialize();
        for (const uint64_t resourceID : Kit::resolveAll(*store, nullptr, doomed))
            store->m_dictionary->deleteUncommittedResourceID(ALL_VISIBLE, resourceID, Kit::DATATYPE_ID);
    }
    EXPECT_EQ(Kit::resolveAll(batched, nullptr, values), Kit::resolveSingly(single, nullptr, values));
    EXPECT_EQ(batched.m_nextResourceID.load(), 1001u);
    EXPECT_EQ(saveToImage(*batched.m_dictionary)[Kit::DATATYPE_ID].m_numberOfBuckets, 1024u);
    EXPECT_EQ(Kit::tryResolveAll(batched, doomed), std::vector<uint64_t>(600, 0));
    EXPECT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true);
}

TYPED_TEST(NumericDatatypeBatch, StopsWhereTheIDsEnd) {
    using Kit = TypeParam;
    for (const bool usesContext : {false, true})
        for (const uint64_t maxResourceID : {2u, 48u, 500u, 1024u, 1500u, 2048u, 2100u, 3073u, 4500u}) {
            SCOPED_TRACE(std::to_string(maxResourceID) + (usesContext ? " with a context" : ""));
            const auto values = Kit::makeValues(makeNumbersWithDuplicates(7000));
            typename Kit::Store single;
            typename Kit::Store batched;
            single.initialize(maxResourceID);
            batched.initialize(maxResourceID);
            DictionaryUsageContext singleContext;
            DictionaryUsageContext batchedContext;
            std::vector<uint64_t> expected;
            long line = usesContext ? 144 : 133;
            const auto resolveSingly = [&] {
                for (const auto& value : values)
                    expected.push_back(
                        single.resolve(Kit::toResourceValue(value), usesContext ? &singleContext : nullptr));
            };
            constexpr const char* SOURCE = "Engine/core/data-store/dictionary/DictionaryDatatype";
            constexpr const char* MESSAGE = "The capacity of Kavix for the number of resources has been exceeded.";
            if (usesContext && maxResourceID < 1024)
                continue; // the bound of blocks has wrapped
            expectError(SOURCE, line, MESSAGE, resolveSingly);
            std::vector<uint64_t> resourceIDs(values.size(), 0);
            for (int attempt = 0; attempt < 2; ++attempt) {
                expectError(SOURCE, line, MESSAGE, [&] {
                    Kit::resolveAll(batched, usesContext ? &batchedContext : nullptr, values, resourceIDs.data());
                });
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), resourceIDs.begin()));
                ASSERT_EQ(
                    Kit::tryResolveAll(batched, values),
                    Kit::tryResolveSingly(single, values)); // nothing more was entered
                Kit::expectSameResources(single, batched);
            }
            checkTables<typename Kit::ResourceID>(saveToImage(*batched.m_dictionary)); // and no bucket is busy
        }
}

TYPED_TEST(NumericDatatypeBatch, StopsWhereTheBudgetEndsAndSucceedsWithMore) {
    using Kit = TypeParam;
    // Within one batch, so that both ask for the same reservations.
    const auto values = Kit::makeValues(makeNumbersWithDuplicates(1024));
    typename Kit::Store model;
    const std::vector<uint64_t> allExpected = Kit::resolveSingly(model.initialize(), nullptr, values);
    const uint64_t needed = model.m_memoryManager.getChargedBytes();
    typename Kit::Store empty;
    const uint64_t base = empty.initialize().m_memoryManager.getChargedBytes();
    size_t failures = 0;
    for (uint64_t budget = base; budget <= needed + 40960; budget += 4096) {
        SCOPED_TRACE(budget);
        typename Kit::Store single(budget);
        typename Kit::Store batched(budget);
        single.initialize();
        batched.initialize();
        std::vector<uint64_t> expected;
        std::string message;
        try {
            for (const auto& value : values)
                expected.push_back(single.resolve(Kit::toResourceValue(value)));
        }
        catch (const KavixException& exception) {
            message = exception.what();
            ++failures;
        }
        std::vector<uint64_t> resourceIDs(values.size(), 0);
        std::string batchMessage;
        try {
            Kit::resolveAll(batched, nullptr, values, resourceIDs.data());
        }
        catch (const KavixException& exception) {
            batchMessage = exception.what();
        }
        ASSERT_EQ(batchMessage, message);
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), resourceIDs.begin()));
        ASSERT_EQ(Kit::tryResolveAll(batched, values), Kit::tryResolveSingly(single, values));
        ASSERT_EQ(batched.m_memoryManager.getChargedBytes(), single.m_memoryManager.getChargedBytes());
        ASSERT_EQ(saveToBytes(*batched.m_dictionary) == saveToBytes(*single.m_dictionary), true);
        ASSERT_TRUE(batched.m_memoryManager.trySetTotalBytes(uint64_t(1) << 30));
        ASSERT_TRUE(single.m_memoryManager.trySetTotalBytes(uint64_t(1) << 30));
        ASSERT_EQ(Kit::resolveAll(batched, nullptr, values), Kit::resolveSingly(single, nullptr, values));
        checkTables<typename Kit::ResourceID>(saveToImage(*batched.m_dictionary));
    }
    EXPECT_GE(failures, 3u);
}

template<typename Kit>
class ParallelHashTableBatch : public TableTest<Kit> {

protected:

    /// findOrInsertAll() with IDs from 1 on in the order of creation; beforeCreation(i) runs while the bucket of key i
    /// is claimed.
    template<typename BeforeCreation>
    static std::vector<uint64_t> insertAll(
        Kit& kit, const std::vector<typename Kit::Key>& keys, BeforeCreation beforeCreation) {
        std::vector<uint64_t> resourceIDs(keys.size(), 999);
        uint64_t nextResourceID = 1;
        kit.m_table.findOrInsertAll(
            std::span<const typename Kit::Key>(keys), resourceIDs.data(), [&](const typename Kit::Key&, size_t index) {
                beforeCreation(index);
                const uint64_t resourceID = nextResourceID++;
                return typename Kit::Table::Entry{kit.createKeyWord(keys[index], resourceID), resourceID};
            });
        return resourceIDs;
    }

    static void runInAnotherThread(const std::function<void()>& action) {
        std::thread([&] {
            ThreadSlots::ensureSlot();
            action();
        }).join();
    }
};

TYPED_TEST_SUITE(ParallelHashTableBatch, AllTableKits, TableKitNames);

TYPED_TEST(ParallelHashTableBatch, FindsWhatAnotherThreadEnteredSinceItLooked) {
    // Ten keys of one chain after another key; when that one is entered, another thread enters the odd ones in reverse
    // order.
    using Kit = TypeParam;
    for (const uint64_t start : {100u, 1021u}) {
        Kit kit;
        std::vector<typename Kit::Key> keys{Kit::getKeyWithHash(500)};
        for (uint64_t i = 0; i < 10; ++i)
            keys.push_back(Kit::getKeyWithHash(start + 1024 * i));
        const std::vector<uint64_t> resourceIDs = this->insertAll(kit, keys, [&](size_t index) {
            if (index == 0)
                this->runInAnotherThread([&] {
                    for (size_t i = keys.size(); i-- > 1;)
                        if (i % 2 == 1)
                            kit.insert(keys[i], 1000 + i);
                });
        });
        EXPECT_EQ(resourceIDs, (std::vector<uint64_t>{1, 1001, 2, 1003, 3, 1005, 4, 1007, 5, 1009, 6}));
        for (size_t i = 0; i < keys.size(); ++i)
            EXPECT_EQ(kit.find(keys[i]), resourceIDs[i]);
        kit.expectConsistent();
        EXPECT_EQ(kit.m_numberOfLiveBuckets, keys.size());
    }
}

TYPED_TEST(ParallelHashTableBatch, FindsWhatAnotherThreadEnteredAndDeletedAndEnteredAgain) {
    using Kit = TypeParam;
    Kit kit;
    const std::vector<typename Kit::Key> keys{
        Kit::getKeyWithHash(500), Kit::getKeyWithHash(100), Kit::getKeyWithHash(1124)};
    const std::vector<uint64_t> resourceIDs = this->insertAll(kit, keys, [&](size_t index) {
        if (index == 0)
            this->runInAnotherThread([&] {
                kit.m_table.markDeleted(keys[1], kit.insert(keys[1], 1000).m_keyWord);
                kit.insert(keys[2], 1001);
                kit.insert(keys[1], 1002);
            });
    });
    EXPECT_EQ(resourceIDs, (std::vector<uint64_t>{1, 1002, 1001}));
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 3u);
}

TYPED_TEST(ParallelHashTableBatch, JoinsAResizeThatAnotherThreadStartsAndSearchesFromTheBeginning) {
    // Another thread outgrows the table while the batch is inside; the batch lets it when its reservation is spent.
    // What that thread entered, and what the batch entered itself, has moved away from the buckets that were found
    // empty.
    using Kit = TypeParam;
    Kit kit;
    std::vector<typename Kit::Key> keys;
    for (uint64_t i = 0; i < 300; ++i)
        keys.push_back(Kit::getKeyWithHash(i % 2 == 0 ? 1024 + i : i));
    for (uint64_t i = 0; i < 300; ++i)
        keys.push_back(keys[299 - i]);
    std::thread other;
    const std::vector<uint64_t> resourceIDs = this->insertAll(kit, keys, [&](size_t index) {
        if (index != 50)
            return;
        std::atomic<bool> hasFilledTable{false};
        other = std::thread([&] {
            ThreadSlots::ensureSlot();
            for (uint64_t i = 0; i < 100; ++i)
                kit.insert(keys[599 - (200 + i)], 1000 + i);
            for (uint64_t i = 0; i < 500; ++i)
                kit.insert(Kit::getKeyWithHash(1024 * 7 + 400 + i), 2000 + i);
            hasFilledTable.store(true); // six reservations, and one of the batch: the next one of either is too many
            for (uint64_t i = 0; i < 100; ++i)
                kit.insert(Kit::getKeyWithHash(1024 * 9 + 900 + i), 3000 + i);
        });
        waitUntil([&] { return hasFilledTable.load(); });
        letOthersRun(); // it may or may not be the leader by now; either way one resize happens in this batch
    });
    other.join();
    for (size_t i = 0; i < keys.size(); ++i)
        ASSERT_EQ(resourceIDs[i], resourceIDs[599 - i]) << i;
    for (size_t i = 200; i < 300; ++i)
        ASSERT_EQ(resourceIDs[i], 800 + i);
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 300u + 600u);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u);
}

TYPED_TEST(ParallelHashTableBatch, AnExceptionInTheMiddleLeavesTheBucketEmptyAndTheRestOut) {
    using Kit = TypeParam;
    std::vector<typename Kit::Key> keys;
    for (uint64_t i = 0; i < 1100; ++i)
        keys.push_back(Kit::getKeyWithHash(i / 4 * 7 + 8192 * (i % 4)));
    for (const size_t failing : {0u, 1u, 47u, 48u, 99u, 100u, 699u, 700u, 1023u, 1024u, 1099u}) {
        SCOPED_TRACE(failing);
        Kit kit;
        EXPECT_THROW(
            this->insertAll(
                kit, keys,
                [&](size_t index) {
                    if (index == failing)
                        throw std::runtime_error("no");
                }),
            std::runtime_error);
        for (size_t i = 0; i < keys.size(); ++i)
            ASSERT_EQ(kit.find(keys[i]), i < failing ? i + 1 : 0);
        kit.expectConsistent();
        EXPECT_EQ(kit.m_numberOfLiveBuckets, failing);
        const uint64_t reserved = kit.m_table.getNumberOfReservedBuckets();
        EXPECT_GE(reserved, 1u); // the one for the key that failed is kept
        EXPECT_LE(reserved, 100u);
        std::vector<uint64_t> created;
        this->insertAll(kit, keys, [&](size_t index) { created.push_back(index); });
        ASSERT_EQ(created.size(), keys.size() - failing); // the same batch succeeds
        kit.expectConsistent();
        EXPECT_EQ(kit.m_numberOfLiveBuckets, keys.size());
    }
}

}

}
