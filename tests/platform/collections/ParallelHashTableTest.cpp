#include "platform/collections/TableFixtures.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

namespace kavix {

using test::AllTableFixtures;
using test::TableFixture;
using test::TableFixtureNames;

template<typename Fixture>
class ParallelHashTableTest : public test::TableTest<Fixture> { };

TYPED_TEST_SUITE(ParallelHashTableTest, AllTableFixtures, TableFixtureNames);

TYPED_TEST(ParallelHashTableTest, StartsEmpty) {
    TypeParam fixture;
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(fixture.m_table.getResizeThreshold(), 716u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 0u);
    for (uint64_t hash = 0; hash < 2048; ++hash)
        ASSERT_EQ(fixture.find(fixture.getKeyWithHash(hash)), 0u);
}

TYPED_TEST(ParallelHashTableTest, HasNoBucketsBeforeItIsInitialised) {
    TypeParam fixture;
    typename TypeParam::Table table(fixture.m_memoryManager, fixture.getPolicy());
    EXPECT_EQ(table.getNumberOfBuckets(), 0u);
    EXPECT_EQ(table.getCommittedBytes(), 0u);
    EXPECT_EQ(table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(table.getDeletedCount(), 0u);
    EXPECT_EQ(table.getResizeThreshold(), 0u);
}

TYPED_TEST(ParallelHashTableTest, FindsWhatWasInsertedAndInsertsItOnce) {
    TypeParam fixture;
    const auto first = fixture.getKeyWithHash(17);
    EXPECT_EQ(fixture.insert(first, 5).m_resourceID, 5u);
    EXPECT_EQ(fixture.find(first), 5u);
    const auto again = fixture.insert(first, 6);
    EXPECT_EQ(again.m_resourceID, 5u);
    EXPECT_EQ(again.m_keyWord, 0u); // no second entry was created
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 1u);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(18)), 0u);
    fixture.expectConsistent();
}

TYPED_TEST(ParallelHashTableTest, AProbeStartsAtTheLowBitsOfTheHash) {
    TypeParam fixture;
    fixture.insert(fixture.getKeyWithHash(0xfedcba9876543000 | 0x2a7), 5);
    EXPECT_NE(fixture.getKeyWordAt(0x2a7), 0u);
}

TYPED_TEST(ParallelHashTableTest, ProbesOnThroughACollisionAndAroundTheEnd) {
    TypeParam fixture;
    // Six keys start at the last bucket but one; they fill it, the last one, and the first four.
    for (uint64_t id = 1; id <= 6; ++id)
        fixture.insert(fixture.getKeyWithHash(1022 + 1024 * id), id);
    for (const size_t index : {size_t(1022), size_t(1023), size_t(0), size_t(1), size_t(2), size_t(3)})
        EXPECT_NE(fixture.getKeyWordAt(index), 0u) << index;
    EXPECT_EQ(fixture.getKeyWordAt(4), 0u);
    EXPECT_EQ(fixture.getKeyWordAt(1021), 0u);
    for (uint64_t id = 1; id <= 6; ++id)
        EXPECT_EQ(fixture.find(fixture.getKeyWithHash(1022 + 1024 * id)), id);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(1022)), 0u);
    fixture.expectConsistent();
}

TYPED_TEST(ParallelHashTableTest, PassesOverADeletedBucketAndDoesNotReuseIt) {
    TypeParam fixture;
    const auto first = fixture.getKeyWithHash(8);
    const auto second = fixture.getKeyWithHash(8 + 1024);
    const auto third = fixture.getKeyWithHash(8 + 2048);
    const auto insertion = fixture.insert(first, 1);
    fixture.insert(second, 2);

    fixture.m_table.markDeleted(first, insertion.m_keyWord);

    EXPECT_EQ(fixture.find(first), 0u);
    EXPECT_EQ(fixture.find(second), 2u);
    EXPECT_EQ(fixture.m_table.getDeletedCount(), 1u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 2u);
    EXPECT_EQ(fixture.getKeyWordAt(8), TypeParam::Table::DELETED);
    fixture.insert(third, 3);
    fixture.insert(first, 4); // entered again
    EXPECT_EQ(fixture.getKeyWordAt(8), TypeParam::Table::DELETED);
    EXPECT_EQ(fixture.find(first), 4u);
    EXPECT_EQ(fixture.find(second), 2u);
    EXPECT_EQ(fixture.find(third), 3u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 4u);
    fixture.expectConsistent();
}

