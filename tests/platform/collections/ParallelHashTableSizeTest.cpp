#include "core/platform/errors/KavixException.h"
#include "platform/collections/TableKits.h"
#include "support/ExpectError.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kavix {

using test::AllTableKits;
using test::TableKitNames;

/// How the table changes its size and its content as a whole: growing, rebuilding, clearing, shrinking.
template<typename Kit>
class ParallelHashTableSizeOf : public test::TableTest<Kit> { };

TYPED_TEST_SUITE(ParallelHashTableSizeOf, AllTableKits, TableKitNames);

namespace {

/// Keys that spread over the table.
uint64_t getSpreadHash(uint64_t index) {
    return index * 0x9e3779b97f4a7c15 >> 7;
}

template<typename Kit>
void insertSpread(Kit& kit, uint64_t first, uint64_t last) {
    for (uint64_t index = first; index <= last; ++index)
        ASSERT_EQ(kit.insert(kit.getKeyWithHash(getSpreadHash(index)), index).m_resourceID, index);
}

template<typename Kit>
void expectExactlySpread(Kit& kit, uint64_t first, uint64_t last) {
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, last - first + 1);
    for (uint64_t index = first; index <= last; ++index)
        ASSERT_EQ(kit.find(kit.getKeyWithHash(getSpreadHash(index))), index);
    ASSERT_EQ(kit.find(kit.getKeyWithHash(getSpreadHash(last + 1))), 0u);
}

template<typename Kit>
std::string getImage(Kit& kit) {
    return std::string(
        reinterpret_cast<const char*>(kit.m_table.getBuckets()), kit.m_table.getNumberOfBuckets() * Kit::BUCKET_SIZE);
}

}

TYPED_TEST(ParallelHashTableSizeOf, KeepsEveryEntryThroughManyDoublings) {
    TypeParam kit;
    insertSpread(kit, 1, 30000);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 65536u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 30000u);
    expectExactlySpread(kit, 1, 30000);
}

TYPED_TEST(ParallelHashTableSizeOf, CanStartLarge) {
    TypeParam kit;
    kit.m_table.initialize(8192);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 8192u);
    EXPECT_EQ(kit.m_table.getResizeThreshold(), 5734u);
    insertSpread(kit, 1, 5700);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 8192u);
    expectExactlySpread(kit, 1, 5700);
}

TYPED_TEST(ParallelHashTableSizeOf, InitialisingAgainForgetsEverything) {
    TypeParam kit;
    insertSpread(kit, 1, 3000);
    kit.m_table.initialize(1024);
    kit.expectConsistent();
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(kit.m_table.getDeletedCount(), 0u);
    insertSpread(kit, 1, 700);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u); // old reservations would have hidden the count
    expectExactlySpread(kit, 1, 700);
}

TYPED_TEST(ParallelHashTableSizeOf, InitialisingBeyondTheBudgetLeavesNoBuckets) {
    const size_t bytes = 1024 * TypeParam::BUCKET_SIZE;
    TypeParam kit(bytes);
    test::expectOutOfMemory(bytes, bytes, 2 * bytes, [&] { kit.m_table.initialize(2048); });
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 0u);
    EXPECT_EQ(kit.m_table.getCommittedBytes(), 0u);
    EXPECT_EQ(kit.m_memoryManager.getChargedBytes(), 0u);
    kit.m_table.initialize(1024);
    insertSpread(kit, 1, 500);
    expectExactlySpread(kit, 1, 500);
}

