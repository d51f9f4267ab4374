#include "platform/collections/TableKits.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace kavix {

using test::AllTableKits;
using test::TableKit;
using test::TableKitNames;

template<typename Kit>
class ParallelHashTableOf : public test::TableTest<Kit> { };

TYPED_TEST_SUITE(ParallelHashTableOf, AllTableKits, TableKitNames);

TYPED_TEST(ParallelHashTableOf, StartsEmpty) {
    TypeParam kit;
    kit.expectConsistent();
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(kit.m_table.getResizeThreshold(), 716u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 0u);
    for (uint64_t hash = 0; hash < 2048; ++hash)
        ASSERT_EQ(kit.find(kit.getKeyWithHash(hash)), 0u);
}

TYPED_TEST(ParallelHashTableOf, HasNoBucketsBeforeItIsInitialised) {
    TypeParam kit;
    typename TypeParam::Table table(kit.m_memoryManager, kit.getPolicy());
    EXPECT_EQ(table.getNumberOfBuckets(), 0u);
    EXPECT_EQ(table.getCommittedBytes(), 0u);
    EXPECT_EQ(table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(table.getDeletedCount(), 0u);
    EXPECT_EQ(table.getResizeThreshold(), 0u);
}

TYPED_TEST(ParallelHashTableOf, FindsWhatWasInsertedAndInsertsItOnce) {
    TypeParam kit;
    const auto first = kit.getKeyWithHash(17);
    EXPECT_EQ(kit.insert(first, 5).m_resourceID, 5u);
    EXPECT_EQ(kit.find(first), 5u);
    const auto again = kit.insert(first, 6);
    EXPECT_EQ(again.m_resourceID, 5u);
    EXPECT_EQ(again.m_keyWord, 0u); // no second entry was created
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 1u);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(18)), 0u);
    kit.expectConsistent();
}

TYPED_TEST(ParallelHashTableOf, LeavesThePlaceAtWhichAProbeStartsToTheLowBitsOfTheHash) {
    TypeParam kit;
    kit.insert(kit.getKeyWithHash(0xfedcba9876543000 | 0x2a7), 5);
    EXPECT_NE(kit.getKeyWordAt(0x2a7), 0u);
}

TYPED_TEST(ParallelHashTableOf, ProbesOnThroughACollisionAndAroundTheEnd) {
    TypeParam kit;
    // Six keys start at the last bucket but one; they fill it, the last one, and the first four.
    for (uint64_t id = 1; id <= 6; ++id)
        kit.insert(kit.getKeyWithHash(1022 + 1024 * id), id);
    for (const size_t index : {size_t(1022), size_t(1023), size_t(0), size_t(1), size_t(2), size_t(3)})
        EXPECT_NE(kit.getKeyWordAt(index), 0u) << index;
    EXPECT_EQ(kit.getKeyWordAt(4), 0u);
    EXPECT_EQ(kit.getKeyWordAt(1021), 0u);
    for (uint64_t id = 1; id <= 6; ++id)
        EXPECT_EQ(kit.find(kit.getKeyWithHash(1022 + 1024 * id)), id);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(1022)), 0u);
    kit.expectConsistent();
}

TYPED_TEST(ParallelHashTableOf, PassesOverADeletedBucketAndDoesNotReuseIt) {
    TypeParam kit;
    const auto first = kit.getKeyWithHash(8);
    const auto second = kit.getKeyWithHash(8 + 1024);
    const auto third = kit.getKeyWithHash(8 + 2048);
    const auto insertion = kit.insert(first, 1);
    kit.insert(second, 2);

    kit.m_table.markDeleted(first, insertion.m_keyWord);

    EXPECT_EQ(kit.find(first), 0u);
    EXPECT_EQ(kit.find(second), 2u);
    EXPECT_EQ(kit.m_table.getDeletedCount(), 1u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 2u);
    EXPECT_EQ(kit.getKeyWordAt(8), TypeParam::Table::DELETED);
    kit.insert(third, 3);
    kit.insert(first, 4); // entered anew
    EXPECT_EQ(kit.getKeyWordAt(8), TypeParam::Table::DELETED);
    EXPECT_EQ(kit.find(first), 4u);
    EXPECT_EQ(kit.find(second), 2u);
    EXPECT_EQ(kit.find(third), 3u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 4u);
    kit.expectConsistent();
}

