#include "core/platform/collections/ParallelHashTableBatchImpl.h"

#include "platform/collections/TableFixtures.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <thread>
#include <vector>

namespace kavix::test {

namespace {

template<typename Fixture>
class ParallelHashTableBatchTest : public TableTest<Fixture> {

protected:

    /// findOrInsertAll() with IDs from 1 on in the order of creation; beforeCreation(i) runs while the bucket of key i
    /// is claimed.
    template<typename BeforeCreation>
    static std::vector<uint64_t> insertAll(
        Fixture& fixture, const std::vector<typename Fixture::Key>& keys, BeforeCreation beforeCreation) {
        std::vector<uint64_t> resourceIDs(keys.size(), 999);
        uint64_t nextResourceID = 1;
        fixture.m_table.findOrInsertAll(
            std::span<const typename Fixture::Key>(keys), resourceIDs.data(),
            [&](const typename Fixture::Key&, size_t index) {
                beforeCreation(index);
                const uint64_t resourceID = nextResourceID++;
                return typename Fixture::Table::Entry{fixture.createKeyWord(keys[index], resourceID), resourceID};
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

TYPED_TEST_SUITE(ParallelHashTableBatchTest, AllTableFixtures, TableFixtureNames);

TYPED_TEST(ParallelHashTableBatchTest, FindsWhatAnotherThreadEnteredSinceItLooked) {
    // Ten keys of one chain after another key; when that one is entered, another thread enters the odd ones in reverse
    // order.
    using Fixture = TypeParam;
    for (const uint64_t start : {100u, 1021u}) {
        Fixture fixture;
        std::vector<typename Fixture::Key> keys{Fixture::getKeyWithHash(500)};
        for (uint64_t i = 0; i < 10; ++i)
            keys.push_back(Fixture::getKeyWithHash(start + 1024 * i));
        const std::vector<uint64_t> resourceIDs = this->insertAll(fixture, keys, [&](size_t index) {
            if (index == 0)
                this->runInAnotherThread([&] {
                    for (size_t i = keys.size(); i-- > 1;)
                        if (i % 2 == 1)
                            fixture.insert(keys[i], 1000 + i);
                });
        });
        EXPECT_EQ(resourceIDs, (std::vector<uint64_t>{1, 1001, 2, 1003, 3, 1005, 4, 1007, 5, 1009, 6}));
        for (size_t i = 0; i < keys.size(); ++i)
            EXPECT_EQ(fixture.find(keys[i]), resourceIDs[i]);
        fixture.expectConsistent();
        EXPECT_EQ(fixture.m_numberOfLiveBuckets, keys.size());
    }
}

TYPED_TEST(ParallelHashTableBatchTest, FindsWhatAnotherThreadEnteredAndDeletedAndEnteredAgain) {
    using Fixture = TypeParam;
    Fixture fixture;
    const std::vector<typename Fixture::Key> keys{
        Fixture::getKeyWithHash(500), Fixture::getKeyWithHash(100), Fixture::getKeyWithHash(1124)};
    const std::vector<uint64_t> resourceIDs = this->insertAll(fixture, keys, [&](size_t index) {
        if (index == 0)
            this->runInAnotherThread([&] {
                fixture.m_table.markDeleted(keys[1], fixture.insert(keys[1], 1000).m_keyWord);
                fixture.insert(keys[2], 1001);
                fixture.insert(keys[1], 1002);
            });
    });
    EXPECT_EQ(resourceIDs, (std::vector<uint64_t>{1, 1002, 1001}));
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 3u);
}

TYPED_TEST(ParallelHashTableBatchTest, JoinsAResizeThatAnotherThreadStartsAndSearchesFromTheBeginning) {
    // Another thread outgrows the table while the batch is inside; the batch lets it when its reservation is spent.
    // What that thread entered, and what the batch entered itself, has moved away from the buckets that were found
    // empty.
    using Fixture = TypeParam;
    Fixture fixture;
    std::vector<typename Fixture::Key> keys;
    for (uint64_t i = 0; i < 300; ++i)
        keys.push_back(Fixture::getKeyWithHash(i % 2 == 0 ? 1024 + i : i));
    for (uint64_t i = 0; i < 300; ++i)
        keys.push_back(keys[299 - i]);
    std::thread other;
    const std::vector<uint64_t> resourceIDs = this->insertAll(fixture, keys, [&](size_t index) {
        if (index != 50)
            return;
        std::atomic<bool> hasFilledTable{false};
        other = std::thread([&] {
            ThreadSlots::ensureSlot();
            for (uint64_t i = 0; i < 100; ++i)
                fixture.insert(keys[599 - (200 + i)], 1000 + i);
            for (uint64_t i = 0; i < 500; ++i)
                fixture.insert(Fixture::getKeyWithHash(1024 * 7 + 400 + i), 2000 + i);
            hasFilledTable.store(true); // six reservations, and one of the batch: the next one of either is too many
            for (uint64_t i = 0; i < 100; ++i)
                fixture.insert(Fixture::getKeyWithHash(1024 * 9 + 900 + i), 3000 + i);
        });
        waitUntil([&] { return hasFilledTable.load(); });
        letOthersRun(); // it may or may not be the leader by now; either way one resize happens in this batch
    });
    other.join();
    for (size_t i = 0; i < keys.size(); ++i)
        ASSERT_EQ(resourceIDs[i], resourceIDs[599 - i]) << i;
    for (size_t i = 200; i < 300; ++i)
        ASSERT_EQ(resourceIDs[i], 800 + i);
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 300u + 600u);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u);
}

TYPED_TEST(ParallelHashTableBatchTest, AnExceptionInTheMiddleLeavesTheBucketEmptyAndTheRestOut) {
    using Fixture = TypeParam;
    std::vector<typename Fixture::Key> keys;
    for (uint64_t i = 0; i < 1100; ++i)
        keys.push_back(Fixture::getKeyWithHash(i / 4 * 7 + 8192 * (i % 4)));
    for (const size_t failing : {0u, 1u, 47u, 48u, 99u, 100u, 699u, 700u, 1023u, 1024u, 1099u}) {
        SCOPED_TRACE(failing);
        Fixture fixture;
        EXPECT_THROW(
            this->insertAll(
                fixture, keys,
                [&](size_t index) {
                    if (index == failing)
                        throw std::runtime_error("no");
                }),
            std::runtime_error);
        for (size_t i = 0; i < keys.size(); ++i)
            ASSERT_EQ(fixture.find(keys[i]), i < failing ? i + 1 : 0);
        fixture.expectConsistent();
        EXPECT_EQ(fixture.m_numberOfLiveBuckets, failing);
        const uint64_t reserved = fixture.m_table.getNumberOfReservedBuckets();
        EXPECT_GE(reserved, 1u); // the one for the key that failed is kept
        EXPECT_LE(reserved, 100u);
        std::vector<uint64_t> created;
        this->insertAll(fixture, keys, [&](size_t index) { created.push_back(index); });
        ASSERT_EQ(created.size(), keys.size() - failing); // the same batch succeeds
        fixture.expectConsistent();
        EXPECT_EQ(fixture.m_numberOfLiveBuckets, keys.size());
    }
}

}

}
