#include "core/platform/errors/KavixException.h"
#include "platform/collections/TableFixtures.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <random>
#include <set>
#include <thread>
#include <vector>

namespace kavix {

using test::AllTableFixtures;
using test::STRESS_DIVISOR;
using test::TableFixtureNames;

/// Many threads in one table. The checks afterwards run in a thread of their own, so that all slots but those taken
/// before are free for the threads of the test.
template<typename Fixture>
class ParallelHashTableTest : public testing::Test {

protected:

    static constexpr std::array<size_t, 5> THREAD_COUNTS{1, 2, 8, 32, 256};

    static size_t limitToFreeSlots(size_t numberOfThreads) {
        return std::min(numberOfThreads, test::getNumberOfFreeSlots());
    }

    static typename Fixture::Key getKey(uint64_t index) {
        return Fixture::getKeyWithHash(index * 0x9e3779b97f4a7c15 >> 3);
    }

    /// Checks that exactly the keys 0 to n - 1 with an ID that is not 0 are in the table, under these IDs, and that no
    /// two IDs are the same.
    static void expectExactly(Fixture& fixture, const std::vector<uint64_t>& ids) {
        test::runThreads(1, [&](size_t) {
            fixture.expectConsistent();
            std::set<uint64_t> distinct;
            uint64_t numberOfLiveKeys = 0;
            for (size_t index = 0; index < ids.size(); ++index) {
                ASSERT_EQ(fixture.find(getKey(index)), ids[index]) << "key " << index;
                if (ids[index] != 0) {
                    ASSERT_TRUE(distinct.insert(ids[index]).second) << "ID " << ids[index];
                    ++numberOfLiveKeys;
                }
            }
            EXPECT_EQ(fixture.m_numberOfLiveBuckets, numberOfLiveKeys);
        });
    }
};

TYPED_TEST_SUITE(ParallelHashTableTest, AllTableFixtures, TableFixtureNames);

TYPED_TEST(ParallelHashTableTest, ThreadsThatInsertTheSameKeysAgreeOnEveryID) {
    for (const size_t wanted : this->THREAD_COUNTS) {
        const size_t numberOfThreads = this->limitToFreeSlots(wanted);
        SCOPED_TRACE(numberOfThreads);
        const size_t rounds = numberOfThreads <= 8 ? 4 : 1;
        for (size_t round = 0; round < rounds; ++round) {
            TypeParam fixture;
            const size_t numberOfKeys = 12000 / STRESS_DIVISOR;
            const size_t insertionsPerThread = std::max<size_t>(numberOfKeys / 4, 4 * numberOfKeys / numberOfThreads);
            std::atomic<uint64_t> nextID{1};
            std::vector<std::vector<uint64_t>> idsSeen(numberOfThreads, std::vector<uint64_t>(numberOfKeys));
            test::runThreads(numberOfThreads, [&](size_t threadIndex) {
                std::mt19937_64 random(threadIndex + 1000 * round);
                uint64_t position = 0; // all threads walk over the same keys, at different paces
                for (size_t insertion = 0; insertion < insertionsPerThread; ++insertion) {
                    position = (position + random() % 8) % numberOfKeys;
                    const auto key = this->getKey(position);
                    const uint64_t id = fixture.m_table.findOrInsert(key, [&](const auto&) {
                        const uint64_t newID = nextID.fetch_add(1);
                        return typename TypeParam::Table::Entry{fixture.createKeyWord(key, newID), newID};
                    });
                    ASSERT_NE(id, 0u);
                    ASSERT_TRUE(idsSeen[threadIndex][position] == 0 || idsSeen[threadIndex][position] == id);
                    idsSeen[threadIndex][position] = id;
                }
            });
            std::vector<uint64_t> ids(numberOfKeys);
            for (const std::vector<uint64_t>& seen : idsSeen)
                for (size_t index = 0; index < numberOfKeys; ++index)
                    if (seen[index] != 0) {
                        ASSERT_TRUE(ids[index] == 0 || ids[index] == seen[index]) << "two IDs of key " << index;
                        ids[index] = seen[index];
                    }
            this->expectExactly(fixture, ids);
            EXPECT_EQ(fixture.m_numberOfLiveBuckets, nextID - 1); // an ID was taken for each entry and for nothing else
            EXPECT_EQ(fixture.m_table.getDeletedCount(), 0u);
            if (testing::Test::HasFailure())
                return;
        }
    }
}

TYPED_TEST(ParallelHashTableTest, ThreadsThatInsertDifferentKeysLoseNone) {
    for (const size_t wanted : this->THREAD_COUNTS) {
        const size_t numberOfThreads = this->limitToFreeSlots(wanted);
        SCOPED_TRACE(numberOfThreads);
        TypeParam fixture;
        const size_t keysPerThread = 40000 / STRESS_DIVISOR / numberOfThreads;
        std::vector<uint64_t> ids(keysPerThread * numberOfThreads);
        test::runThreads(numberOfThreads, [&](size_t threadIndex) {
            for (size_t index = threadIndex; index < ids.size();
                 index += numberOfThreads) { // neighbours in the same buckets
                ids[index] = index + 1;
                ASSERT_EQ(fixture.insert(this->getKey(index), index + 1).m_resourceID, index + 1);
                ASSERT_EQ(fixture.find(this->getKey(index)), index + 1);
            }
        });
        this->expectExactly(fixture, ids);
        EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), ids.size());
        if (testing::Test::HasFailure())
            return;
    }
}