TYPED_TEST(ParallelHashTableOf, DeletesNothingUnlessTheKeyWordMatches) {
    TypeParam kit;
    const auto key = kit.getKeyWithHash(8);
    const auto insertion = kit.insert(key, 1);
    kit.m_table.markDeleted(key, static_cast<typename TypeParam::KeyWord>(insertion.m_keyWord + 1));
    kit.m_table.markDeleted(kit.getKeyWithHash(500), insertion.m_keyWord);
    EXPECT_EQ(kit.find(key), 1u);
    EXPECT_EQ(kit.m_table.getDeletedCount(), 0u);
    kit.m_table.markDeleted(key, insertion.m_keyWord);
    kit.m_table.markDeleted(key, insertion.m_keyWord); // it is gone already
    EXPECT_EQ(kit.m_table.getDeletedCount(), 1u);
    kit.expectConsistent();
}

TYPED_TEST(ParallelHashTableOf, PassesOverEntriesThatAreNotVisible) {
    TypeParam kit;
    const auto first = kit.getKeyWithHash(8);
    const auto second = kit.getKeyWithHash(8 + 1024);
    const auto hidden = kit.insert(first, 1);
    const auto shown = kit.insert(second, 2);
    const auto isVisible = [&](typename TypeParam::KeyWord keyWord) {
        EXPECT_TRUE(keyWord == hidden.m_keyWord || keyWord == shown.m_keyWord); // never asked about a marker
        return keyWord == shown.m_keyWord;
    };
    EXPECT_EQ(kit.m_table.find(first, isVisible), 0u);
    EXPECT_EQ(kit.m_table.find(second, isVisible), 2u);
    kit.m_table.markDeleted(first, hidden.m_keyWord);
    EXPECT_EQ(kit.m_table.find(second, isVisible), 2u);
}

TYPED_TEST(ParallelHashTableOf, ReservesBucketsInBatchesOfOneHundred) {
    TypeParam kit;
    const auto getImageOf = [&](uint64_t id) {
        kit.insert(kit.getKeyWithHash(id), id);
        return kit.m_table.getNumberOfUsedBuckets();
    };
    for (uint64_t id = 1; id <= 250; ++id)
        ASSERT_EQ(getImageOf(id), id); // the reservations are not counted
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
}

TYPED_TEST(ParallelHashTableOf, GrowsWhenTheNextBatchWouldPassTheThreshold) {
    TypeParam kit;
    for (uint64_t id = 1; id <= 700; ++id)
        kit.insert(kit.getKeyWithHash(id * 0x123456789), id);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u); // seven batches are below 716, eight are not
    kit.expectConsistent();
    kit.insert(kit.getKeyWithHash(701 * 0x123456789), 701);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u);
    EXPECT_EQ(kit.m_table.getResizeThreshold(), 1433u);
    for (uint64_t id = 1; id <= 701; ++id)
        ASSERT_EQ(kit.find(kit.getKeyWithHash(id * 0x123456789)), id);
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 701u);
}

TYPED_TEST(ParallelHashTableOf, ABatchMayReachTheThresholdExactly) {
    for (const uint64_t used : {uint64_t(616), uint64_t(617)}) {
        SCOPED_TRACE(used);
        TypeParam kit;
        for (uint64_t id = 1; id <= used; ++id)
            kit.insert(kit.getKeyWithHash(id), id);
        kit.m_table.shrinkToFit(1024); // folds the reservations, so the used count is exact
        kit.insert(kit.getKeyWithHash(900), 900);
        EXPECT_EQ(kit.m_table.getNumberOfBuckets(), used == 616 ? 1024u : 2048u);
        kit.expectConsistent();
    }
}

TYPED_TEST(ParallelHashTableOf, AValueThatIsPresentMayNeedAReservationAndGrowTheTable) {
    TypeParam kit;
    for (uint64_t id = 1; id <= 700; ++id)
        kit.insert(kit.getKeyWithHash(id), id);
    EXPECT_EQ(kit.insert(kit.getKeyWithHash(1), 999).m_resourceID, 1u);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 700u);
}

TYPED_TEST(ParallelHashTableOf, AnEntryThatCannotBeCreatedLeavesItsBucketEmptyAndTheReservationWhole) {
    TypeParam kit;
    using Entry = typename TypeParam::Table::Entry;
    const auto key = kit.getKeyWithHash(33);
    int calls = 0;
    const auto failWith = [&](auto exception) {
        return [&calls, exception](const auto&) -> Entry {
            ++calls;
            throw exception;
        };
    };
    EXPECT_THROW(kit.m_table.findOrInsert(key, failWith(std::runtime_error("no record"))), std::runtime_error);
    EXPECT_THROW(kit.m_table.findOrInsert(key, failWith(42)), int); // whatever its type
    EXPECT_EQ(kit.getKeyWordAt(33), 0u);
    EXPECT_EQ(kit.find(key), 0u);
    EXPECT_EQ(kit.m_table.getNumberOfUsedBuckets(), 0u);
    for (uint64_t id = 1; id <= 700; ++id) {
        EXPECT_THROW(kit.m_table.findOrInsert(kit.getKeyWithHash(id), failWith(std::bad_alloc())), std::bad_alloc);
        kit.insert(kit.getKeyWithHash(id), id);
    }
    EXPECT_EQ(calls, 702);
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u); // the failures cost no reservation
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 700u);
}