TYPED_TEST(ParallelHashTableSizeOf, WhereMoreThanHalfIsDeletedItIsRebuiltAtItsSize) {
    struct Row {
        const char* name;
        uint64_t numberDeleted;
        size_t numberOfBuckets;
    };
    const Row rows[] = {
        {"half of the buckets", 512, 2048}, {"one more than half", 513, 1024}, {"every entry", 700, 1024}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TypeParam kit;
        for (uint64_t index = 1; index <= 700; ++index) {
            const auto key = kit.getKeyWithHash(getSpreadHash(index));
            const auto insertion = kit.insert(key, index);
            if (index <= row.numberDeleted)
                kit.m_table.markDeleted(key, insertion.m_keyWord);
        }
        EXPECT_EQ(kit.m_table.getDeletedCount(), row.numberDeleted);
        EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);

        kit.insert(kit.getKeyWithHash(getSpreadHash(701)), 701);

        EXPECT_EQ(kit.m_table.getNumberOfBuckets(), row.numberOfBuckets);
        EXPECT_EQ(kit.m_table.getDeletedCount(), 0u);
        EXPECT_EQ(
            kit.m_table.getNumberOfUsedBuckets(), 701 - row.numberDeleted); // the buckets of the deleted are free again
        expectExactlySpread(kit, row.numberDeleted + 1, 701);
        for (uint64_t index = 1; index <= row.numberDeleted; ++index)
            ASSERT_EQ(kit.find(kit.getKeyWithHash(getSpreadHash(index))), 0u);
    }
}

TYPED_TEST(ParallelHashTableSizeOf, TheBucketsOfTheDeletedAreSpentBeforeTheTableGrowsAgain) {
    TypeParam kit;
    uint64_t id = 0;
    // Every entry is deleted at once, so the table is rebuilt again and again and never grows.
    for (int round = 0; round < 5000; ++round) {
        const auto key = kit.getKeyWithHash(getSpreadHash(++id));
        kit.m_table.markDeleted(key, kit.insert(key, id).m_keyWord);
        ASSERT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
    }
    EXPECT_LE(kit.m_table.getDeletedCount(), 716u);
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 0u);
}

TYPED_TEST(ParallelHashTableSizeOf, GrowthWithoutMemoryLeavesTheTableExactlyAsItWas) {
    const size_t bytes = 1024 * TypeParam::BUCKET_SIZE;
    TypeParam kit(3 * bytes - 1); // one byte less than both arrays take
    insertSpread(kit, 1, 700);
    const std::string image = getImage(kit);
    for (int attempt = 0; attempt < 3; ++attempt) {
        test::expectOutOfMemory(
            3 * bytes - 1, 2 * bytes - 1, 2 * bytes, [&] { kit.insert(kit.getKeyWithHash(getSpreadHash(701)), 701); });
        EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
        EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 700u);
        EXPECT_EQ(kit.m_table.getResizeThreshold(), 716u);
        EXPECT_EQ(getImage(kit), image);
        expectExactlySpread(kit, 1, 700);
    }
    // Other threads find what they look for, and those that need no bucket but a reservation get the error, too.
    test::runThreads(4, [&](size_t) {
        EXPECT_EQ(kit.find(kit.getKeyWithHash(getSpreadHash(5))), 5u);
        EXPECT_THROW(kit.insert(kit.getKeyWithHash(getSpreadHash(5)), 5), KavixException);
    });
    ASSERT_TRUE(kit.m_memoryManager.trySetTotalBytes(3 * bytes));
    insertSpread(kit, 701, 1400);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u);
    expectExactlySpread(kit, 1, 1400);
}

TYPED_TEST(ParallelHashTableSizeOf, AThreadThatHasAReservationGoesOnWhereOthersCannotGrow) {
    const size_t bytes = 1024 * TypeParam::BUCKET_SIZE;
    TypeParam kit(bytes);
    insertSpread(kit, 1, 601);
    test::runThreads(
        1, [&](size_t) { EXPECT_THROW(kit.insert(kit.getKeyWithHash(getSpreadHash(5000)), 5000), KavixException); });
    insertSpread(kit, 602, 700);
    expectExactlySpread(kit, 1, 700);
}