TYPED_TEST(ParallelHashTableTest, DeletesNothingUnlessTheKeyWordMatches) {
    TypeParam fixture;
    const auto key = fixture.getKeyWithHash(8);
    const auto insertion = fixture.insert(key, 1);
    fixture.m_table.markDeleted(key, static_cast<typename TypeParam::KeyWord>(insertion.m_keyWord + 1));
    fixture.m_table.markDeleted(fixture.getKeyWithHash(500), insertion.m_keyWord);
    EXPECT_EQ(fixture.find(key), 1u);
    EXPECT_EQ(fixture.m_table.getDeletedCount(), 0u);
    fixture.m_table.markDeleted(key, insertion.m_keyWord);
    fixture.m_table.markDeleted(key, insertion.m_keyWord); // it is gone already
    EXPECT_EQ(fixture.m_table.getDeletedCount(), 1u);
    fixture.expectConsistent();
}

TYPED_TEST(ParallelHashTableTest, PassesOverEntriesThatAreNotVisible) {
    TypeParam fixture;
    const auto first = fixture.getKeyWithHash(8);
    const auto second = fixture.getKeyWithHash(8 + 1024);
    const auto hidden = fixture.insert(first, 1);
    const auto shown = fixture.insert(second, 2);
    const auto isVisible = [&](typename TypeParam::KeyWord keyWord) {
        EXPECT_TRUE(keyWord == hidden.m_keyWord || keyWord == shown.m_keyWord); // never asked about a marker
        return keyWord == shown.m_keyWord;
    };
    EXPECT_EQ(fixture.m_table.find(first, isVisible), 0u);
    EXPECT_EQ(fixture.m_table.find(second, isVisible), 2u);
    fixture.m_table.markDeleted(first, hidden.m_keyWord);
    EXPECT_EQ(fixture.m_table.find(second, isVisible), 2u);
}

TYPED_TEST(ParallelHashTableTest, ReservesBucketsInBatchesOfOneHundred) {
    TypeParam fixture;
    const auto getImageOf = [&](uint64_t id) {
        fixture.insert(fixture.getKeyWithHash(id), id);
        return fixture.m_table.getNumberOfUsedBuckets();
    };
    for (uint64_t id = 1; id <= 250; ++id)
        ASSERT_EQ(getImageOf(id), id); // the reservations are not counted
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
}

TYPED_TEST(ParallelHashTableTest, GrowsWhenTheNextBatchWouldPassTheThreshold) {
    TypeParam fixture;
    for (uint64_t id = 1; id <= 700; ++id)
        fixture.insert(fixture.getKeyWithHash(id * 0x123456789), id);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u); // seven batches are below 716, eight are not
    fixture.expectConsistent();
    fixture.insert(fixture.getKeyWithHash(701 * 0x123456789), 701);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u);
    EXPECT_EQ(fixture.m_table.getResizeThreshold(), 1433u);
    for (uint64_t id = 1; id <= 701; ++id)
        ASSERT_EQ(fixture.find(fixture.getKeyWithHash(id * 0x123456789)), id);
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 701u);
}

TYPED_TEST(ParallelHashTableTest, ABatchMayReachTheThresholdExactly) {
    for (const uint64_t used : {uint64_t(616), uint64_t(617)}) {
        SCOPED_TRACE(used);
        TypeParam fixture;
        for (uint64_t id = 1; id <= used; ++id)
            fixture.insert(fixture.getKeyWithHash(id), id);
        fixture.m_table.shrinkToFit(1024); // folds the reservations, so the used count is exact
        fixture.insert(fixture.getKeyWithHash(900), 900);
        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), used == 616 ? 1024u : 2048u);
        fixture.expectConsistent();
    }
}

TYPED_TEST(ParallelHashTableTest, AValueThatIsPresentMayNeedAReservationAndGrowTheTable) {
    TypeParam fixture;
    for (uint64_t id = 1; id <= 700; ++id)
        fixture.insert(fixture.getKeyWithHash(id), id);
    EXPECT_EQ(fixture.insert(fixture.getKeyWithHash(1), 999).m_resourceID, 1u);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 700u);
}