TYPED_TEST(ParallelHashTableOf, TheLoserOfARaceForAKeyGetsTheIDOfTheWinner) {
    TypeParam kit;
    const auto key = kit.getKeyWithHash(77);
    std::atomic<bool> isClaimed{false};
    std::atomic<size_t> numberDone{0};
    test::runThreads(4, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            const uint64_t id = kit.m_table.findOrInsert(key, [&](const auto&) {
                isClaimed = true;
                test::letOthersRun();
                EXPECT_EQ(numberDone, 0u); // they wait for this bucket
                return typename TypeParam::Table::Entry{kit.createKeyWord(key, 5), 5};
            });
            EXPECT_EQ(id, 5u);
            return;
        }
        test::waitUntil([&] { return isClaimed.load(); });
        if (threadIndex == 1)
            EXPECT_EQ(kit.find(key), 5u);
        else
            EXPECT_EQ(kit.insert(key, 10 + threadIndex).m_resourceID, 5u);
        ++numberDone;
    });
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 1u);
}

TYPED_TEST(ParallelHashTableOf, WhoWaitedForABucketRegardsVisibilityAsOthersDo) {
    TypeParam kit;
    const auto key = kit.getKeyWithHash(77);
    std::atomic<bool> isClaimed{false};
    std::atomic<size_t> numberDone{0};
    const auto isVisible = [](typename TypeParam::KeyWord) { return true; };
    const auto isInvisible = [](typename TypeParam::KeyWord) { return false; };
    test::runThreads(4, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            kit.m_table.findOrInsert(key, [&](const auto&) {
                isClaimed = true;
                test::letOthersRun();
                EXPECT_EQ(numberDone, 0u); // they wait for this bucket
                return typename TypeParam::Table::Entry{kit.createKeyWord(key, 5), 5};
            });
            return;
        }
        test::waitUntil([&] { return isClaimed.load(); });
        if (threadIndex == 1)
            EXPECT_EQ(kit.m_table.find(key, isInvisible), 0u);
        else if (threadIndex == 2)
            EXPECT_EQ(kit.m_table.find(key, isVisible, 5), 0u);
        else
            EXPECT_EQ(kit.m_table.find(key, isVisible, 6), 5u);
        ++numberDone;
    });
    EXPECT_EQ(kit.m_table.find(key, isInvisible), 0u);
    EXPECT_EQ(kit.m_table.find(key, isVisible, 5), 0u);
    EXPECT_EQ(kit.m_table.find(key, isVisible, 6), 5u);
}

TYPED_TEST(ParallelHashTableOf, AClaimGivenUpIsTakenByOneThatWaitedForIt) {
    TypeParam kit;
    const auto key = kit.getKeyWithHash(77);
    std::atomic<bool> isClaimed{false};
    std::vector<uint64_t> ids(4);
    test::runThreads(4, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            EXPECT_THROW(
                kit.m_table.findOrInsert(
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
        ids[threadIndex] = kit.insert(key, 10 + threadIndex).m_resourceID;
    });
    EXPECT_TRUE(ids[1] >= 11 && ids[1] <= 13);
    EXPECT_EQ(ids[2], ids[1]);
    EXPECT_EQ(ids[3], ids[1]);
    EXPECT_EQ(kit.find(key), ids[1]);
    kit.expectConsistent();
}

TYPED_TEST(ParallelHashTableOf, AResizeWaitsForAnEntryThatIsBeingCreated) {
    TypeParam kit;
    for (uint64_t id = 1; id <= 600; ++id)
        kit.insert(kit.getKeyWithHash(id), id);
    const auto slowKey = kit.getKeyWithHash(800);
    std::atomic<bool> isClaimed{false};
    std::atomic<bool> isGrown{false};
    test::runThreads(2, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            kit.m_table.findOrInsert(slowKey, [&](const auto&) {
                isClaimed = true;
                test::letOthersRun();
                EXPECT_FALSE(isGrown);
                EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 1024u);
                return typename TypeParam::Table::Entry{kit.createKeyWord(slowKey, 800), 800};
            });
        }
        else {
            test::waitUntil([&] { return isClaimed.load(); });
            kit.insert(kit.getKeyWithHash(801), 801); // both threads have reserved; this one finds the threshold passed
            isGrown = true;
        }
    });
    EXPECT_EQ(kit.m_table.getNumberOfBuckets(), 2048u);
    EXPECT_EQ(kit.find(slowKey), 800u);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(801)), 801u);
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 602u);
}