TYPED_TEST(ParallelHashTableSizeOf, ClearingRemovesEverythingAndKeepsTheSize) {
    TypeParam kit;
    insertSpread(kit, 1, 2000);
    const size_t numberOfBuckets = kit.m_table.getNumberOfBuckets();
    const auto key = kit.getKeyWithHash(1);
    kit.m_table.markDeleted(key, kit.insert(key, 9999).m_keyWord);
    kit.m_table.clear();
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), numberOfBuckets);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(kit.m_table.getDeletedCount(), 0u);
    EXPECT_EQ(getImage(kit), std::string(numberOfBuckets * TypeParam::BUCKET_SIZE, '\0'));
    for (uint64_t index = 1; index <= 2000; ++index)
        ASSERT_EQ(kit.find(kit.getKeyWithHash(getSpreadHash(index))), 0u);
    insertSpread(kit, 1, 2000);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), numberOfBuckets);
    expectExactlySpread(kit, 1, 2000);
}

TYPED_TEST(ParallelHashTableSizeOf, ClearingATableWithNothingButReservationsChangesNothing) {
    TypeParam kit;
    // A failed insertion leaves a reservation of 100 and no entry.
    EXPECT_THROW(
        kit.m_table.findOrInsert(
            kit.getKeyWithHash(1), [](const auto&) -> typename TypeParam::Table::Entry { throw 1; }),
        int);
    kit.m_table.clear();
    // The reservation is still there: seven batches in all, and the first of them was paid before.
    insertSpread(kit, 1, 700);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
    kit.insert(kit.getKeyWithHash(getSpreadHash(701)), 701);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u);
    expectExactlySpread(kit, 1, 701);
}

TYPED_TEST(ParallelHashTableSizeOf, ClearingRemovesATableOfDeletedEntries) {
    TypeParam kit;
    const auto key = kit.getKeyWithHash(1);
    kit.m_table.markDeleted(key, kit.insert(key, 1).m_keyWord);
    kit.m_table.clear();
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(kit.m_table.getDeletedCount(), 0u);
    EXPECT_EQ(getImage(kit), std::string(1024 * TypeParam::BUCKET_SIZE, '\0'));
}

TYPED_TEST(ParallelHashTableSizeOf, ShrinksToWhatItsContentNeeds) {
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
        TypeParam kit;
        kit.m_table.initialize(row.initialSize);
        insertSpread(kit, 1, row.entries);
        ASSERT_EQ(kit.m_table.getNumberOfBuckets(), row.initialSize);
        kit.m_table.shrinkToFit(row.minimum);
        EXPECT_EQ(kit.m_table.getNumberOfBuckets(), row.expected);
        EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), row.entries);
        expectExactlySpread(kit, 1, row.entries);
        insertSpread(kit, row.entries + 1, row.entries + 2000); // and it grows again
        expectExactlySpread(kit, 1, row.entries + 2000);
    }
}

TYPED_TEST(ParallelHashTableSizeOf, ShrinkingKeepsClustersThatWrapReachable) {
    // Clusters across every border that shrinking folds: the end, the smaller end, and where the tail lands.
    for (const uint64_t start :
         {uint64_t(4090), uint64_t(1018), uint64_t(2040), uint64_t(3066), uint64_t(0), uint64_t(1024),
          uint64_t(4000)}) {
        SCOPED_TRACE(start);
        TypeParam kit;
        kit.m_table.initialize(4096);
        uint64_t id = 0;
        for (uint64_t index = 0; index < 150; ++index)
            kit.insert(kit.getKeyWithHash(start + index / 8 + (index << 12)), ++id); // eight keys per start bucket
        for (uint64_t index = 0; index < 150; ++index) // in the way of those that come from the tail
            kit.insert(kit.getKeyWithHash(((start + index) & 1023) + (index << 20) + (1 << 19)), ++id);
        kit.m_table.shrinkToFit(1024);
        EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
        kit.expectConsistent();
        EXPECT_EQ(kit.m_numberOfLiveBuckets, 300u);
        id = 0;
        for (uint64_t index = 0; index < 150; ++index)
            ASSERT_EQ(kit.find(kit.getKeyWithHash(start + index / 8 + (index << 12))), ++id);
        for (uint64_t index = 0; index < 150; ++index)
            ASSERT_EQ(kit.find(kit.getKeyWithHash(((start + index) & 1023) + (index << 20) + (1 << 19))), ++id);
    }
}