TYPED_TEST(ParallelHashTableTest, LookupsDuringGrowthFindAllThatWasThereAndNothingElse) {
    for (size_t round = 0; round < 3; ++round) {
        TypeParam fixture;
        const size_t numberOfKeys = 30000 / STRESS_DIVISOR;
        constexpr size_t NUMBER_OF_WRITERS = 2;
        std::atomic<size_t> inserted[NUMBER_OF_WRITERS] = {};
        test::runThreads(5, [&](size_t threadIndex) {
            if (threadIndex < NUMBER_OF_WRITERS)
                for (size_t index = threadIndex; index < numberOfKeys; index += NUMBER_OF_WRITERS) {
                    ASSERT_EQ(fixture.insert(this->getKey(index), index + 1).m_resourceID, index + 1);
                    inserted[threadIndex].store(index + 1, std::memory_order_release);
                }
            else {
                std::mt19937_64 random(threadIndex + 10 * round);
                for (bool isLast = false; !isLast;) {
                    isLast = true;
                    for (size_t writer = 0; writer < NUMBER_OF_WRITERS; ++writer) {
                        const size_t end = inserted[writer].load(std::memory_order_acquire);
                        isLast = isLast && end + NUMBER_OF_WRITERS > numberOfKeys;
                        if (end == 0)
                            continue;
                        const size_t index =
                            random() % ((end - 1 - writer) / NUMBER_OF_WRITERS + 1) * NUMBER_OF_WRITERS + writer;
                        ASSERT_EQ(fixture.find(this->getKey(index)), index + 1) << "of " << end;
                        ASSERT_EQ(fixture.find(this->getKey(numberOfKeys + random() % numberOfKeys)), 0u);
                        // A key that is being entered is absent or complete.
                        const uint64_t id = fixture.find(this->getKey(end - 1 + NUMBER_OF_WRITERS));
                        ASSERT_TRUE(id == 0 || id == end + NUMBER_OF_WRITERS);
                    }
                }
            }
        });
        std::vector<uint64_t> ids(numberOfKeys);
        for (size_t index = 0; index < numberOfKeys; ++index)
            ids[index] = index + 1;
        this->expectExactly(fixture, ids);
    }
}

TYPED_TEST(ParallelHashTableTest, OwnersDeleteWhileTheTableGrowsAndIsRebuilt) {
    for (const size_t wanted : {size_t(1), size_t(2), size_t(8), size_t(32)}) {
        const size_t numberOfThreads = this->limitToFreeSlots(wanted);
        SCOPED_TRACE(numberOfThreads);
        TypeParam fixture;
        const size_t stepsPerThread = 60000 / STRESS_DIVISOR / numberOfThreads;
        const size_t keysPerThread = 600 / numberOfThreads + 20;
        std::vector<uint64_t> ids(keysPerThread * numberOfThreads);
        std::atomic<uint64_t> nextID{1};
        test::runThreads(numberOfThreads, [&](size_t threadIndex) {
            std::mt19937_64 random(threadIndex);
            std::vector<typename TypeParam::KeyWord> keyWords(keysPerThread);
            for (size_t step = 0; step < stepsPerThread; ++step) {
                const size_t own = random() % keysPerThread;
                const size_t index = own * numberOfThreads + threadIndex;
                const auto key = this->getKey(index);
                ASSERT_EQ(fixture.find(key), ids[index]);
                if (ids[index] != 0 && random() % 8 != 0) {
                    fixture.m_table.markDeleted(key, keyWords[own]);
                    ids[index] = 0;
                    ASSERT_EQ(fixture.find(key), 0u);
                }
                else if (ids[index] == 0) {
                    const uint64_t id = nextID.fetch_add(1);
                    const auto insertion = fixture.insert(key, id);
                    ASSERT_EQ(insertion.m_resourceID, id);
                    ids[index] = id;
                    keyWords[own] = insertion.m_keyWord;
                }
            }
        });
        this->expectExactly(fixture, ids);
        if (testing::Test::HasFailure())
            return;
    }
}