TYPED_TEST(ParallelHashTableOf, AnOperationRunsInsideAfterAnyResize) {
    TypeParam kit;
    kit.insert(kit.getKeyWithHash(1), 1);
    bool wasRun = false;
    kit.m_table.runInside([&] {
        wasRun = true;
        kit.m_table.clear();
    });
    EXPECT_TRUE(wasRun);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(1)), 0u);
    EXPECT_THROW(kit.m_table.runInside([] { throw std::runtime_error("inside"); }), std::runtime_error);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(1)), 0u); // the slot was left
}

// The values of integers are not key words, so no value is a marker.
template<typename R>
class IntegerTable : public test::TableTest<R> { };

using ResourceIDTypes = testing::Types<unsigned int, unsigned long>;
TYPED_TEST_SUITE(IntegerTable, ResourceIDTypes);

TYPED_TEST(IntegerTable, StoresEveryValueThatLooksLikeAMarker) {
    TableKit<test::IntegerEntries<TypeParam>> kit;
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
        EXPECT_EQ(kit.find(value), 0u) << value;
    for (const int64_t value : values)
        EXPECT_EQ(kit.insert(value, ++id).m_resourceID, id) << value;
    for (int64_t filler = 1000; filler < 3000; ++filler) // moves them to larger arrays
        kit.insert(filler, static_cast<uint64_t>(filler));
    id = 0;
    for (const int64_t value : values)
        EXPECT_EQ(kit.find(value), ++id) << value;
    kit.expectConsistent();
}

TYPED_TEST(IntegerTable, StoresTheLargestIDThatIsNoMarker) {
    TableKit<test::IntegerEntries<TypeParam>> kit;
    constexpr uint64_t LARGEST_ID = std::numeric_limits<TypeParam>::max() - 2;
    kit.insert(7, LARGEST_ID);
    EXPECT_EQ(kit.find(7), LARGEST_ID);
    EXPECT_EQ(kit.insert(7, 1).m_resourceID, LARGEST_ID);
    kit.expectConsistent();
}

TYPED_TEST(IntegerTable, StartsAtTheProductOfTheValue) {
    TableKit<test::IntegerEntries<TypeParam>> kit;
    kit.insert(1, 1);
    EXPECT_EQ(kit.getKeyWordAt(0x9e3779b1 & 1023), 1u);
    kit.insert(-1, 2);
    EXPECT_EQ(kit.getKeyWordAt((0 - uint64_t(0x9e3779b1)) & 1023), 2u);
    kit.insert(0, 3);
    EXPECT_EQ(kit.getKeyWordAt(0), 3u);
}

TEST(DecimalTable, TellsDecimalsApartByBothFields) {
    ThreadSlots::ensureSlot();
    TableKit<test::DecimalEntries<unsigned int>> kit;
    const XSDDecimal values[] = {
        XSDDecimal(),
        XSDDecimal(1),
        XSDDecimal(-1),
        XSDDecimal::fromNormalisedFields(1, 1),
        XSDDecimal::fromNormalisedFields(1, 2),
        XSDDecimal::fromNormalisedFields(-1, 1),
        XSDDecimal::fromNormalisedFields(std::numeric_limits<int64_t>::min(), 19)};
    uint64_t id = 0;
    for (const XSDDecimal& value : values)
        EXPECT_EQ(kit.insert(value, ++id).m_resourceID, id);
    id = 0;
    for (const XSDDecimal& value : values)
        EXPECT_EQ(kit.find(value), ++id);
    EXPECT_EQ(kit.find(XSDDecimal::fromNormalisedFields(1, 3)), 0u);
}

TEST(DecimalTable, StartsAtTheHashOfBothFields) {
    using Policy = NumericDatatype<unsigned long>::DecimalPolicy;
    // The image format fixes this: FNV-1a over two whole units.
    const auto getExpected = [](uint64_t unscaledValue, uint64_t fractionDigits) {
        uint64_t hash = unscaledValue ^ 0xcbf29ce484222325;
        hash = (hash * 0x100000001b3) ^ fractionDigits;
        return hash * 0x100000001b3;
    };
    EXPECT_EQ(Policy::getHash(XSDDecimal()), getExpected(0, 0));
    EXPECT_EQ(Policy::getHash(XSDDecimal(-1)), getExpected(~uint64_t(0), 0));
    EXPECT_EQ(Policy::getHash(XSDDecimal::fromNormalisedFields(12345, 19)), getExpected(12345, 19));
    EXPECT_EQ(
        Policy::getHash(test::DecimalEntries<unsigned int>::getKeyWithHash(0x123456789abcdef)), 0x123456789abcdefu);
}

}
