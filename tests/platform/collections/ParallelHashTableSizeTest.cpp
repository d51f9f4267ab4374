#include "core/platform/errors/KavixException.h"
#include "platform/collections/TableFixtures.h"
#include "support/ExpectError.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace kavix {

using test::AllTableFixtures;
using test::TableFixtureNames;

/// How the table changes its size and its content as a whole: growing, rebuilding, clearing, shrinking.
template<typename Fixture>
class ParallelHashTableSizeTest : public test::TableTest<Fixture> { };

TYPED_TEST_SUITE(ParallelHashTableSizeTest, AllTableFixtures, TableFixtureNames);

namespace {

/// Keys that spread over the table.
uint64_t getSpreadHash(uint64_t index) {
    return index * 0x9e3779b97f4a7c15 >> 7;
}

template<typename Fixture>
void insertSpread(Fixture& fixture, uint64_t first, uint64_t last) {
    for (uint64_t index = first; index <= last; ++index)
        ASSERT_EQ(fixture.insert(fixture.getKeyWithHash(getSpreadHash(index)), index).m_resourceID, index);
}

template<typename Fixture>
void expectExactlySpread(Fixture& fixture, uint64_t first, uint64_t last) {
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, last - first + 1);
    for (uint64_t index = first; index <= last; ++index)
        ASSERT_EQ(fixture.find(fixture.getKeyWithHash(getSpreadHash(index))), index);
    ASSERT_EQ(fixture.find(fixture.getKeyWithHash(getSpreadHash(last + 1))), 0u);
}

template<typename Fixture>
std::string getImage(Fixture& fixture) {
    return std::string(
        reinterpret_cast<const char*>(fixture.m_table.getBuckets()),
        fixture.m_table.getNumberOfBuckets() * Fixture::BUCKET_SIZE);
}

}

TYPED_TEST(ParallelHashTableSizeTest, KeepsEveryEntryThroughManyDoublings) {
    TypeParam fixture;
    insertSpread(fixture, 1, 30000);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 65536u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 30000u);
    expectExactlySpread(fixture, 1, 30000);
}

TYPED_TEST(ParallelHashTableSizeTest, CanStartLarge) {
    TypeParam fixture;
    fixture.m_table.initialize(8192);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 8192u);
    EXPECT_EQ(fixture.m_table.getResizeThreshold(), 5734u);
    insertSpread(fixture, 1, 5700);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 8192u);
    expectExactlySpread(fixture, 1, 5700);
}

TYPED_TEST(ParallelHashTableSizeTest, InitialisingAgainForgetsEverything) {
    TypeParam fixture;
    insertSpread(fixture, 1, 3000);
    fixture.m_table.initialize(1024);
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(fixture.m_table.getDeletedCount(), 0u);
    insertSpread(fixture, 1, 700);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u); // old reservations would have hidden the count
    expectExactlySpread(fixture, 1, 700);
}

TYPED_TEST(ParallelHashTableSizeTest, InitialisingBeyondTheBudgetLeavesNoBuckets) {
    const size_t bytes = 1024 * TypeParam::BUCKET_SIZE;
    TypeParam fixture(bytes);
    test::expectOutOfMemory(bytes, bytes, 2 * bytes, [&] { fixture.m_table.initialize(2048); });
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 0u);
    EXPECT_EQ(fixture.m_table.getCommittedBytes(), 0u);
    EXPECT_EQ(fixture.m_memoryManager.getChargedBytes(), 0u);
    fixture.m_table.initialize(1024);
    insertSpread(fixture, 1, 500);
    expectExactlySpread(fixture, 1, 500);
}