TYPED_TEST(ParallelHashTableTest, EntriesThatCannotBeCreatedDisturbNoOtherThread) {
    TypeParam fixture;
    const size_t numberOfKeys = 8000 / STRESS_DIVISOR;
    std::vector<uint64_t> ids(numberOfKeys);
    std::atomic<uint64_t> nextID{1};
    test::runThreads(8, [&](size_t threadIndex) {
        std::mt19937_64 random(threadIndex);
        for (size_t index = 0; index < numberOfKeys; ++index) { // all the same keys at about the same time
            const auto key = this->getKey(index);
            for (bool isDone = false; !isDone;)
                try {
                    fixture.m_table.findOrInsert(key, [&](const auto&) {
                        if (random() % 2 == 0)
                            throw 1;
                        const uint64_t id = nextID.fetch_add(1);
                        return typename TypeParam::Table::Entry{fixture.createKeyWord(key, id), id};
                    });
                    isDone = true;
                }
                catch (const int) {
                }
        }
    });
    test::runThreads(1, [&](size_t) {
        for (size_t index = 0; index < numberOfKeys; ++index)
            ids[index] = fixture.find(this->getKey(index));
    });
    EXPECT_EQ(std::count(ids.begin(), ids.end(), 0u), 0);
    this->expectExactly(fixture, ids);
    EXPECT_EQ(nextID - 1, numberOfKeys);
}

TYPED_TEST(ParallelHashTableTest, ABudgetThatRunsOutStopsInsertionsAndLosesNothing) {
    for (const size_t wanted : {size_t(2), size_t(8), size_t(32)}) {
        const size_t numberOfThreads = this->limitToFreeSlots(wanted);
        SCOPED_TRACE(numberOfThreads);
        // Enough for 2048 and then 4096 buckets at a time, not for 4096 and 8192. All reserve 3200 at most before that.
        const uint64_t budget = uint64_t(4096 + 4096) * TypeParam::BUCKET_SIZE;
        TypeParam fixture(budget);
        const size_t numberOfKeys = 10000;
        std::vector<uint64_t> ids(numberOfKeys);
        std::atomic<size_t> failures{0};
        const auto insertAll = [&](bool mayFail) {
            test::runThreads(numberOfThreads, [&](size_t threadIndex) {
                for (size_t index = threadIndex; index < numberOfKeys; index += numberOfThreads)
                    try {
                        const uint64_t id = fixture.insert(this->getKey(index), index + 1).m_resourceID;
                        ASSERT_EQ(id, index + 1);
                        ids[index] = id;
                        ASSERT_EQ(fixture.find(this->getKey(index)), id);
                    }
                    catch (const KavixException& exception) {
                        ASSERT_TRUE(mayFail) << exception.what();
                        ++failures;
                        ASSERT_EQ(fixture.find(this->getKey(index)), ids[index]); // lookups need no memory
                        if (failures > 50 * numberOfThreads)
                            return; // seen enough
                    }
            });
        };
        insertAll(true);
        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 4096u);
        EXPECT_GT(failures, numberOfThreads);
        EXPECT_EQ(fixture.m_memoryManager.getTotalBytes(), budget);
        this->expectExactly(fixture, ids);
        const size_t inserted = numberOfKeys - static_cast<size_t>(std::count(ids.begin(), ids.end(), 0u));
        EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), inserted);

        ASSERT_TRUE(fixture.m_memoryManager.trySetTotalBytes(100 * budget));
        insertAll(false);
        EXPECT_EQ(std::count(ids.begin(), ids.end(), 0u), 0);
        this->expectExactly(fixture, ids);
        if (testing::Test::HasFailure())
            return;
    }
}

TYPED_TEST(ParallelHashTableTest, StatisticsAreReadWhileOthersInsert) {
    TypeParam fixture;
    const size_t numberOfKeys = 20000 / STRESS_DIVISOR;
    std::atomic<size_t> numberOfWritersDone{0};
    test::runThreads(3, [&](size_t threadIndex) {
        if (threadIndex < 2) {
            for (size_t index = threadIndex; index < numberOfKeys; index += 2)
                fixture.insert(this->getKey(index), index + 1);
            ++numberOfWritersDone;
        }
        else {
            size_t previousSize = 1024;
            while (numberOfWritersDone != 2) {
                const size_t numberOfBuckets = fixture.m_table.getNumberOfBuckets();
                ASSERT_GE(numberOfBuckets, previousSize);
                previousSize = numberOfBuckets;
                fixture.m_table.getNumberOfUsedBuckets(); // may be off for a moment
                fixture.m_table.getCommittedBytes();
                ASSERT_EQ(fixture.m_table.getDeletedCount(), 0u);
                std::this_thread::yield();
            }
        }
    });
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), numberOfKeys);
}

TYPED_TEST(ParallelHashTableTest, OneInsertionByEachOfAllThreadsReservesABoundedSize) {
    const size_t numberOfThreads = this->limitToFreeSlots(NUMBER_OF_THREAD_SLOTS);
    TypeParam fixture;
    std::vector<uint64_t> ids(numberOfThreads);
    test::runThreads(numberOfThreads, [&](size_t threadIndex) {
        ids[threadIndex] = fixture.insert(this->getKey(threadIndex), threadIndex + 1).m_resourceID;
    });
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), numberOfThreads);
    EXPECT_LE(fixture.m_table.getNumberOfBuckets(), 65536u);
    this->expectExactly(fixture, ids);
}

}