TYPED_TEST(ParallelHashTableTest, AnEntryThatCannotBeCreatedLeavesItsBucketEmptyAndTheReservationWhole) {
    TypeParam fixture;
    using Entry = typename TypeParam::Table::Entry;
    const auto key = fixture.getKeyWithHash(33);
    int calls = 0;
    const auto failWith = [&](auto exception) {
        return [&calls, exception](const auto&) -> Entry {
            ++calls;
            throw exception;
        };
    };
    EXPECT_THROW(fixture.m_table.findOrInsert(key, failWith(std::runtime_error("no record"))), std::runtime_error);
    EXPECT_THROW(fixture.m_table.findOrInsert(key, failWith(42)), int); // no matter what its type is
    EXPECT_EQ(fixture.getKeyWordAt(33), 0u);
    EXPECT_EQ(fixture.find(key), 0u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 0u);
    for (uint64_t id = 1; id <= 700; ++id) {
        EXPECT_THROW(
            fixture.m_table.findOrInsert(fixture.getKeyWithHash(id), failWith(std::bad_alloc())), std::bad_alloc);
        fixture.insert(fixture.getKeyWithHash(id), id);
    }
    EXPECT_EQ(calls, 702);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u); // the failures cost no reservation
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 700u);
}

TYPED_TEST(ParallelHashTableTest, TheLoserOfARaceForAKeyGetsTheIDOfTheWinner) {
    TypeParam fixture;
    const auto key = fixture.getKeyWithHash(77);
    std::atomic<bool> isClaimed{false};
    std::atomic<size_t> numberDone{0};
    test::runThreads(4, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            const uint64_t id = fixture.m_table.findOrInsert(key, [&](const auto&) {
                isClaimed = true;
                test::letOthersRun();
                EXPECT_EQ(numberDone, 0u); // they wait for this bucket
                return typename TypeParam::Table::Entry{fixture.createKeyWord(key, 5), 5};
            });
            EXPECT_EQ(id, 5u);
            return;
        }
        test::waitUntil([&] { return isClaimed.load(); });
        if (threadIndex == 1)
            EXPECT_EQ(fixture.find(key), 5u);
        else
            EXPECT_EQ(fixture.insert(key, 10 + threadIndex).m_resourceID, 5u);
        ++numberDone;
    });
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 1u);
}

TYPED_TEST(ParallelHashTableTest, AThreadThatWaitedForABucketRespectsVisibility) {
    TypeParam fixture;
    const auto key = fixture.getKeyWithHash(77);
    std::atomic<bool> isClaimed{false};
    std::atomic<size_t> numberDone{0};
    const auto isVisible = [](typename TypeParam::KeyWord) { return true; };
    const auto isInvisible = [](typename TypeParam::KeyWord) { return false; };
    test::runThreads(4, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            fixture.m_table.findOrInsert(key, [&](const auto&) {
                isClaimed = true;
                test::letOthersRun();
                EXPECT_EQ(numberDone, 0u); // they wait for this bucket
                return typename TypeParam::Table::Entry{fixture.createKeyWord(key, 5), 5};
            });
            return;
        }
        test::waitUntil([&] { return isClaimed.load(); });
        if (threadIndex == 1)
            EXPECT_EQ(fixture.m_table.find(key, isInvisible), 0u);
        else if (threadIndex == 2)
            EXPECT_EQ(fixture.m_table.find(key, isVisible, 5), 0u);
        else
            EXPECT_EQ(fixture.m_table.find(key, isVisible, 6), 5u);
        ++numberDone;
    });
    EXPECT_EQ(fixture.m_table.find(key, isInvisible), 0u);
    EXPECT_EQ(fixture.m_table.find(key, isVisible, 5), 0u);
    EXPECT_EQ(fixture.m_table.find(key, isVisible, 6), 5u);
}