TYPED_TEST(ParallelHashTableSizeTest, WhereMoreThanHalfIsDeletedItIsRebuiltAtItsSize) {
    struct Row {
        const char* name;
        uint64_t numberDeleted;
        size_t numberOfBuckets;
    };
    const Row rows[] = {
        {"half of the buckets", 512, 2048}, {"one more than half", 513, 1024}, {"every entry", 700, 1024}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TypeParam fixture;
        for (uint64_t index = 1; index <= 700; ++index) {
            const auto key = fixture.getKeyWithHash(getSpreadHash(index));
            const auto insertion = fixture.insert(key, index);
            if (index <= row.numberDeleted)
                fixture.m_table.markDeleted(key, insertion.m_keyWord);
        }
        EXPECT_EQ(fixture.m_table.getDeletedCount(), row.numberDeleted);
        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);

        fixture.insert(fixture.getKeyWithHash(getSpreadHash(701)), 701);

        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), row.numberOfBuckets);
        EXPECT_EQ(fixture.m_table.getDeletedCount(), 0u);
        EXPECT_EQ(
            fixture.m_table.getNumberOfUsedBuckets(),
            701 - row.numberDeleted); // the buckets of the deleted are free again
        expectExactlySpread(fixture, row.numberDeleted + 1, 701);
        for (uint64_t index = 1; index <= row.numberDeleted; ++index)
            ASSERT_EQ(fixture.find(fixture.getKeyWithHash(getSpreadHash(index))), 0u);
    }
}

TYPED_TEST(ParallelHashTableSizeTest, TheBucketsOfTheDeletedAreSpentBeforeTheTableGrowsAgain) {
    TypeParam fixture;
    uint64_t id = 0;
    // Every entry is deleted at once, so the table is rebuilt again and again and never grows.
    for (int round = 0; round < 5000; ++round) {
        const auto key = fixture.getKeyWithHash(getSpreadHash(++id));
        fixture.m_table.markDeleted(key, fixture.insert(key, id).m_keyWord);
        ASSERT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
    }
    EXPECT_LE(fixture.m_table.getDeletedCount(), 716u);
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 0u);
}

TYPED_TEST(ParallelHashTableSizeTest, GrowthWithoutMemoryLeavesTheTableUnchanged) {
    const size_t bytes = 1024 * TypeParam::BUCKET_SIZE;
    TypeParam fixture(3 * bytes - 1); // one byte less than both arrays take
    insertSpread(fixture, 1, 700);
    const std::string image = getImage(fixture);
    for (int attempt = 0; attempt < 3; ++attempt) {
        test::expectOutOfMemory(3 * bytes - 1, 2 * bytes - 1, 2 * bytes, [&] {
            fixture.insert(fixture.getKeyWithHash(getSpreadHash(701)), 701);
        });
        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
        EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 700u);
        EXPECT_EQ(fixture.m_table.getResizeThreshold(), 716u);
        EXPECT_EQ(getImage(fixture), image);
        expectExactlySpread(fixture, 1, 700);
    }
    // Other threads find what they look for, and those that need no bucket but a reservation get the error, too.
    test::runThreads(4, [&](size_t) {
        EXPECT_EQ(fixture.find(fixture.getKeyWithHash(getSpreadHash(5))), 5u);
        EXPECT_THROW(fixture.insert(fixture.getKeyWithHash(getSpreadHash(5)), 5), KavixException);
    });
    ASSERT_TRUE(fixture.m_memoryManager.trySetTotalBytes(3 * bytes));
    insertSpread(fixture, 701, 1400);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u);
    expectExactlySpread(fixture, 1, 1400);
}

TYPED_TEST(ParallelHashTableSizeTest, AThreadThatHasAReservationContinuesWhereOthersCannotGrow) {
    const size_t bytes = 1024 * TypeParam::BUCKET_SIZE;
    TypeParam fixture(bytes);
    insertSpread(fixture, 1, 601);
    test::runThreads(1, [&](size_t) {
        EXPECT_THROW(fixture.insert(fixture.getKeyWithHash(getSpreadHash(5000)), 5000), KavixException);
    });
    insertSpread(fixture, 602, 700);
    expectExactlySpread(fixture, 1, 700);
}

TYPED_TEST(ParallelHashTableSizeTest, ClearingRemovesEverythingAndKeepsTheSize) {
    TypeParam fixture;
    insertSpread(fixture, 1, 2000);
    const size_t numberOfBuckets = fixture.m_table.getNumberOfBuckets();
    const auto key = fixture.getKeyWithHash(1);
    fixture.m_table.markDeleted(key, fixture.insert(key, 9999).m_keyWord);
    fixture.m_table.clear();
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), numberOfBuckets);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(fixture.m_table.getDeletedCount(), 0u);
    EXPECT_EQ(getImage(fixture), std::string(numberOfBuckets * TypeParam::BUCKET_SIZE, '\0'));
    for (uint64_t index = 1; index <= 2000; ++index)
        ASSERT_EQ(fixture.find(fixture.getKeyWithHash(getSpreadHash(index))), 0u);
    insertSpread(fixture, 1, 2000);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), numberOfBuckets);
    expectExactlySpread(fixture, 1, 2000);
}