TYPED_TEST(ParallelHashTableSizeOf, ShrinkingMovesDeletedMarkersSoThatTheirCountStaysRight) {
    TypeParam kit;
    kit.m_table.initialize(4096);
    for (uint64_t id = 1; id <= 60; ++id) {
        const auto key = kit.getKeyWithHash(4090 + (id << 12)); // a cluster from the tail around the end
        const auto insertion = kit.insert(key, id);
        if (id % 3 == 0)
            kit.m_table.markDeleted(key, insertion.m_keyWord);
    }
    kit.m_table.shrinkToFit(1024);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(kit.m_table.getDeletedCount(), 20u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 60u);
    kit.expectConsistent(); // counts the markers in the buckets
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 40u);
    for (uint64_t id = 1; id <= 60; ++id)
        ASSERT_EQ(kit.find(kit.getKeyWithHash(4090 + (id << 12))), id % 3 == 0 ? 0 : id);
}

TYPED_TEST(ParallelHashTableSizeOf, DeletedEntriesCountForTheSizeThatShrinkingLeaves) {
    TypeParam kit;
    kit.m_table.initialize(4096);
    for (uint64_t id = 1; id <= 1000; ++id) {
        const auto key = kit.getKeyWithHash(getSpreadHash(id));
        kit.m_table.markDeleted(key, kit.insert(key, id).m_keyWord);
    }
    kit.m_table.shrinkToFit(1024);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u);
    kit.expectConsistent();
}

TYPED_TEST(ParallelHashTableSizeOf, ShrinkingFoldsTheReservationsOfAllThreads) {
    TypeParam kit;
    test::runThreads(8, [&](size_t threadIndex) { kit.insert(kit.getKeyWithHash(threadIndex), threadIndex + 1); });
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 8u);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u); // eight batches of 100 for eight entries
    kit.m_table.shrinkToFit(1024);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 8u);
    insertSpread(kit, 100, 699); // 8 + 600 is what 1024 buckets give in batches
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
    kit.expectConsistent();
}

TYPED_TEST(ParallelHashTableSizeOf, ReinsertingFillsATableWithoutRegardToTheThreshold) {
    TypeParam kit;
    for (uint64_t id = 1; id <= 900; ++id) {
        const auto key = kit.getKeyWithHash(getSpreadHash(id));
        kit.m_table.reinsert(key, kit.createKeyWord(key, id), [](const auto&, auto) { return false; });
    }
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 900u);
    expectExactlySpread(kit, 1, 900);
    insertSpread(kit, 901, 901); // every batch is spent, so it grows now
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u);
    expectExactlySpread(kit, 1, 901);
}

TYPED_TEST(ParallelHashTableSizeOf, ReinsertingOverwritesTheEntryThatIsTheSame) {
    TypeParam kit;
    const auto key = kit.getKeyWithHash(5);
    const auto other = kit.getKeyWithHash(5 + 1024);
    kit.insert(other, 1);
    const auto insertion = kit.insert(key, 2);
    const auto newKeyWord = kit.createKeyWord(key, 3);
    kit.m_table.reinsert(key, newKeyWord, [&](const auto&, auto keyWord) { return keyWord == insertion.m_keyWord; });
    EXPECT_EQ(kit.find(key), 3u);
    EXPECT_EQ(kit.find(other), 1u);
    EXPECT_EQ(kit.getKeyWordAt(6), newKeyWord);
    EXPECT_EQ(kit.getKeyWordAt(7), 0u);
}

TYPED_TEST(ParallelHashTableSizeOf, DestructionGivesEverythingBack) {
    MemoryManager memoryManager(test::AMPLE_BUDGET);
    {
        TypeParam kit;
        typename TypeParam::Table table(memoryManager, kit.getPolicy());
        table.initialize(4096);
        EXPECT_EQ(memoryManager.getChargedBytes(), 4096 * TypeParam::BUCKET_SIZE);
    }
    EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
}

}