TYPED_TEST(ParallelHashTableTest, AClaimGivenUpIsTakenByOneThatWaitedForIt) {
    TypeParam fixture;
    const auto key = fixture.getKeyWithHash(77);
    std::atomic<bool> isClaimed{false};
    std::vector<uint64_t> ids(4);
    test::runThreads(4, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            EXPECT_THROW(
                fixture.m_table.findOrInsert(
                    key,
                    [&](const auto&) -> typename TypeParam::Table::Entry {
                        isClaimed = true;
                        test::letOthersRun();
                        throw std::bad_alloc();
                    }),
                std::bad_alloc);
            return;
        }
        test::waitUntil([&] { return isClaimed.load(); });
        ids[threadIndex] = fixture.insert(key, 10 + threadIndex).m_resourceID;
    });
    EXPECT_TRUE(ids[1] >= 11 && ids[1] <= 13);
    EXPECT_EQ(ids[2], ids[1]);
    EXPECT_EQ(ids[3], ids[1]);
    EXPECT_EQ(fixture.find(key), ids[1]);
    fixture.expectConsistent();
}

TYPED_TEST(ParallelHashTableTest, AResizeWaitsForAnEntryThatIsBeingCreated) {
    TypeParam fixture;
    for (uint64_t id = 1; id <= 600; ++id)
        fixture.insert(fixture.getKeyWithHash(id), id);
    const auto slowKey = fixture.getKeyWithHash(800);
    std::atomic<bool> isClaimed{false};
    std::atomic<bool> isGrown{false};
    test::runThreads(2, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            fixture.m_table.findOrInsert(slowKey, [&](const auto&) {
                isClaimed = true;
                test::letOthersRun();
                EXPECT_FALSE(isGrown);
                EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
                return typename TypeParam::Table::Entry{fixture.createKeyWord(slowKey, 800), 800};
            });
        }
        else {
            test::waitUntil([&] { return isClaimed.load(); });
            fixture.insert(
                fixture.getKeyWithHash(801), 801); // both threads have reserved; this one finds the threshold passed
            isGrown = true;
        }
    });
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u);
    EXPECT_EQ(fixture.find(slowKey), 800u);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(801)), 801u);
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 602u);
}

TYPED_TEST(ParallelHashTableTest, AnOperationRunsInsideAfterAnyResize) {
    TypeParam fixture;
    fixture.insert(fixture.getKeyWithHash(1), 1);
    bool wasRun = false;
    fixture.m_table.runInside([&] {
        wasRun = true;
        fixture.m_table.clear();
    });
    EXPECT_TRUE(wasRun);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(1)), 0u);
    EXPECT_THROW(fixture.m_table.runInside([] { throw std::runtime_error("inside"); }), std::runtime_error);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(1)), 0u); // the slot was left
}

/// The keys in buckets are not key words, so no key is a marker.
template<typename R>
class ParallelHashTableMarkerTest : public test::TableTest<R> { };

using ResourceIDTypes = testing::Types<unsigned int, unsigned long>;
TYPED_TEST_SUITE(ParallelHashTableMarkerTest, ResourceIDTypes);

TYPED_TEST(ParallelHashTableMarkerTest, StoresEveryKeyThatLooksLikeAMarker) {
    TableFixture<test::EntriesInBuckets<TypeParam>> fixture;
    const int64_t values[] = {0,
                              -1,
                              -2,
                              1,
                              std::numeric_limits<int64_t>::min(),
                              std::numeric_limits<int64_t>::max(),
                              0xffffffff,
                              0xfffffffe,
                              -0x100000000};
    uint64_t id = 0;
    for (const int64_t value : values)
        EXPECT_EQ(fixture.find(value), 0u) << value;
    for (const int64_t value : values)
        EXPECT_EQ(fixture.insert(value, ++id).m_resourceID, id) << value;
    for (int64_t filler = 1000; filler < 3000; ++filler) // moves them to larger arrays
        fixture.insert(filler, static_cast<uint64_t>(filler));
    id = 0;
    for (const int64_t value : values)
        EXPECT_EQ(fixture.find(value), ++id) << value;
    fixture.expectConsistent();
}

TYPED_TEST(ParallelHashTableMarkerTest, StoresTheLargestIDThatIsNotAMarker) {
    TableFixture<test::EntriesInBuckets<TypeParam>> fixture;
    constexpr uint64_t LARGEST_ID = std::numeric_limits<TypeParam>::max() - 2;
    fixture.insert(7, LARGEST_ID);
    EXPECT_EQ(fixture.find(7), LARGEST_ID);
    EXPECT_EQ(fixture.insert(7, 1).m_resourceID, LARGEST_ID);
    fixture.expectConsistent();
}

}