TYPED_TEST(ParallelHashTableSizeTest, ClearingATableWithNothingButReservationsChangesNothing) {
    TypeParam fixture;
    // A failed insertion leaves a reservation of 100 and no entry.
    EXPECT_THROW(
        fixture.m_table.findOrInsert(
            fixture.getKeyWithHash(1), [](const auto&) -> typename TypeParam::Table::Entry { throw 1; }),
        int);
    fixture.m_table.clear();
    // The reservation is still there: seven batches in all, and the first of them was paid before.
    insertSpread(fixture, 1, 700);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
    fixture.insert(fixture.getKeyWithHash(getSpreadHash(701)), 701);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u);
    expectExactlySpread(fixture, 1, 701);
}

TYPED_TEST(ParallelHashTableSizeTest, ClearingRemovesATableOfDeletedEntries) {
    TypeParam fixture;
    const auto key = fixture.getKeyWithHash(1);
    fixture.m_table.markDeleted(key, fixture.insert(key, 1).m_keyWord);
    fixture.m_table.clear();
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(fixture.m_table.getDeletedCount(), 0u);
    EXPECT_EQ(getImage(fixture), std::string(1024 * TypeParam::BUCKET_SIZE, '\0'));
}

TYPED_TEST(ParallelHashTableSizeTest, ShrinksToWhatItsContentNeeds) {
    struct Row {
        const char* name;
        uint64_t entries;
        size_t initialSize;
        size_t minimum;
        size_t expected;
    };
    const Row rows[] = {
        {"empty", 0, 4096, 1024, 1024},
        {"one entry", 1, 4096, 1024, 1024},
        {"ten entries", 10, 4096, 1024, 1024},
        {"the most that 1024 hold", 716, 4096, 1024, 1024},
        {"one more than 1024 hold", 717, 4096, 1024, 2048},
        {"a thousand entries", 1000, 4096, 1024, 2048},
        {"the most that 2048 hold", 1433, 4096, 1024, 2048},
        {"one more than 2048 hold", 1434, 4096, 1024, 4096},
        {"full", 2800, 4096, 1024, 4096},
        {"at the minimum", 10, 1024, 1024, 1024},
        {"a larger minimum", 10, 8192, 4096, 4096},
        {"a minimum beyond the size", 10, 2048, 8192, 2048},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TypeParam fixture;
        fixture.m_table.initialize(row.initialSize);
        insertSpread(fixture, 1, row.entries);
        ASSERT_EQ(fixture.m_table.getNumberOfBuckets(), row.initialSize);
        fixture.m_table.shrinkToFit(row.minimum);
        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), row.expected);
        EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), row.entries);
        expectExactlySpread(fixture, 1, row.entries);
        insertSpread(fixture, row.entries + 1, row.entries + 2000); // and it grows again
        expectExactlySpread(fixture, 1, row.entries + 2000);
    }
}

TYPED_TEST(ParallelHashTableSizeTest, ShrinkingKeepsClustersThatWrapReachable) {
    // Clusters across every border that shrinking folds: the end, the smaller end, and where the tail lands.
    for (const uint64_t start :
         {uint64_t(4090), uint64_t(1018), uint64_t(2040), uint64_t(3066), uint64_t(0), uint64_t(1024),
          uint64_t(4000)}) {
        SCOPED_TRACE(start);
        TypeParam fixture;
        fixture.m_table.initialize(4096);
        uint64_t id = 0;
        for (uint64_t index = 0; index < 150; ++index)
            fixture.insert(
                fixture.getKeyWithHash(start + index / 8 + (index << 12)), ++id); // eight keys per start bucket
        for (uint64_t index = 0; index < 150; ++index) // in the way of those that come from the tail
            fixture.insert(fixture.getKeyWithHash(((start + index) & 1023) + (index << 20) + (1 << 19)), ++id);
        fixture.m_table.shrinkToFit(1024);
        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
        fixture.expectConsistent();
        EXPECT_EQ(fixture.m_numberOfLiveBuckets, 300u);
        id = 0;
        for (uint64_t index = 0; index < 150; ++index)
            ASSERT_EQ(fixture.find(fixture.getKeyWithHash(start + index / 8 + (index << 12))), ++id);
        for (uint64_t index = 0; index < 150; ++index)
            ASSERT_EQ(fixture.find(fixture.getKeyWithHash(((start + index) & 1023) + (index << 20) + (1 << 19))), ++id);
    }
}

TYPED_TEST(ParallelHashTableSizeTest, ShrinkingMovesDeletedMarkersSoThatTheirCountStaysRight) {
    TypeParam fixture;
    fixture.m_table.initialize(4096);
    for (uint64_t id = 1; id <= 60; ++id) {
        const auto key = fixture.getKeyWithHash(4090 + (id << 12)); // a cluster from the tail around the end
        const auto insertion = fixture.insert(key, id);
        if (id % 3 == 0)
            fixture.m_table.markDeleted(key, insertion.m_keyWord);
    }
    fixture.m_table.shrinkToFit(1024);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(fixture.m_table.getDeletedCount(), 20u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 60u);
    fixture.expectConsistent(); // counts the markers in the buckets
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 40u);
    for (uint64_t id = 1; id <= 60; ++id)
        ASSERT_EQ(fixture.find(fixture.getKeyWithHash(4090 + (id << 12))), id % 3 == 0 ? 0 : id);
}

TYPED_TEST(ParallelHashTableSizeTest, DeletedEntriesCountForTheSizeThatShrinkingLeaves) {
    TypeParam fixture;
    fixture.m_table.initialize(4096);
    for (uint64_t id = 1; id <= 1000; ++id) {
        const auto key = fixture.getKeyWithHash(getSpreadHash(id));
        fixture.m_table.markDeleted(key, fixture.insert(key, id).m_keyWord);
    }
    fixture.m_table.shrinkToFit(1024);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u);
    fixture.expectConsistent();
}

TYPED_TEST(ParallelHashTableSizeTest, ShrinkingFoldsTheReservationsOfAllThreads) {
    TypeParam fixture;
    test::runThreads(
        8, [&](size_t threadIndex) { fixture.insert(fixture.getKeyWithHash(threadIndex), threadIndex + 1); });
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 8u);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u); // eight batches of 100 for eight entries
    fixture.m_table.shrinkToFit(1024);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 8u);
    insertSpread(fixture, 100, 699); // 8 + 600 is what 1024 buckets give in batches
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
    fixture.expectConsistent();
}

TYPED_TEST(ParallelHashTableSizeTest, ReinsertingFillsATableWithoutRegardToTheThreshold) {
    TypeParam fixture;
    for (uint64_t id = 1; id <= 900; ++id) {
        const auto key = fixture.getKeyWithHash(getSpreadHash(id));
        fixture.m_table.reinsert(key, fixture.createKeyWord(key, id), [](const auto&, auto) { return false; });
    }
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 900u);
    expectExactlySpread(fixture, 1, 900);
    insertSpread(fixture, 901, 901); // every batch is spent, so it grows now
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2048u);
    expectExactlySpread(fixture, 1, 901);
}

TYPED_TEST(ParallelHashTableSizeTest, ReinsertingOverwritesTheEntryThatIsTheSame) {
    TypeParam fixture;
    const auto key = fixture.getKeyWithHash(5);
    const auto other = fixture.getKeyWithHash(5 + 1024);
    fixture.insert(other, 1);
    const auto insertion = fixture.insert(key, 2);
    const auto newKeyWord = fixture.createKeyWord(key, 3);
    fixture.m_table.reinsert(
        key, newKeyWord, [&](const auto&, auto keyWord) { return keyWord == insertion.m_keyWord; });
    EXPECT_EQ(fixture.find(key), 3u);
    EXPECT_EQ(fixture.find(other), 1u);
    EXPECT_EQ(fixture.getKeyWordAt(6), newKeyWord);
    EXPECT_EQ(fixture.getKeyWordAt(7), 0u);
}

TYPED_TEST(ParallelHashTableSizeTest, DestructionReleasesEverything) {
    MemoryManager memoryManager(test::AMPLE_BUDGET);
    {
        TypeParam fixture;
        typename TypeParam::Table table(memoryManager, fixture.getPolicy());
        table.initialize(4096);
        EXPECT_EQ(memoryManager.getChargedBytes(), 4096 * TypeParam::BUCKET_SIZE);
    }
    EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
}

}
