#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/VMPageSize.h"
#include "support/ExpectError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace kavix {

namespace {

constexpr uint64_t AMPLE = uint64_t(1) << 40;

struct Item16 {
    uint64_t m_words[2];
};

struct Item24 {
    uint64_t m_words[3]; // does not divide a page
};

template<typename T>
void expectState(const MemoryRegion<T>& region, const MemoryManager& memoryManager, size_t end, size_t committedBytes) {
    EXPECT_EQ(region.getEnd(), end);
    EXPECT_EQ(region.getCommittedBytes(), committedBytes);
    EXPECT_EQ(memoryManager.getChargedBytes(), committedBytes);
}

template<typename T>
bool isZero(const MemoryRegion<T>& region) {
    const uint8_t* const bytes = reinterpret_cast<const uint8_t*>(region.getData());
    return std::all_of(bytes, bytes + region.getEnd() * sizeof(T), [](uint8_t byte) { return byte == 0; });
}

template<typename T>
class MemoryRegionTest : public testing::Test { };

using ItemTypes = testing::Types<uint8_t, std::atomic<uint8_t>, unsigned long, Item16, Item24>;
TYPED_TEST_SUITE(MemoryRegionTest, ItemTypes);

}

TYPED_TEST(MemoryRegionTest, StartsEmptyAndChargesNothingForAReservation) {
    MemoryManager memoryManager(0);
    MemoryRegion<TypeParam> region(memoryManager);
    EXPECT_EQ(region.getData(), nullptr);
    EXPECT_EQ(region.getMaximumNumberOfItems(), 0u);
    expectState(region, memoryManager, 0, 0);

    region.initialize(1000000);
    EXPECT_NE(region.getData(), nullptr);
    EXPECT_EQ(region.getMaximumNumberOfItems(), 1000000u);
    expectState(region, memoryManager, 0, 0);

    region.initialize(0);
    EXPECT_EQ(region.getData(), nullptr);
    EXPECT_EQ(region.getMaximumNumberOfItems(), 0u);
    expectState(region, memoryManager, 0, 0);
}

TYPED_TEST(MemoryRegionTest, GrowsExactlyToThePageBoundary) {
    const size_t page = getVMPageSize();
    const size_t perPage = page / sizeof(TypeParam);
    const size_t maximum = 10 * perPage + 3;
    for (const size_t n :
         {size_t(0), size_t(1), perPage - 1, perPage, perPage + 1, 2 * perPage, 2 * perPage + 1, maximum - 1,
          maximum}) {
        SCOPED_TRACE(n);
        MemoryManager memoryManager(AMPLE);
        MemoryRegion<TypeParam> region(memoryManager);
        region.initialize(maximum);
        region.ensureEndAtLeast(n);
        const size_t committedBytes = (n * sizeof(TypeParam) + page - 1) / page * page;
        expectState(region, memoryManager, std::min(maximum, committedBytes / sizeof(TypeParam)), committedBytes);
        EXPECT_TRUE(isZero(region));
        if (region.getEnd() != 0)
            std::memset(
                static_cast<void*>(region.getData()), 0xff, region.getEnd() * sizeof(TypeParam)); // all of it is usable
    }
}

TYPED_TEST(MemoryRegionTest, NeverMovesAndKeepsItsContentWhileItGrows) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<TypeParam> region(memoryManager);
    const size_t maximum = 40000;
    region.initialize(maximum);
    const TypeParam* const data = region.getData();
    size_t previousEnd = 0;
    for (size_t n = 1; n <= maximum; n += 777) {
        region.ensureEndAtLeast(n);
        ASSERT_GE(region.getEnd(), std::max(n, previousEnd));
        ASSERT_EQ(region.getData(), data);
        for (size_t index = previousEnd; index < region.getEnd(); ++index)
            std::memset(static_cast<void*>(&region[index]), static_cast<int>(index % 251), sizeof(TypeParam));
        previousEnd = region.getEnd();
    }
    for (size_t index = 0; index < previousEnd; ++index) {
        uint8_t bytes[sizeof(TypeParam)];
        std::memcpy(bytes, static_cast<const void*>(&region[index]), sizeof(TypeParam));
        for (const uint8_t byte : bytes)
            ASSERT_EQ(byte, index % 251);
    }
    EXPECT_EQ(memoryManager.getChargedBytes(), region.getCommittedBytes());
}

TYPED_TEST(MemoryRegionTest, TruncationReleasesPagesAndZeroesTheRestOfTheLastPageKept) {
    const size_t page = getVMPageSize();
    const size_t perPage = page / sizeof(TypeParam);
    const size_t maximum = 4 * perPage + perPage / 2;
    for (const size_t n :
         {size_t(0), size_t(1), perPage - 1, perPage, perPage + 1, 3 * perPage, 4 * perPage, maximum - 1}) {
        SCOPED_TRACE(n);
        MemoryManager memoryManager(AMPLE);
        MemoryRegion<TypeParam> region(memoryManager);
        region.initialize(maximum);
        region.ensureEndAtLeast(maximum);
        const TypeParam* const data = region.getData();
        std::memset(static_cast<void*>(region.getData()), 0xab, maximum * sizeof(TypeParam));

        region.truncate(n);

        const size_t committedBytes = (n * sizeof(TypeParam) + page - 1) / page * page;
        expectState(region, memoryManager, std::min(maximum, committedBytes / sizeof(TypeParam)), committedBytes);
        EXPECT_EQ(region.getMaximumNumberOfItems(), maximum);
        EXPECT_EQ(region.getData(), data);
        const auto expectContent = [&] {
            const uint8_t* const bytes = reinterpret_cast<const uint8_t*>(region.getData());
            for (size_t offset = 0; offset < region.getEnd() * sizeof(TypeParam); ++offset)
                ASSERT_EQ(bytes[offset], offset < n * sizeof(TypeParam) ? 0xab : 0) << offset;
        };
        expectContent();
        region.ensureEndAtLeast(maximum);
        expectState(region, memoryManager, maximum, (maximum * sizeof(TypeParam) + page - 1) / page * page);
        expectContent();
    }
}

TEST(MemoryRegion, TruncationAtOrBeyondTheEndChangesNothing) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<uint64_t> region(memoryManager);
    region.truncate(0); // an empty region
    expectState(region, memoryManager, 0, 0);
    region.initialize(100000);
    region.truncate(5);
    expectState(region, memoryManager, 0, 0);
    region.ensureEndAtLeast(1);
    const size_t end = region.getEnd();
    region[end - 1] = 17;
    region.truncate(end);
    region.truncate(end + 1);
    expectState(region, memoryManager, end, getVMPageSize());
    EXPECT_EQ(region[end - 1], 17u);
}

TEST(MemoryRegion, OneSmallItemCommitsAWholePage) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<Item16> region(memoryManager);
    region.initialize(100000);
    region.doEnsureEndAtLeast(1);
    expectState(region, memoryManager, getVMPageSize() / 16, getVMPageSize());
}

TEST(MemoryRegion, EnsuringNoItemsCommitsNothing) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<uint64_t> region(memoryManager);
    region.doEnsureEndAtLeast(0);
    region.initialize(100);
    region.doEnsureEndAtLeast(0);
    expectState(region, memoryManager, 0, 0);
}

TEST(MemoryRegion, ASmallerRequestNeverShrinks) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(100000);
    region.ensureEndAtLeast(50000);
    const size_t end = region.getEnd();
    const size_t committedBytes = region.getCommittedBytes();
    region.doEnsureEndAtLeast(1);
    region.doEnsureEndAtLeast(end);
    expectState(region, memoryManager, end, committedBytes);
}

TEST(MemoryRegion, GrowthBeyondTheCapacityNamesBothNumbersAndChangesNothing) {
    struct Row {
        const char* name;
        size_t maximum;
        size_t n;
    };
    const Row rows[] = {
        {"no capacity", 0, 1},
        {"one item more", 1000, 1001},
        {"one item more than whole pages", 512, 513},
        {"a size in bytes that wraps", 1000, std::numeric_limits<size_t>::max() / 8 + 2},
        {"the largest number", 1000, std::numeric_limits<size_t>::max()},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        MemoryManager memoryManager(AMPLE);
        MemoryRegion<uint64_t> region(memoryManager);
        region.initialize(row.maximum);
        const std::string message = "Failed to ensure that a memory region could hold " + std::to_string(row.n) +
                                    " items because it was initialized to hold at most " + std::to_string(row.maximum) +
                                    " items.";
        test::expectError(
            "Engine/core/platform/system/MemoryRegion", 242, message, [&] { region.doEnsureEndAtLeast(row.n); });
        test::expectError(
            "Engine/core/platform/system/MemoryRegion", 242, message, [&] { region.ensureEndAtLeast(row.n); });
        expectState(region, memoryManager, 0, 0);
        EXPECT_NO_THROW(region.ensureEndAtLeast(row.maximum));
        EXPECT_EQ(region.getEnd(), row.maximum);
    }
}

TEST(MemoryRegion, GrowthBeyondTheBudgetReportsTheBytesMissingAndChargesNothing) {
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(3 * page + 1);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(100 * page);
    region.ensureEndAtLeast(2 * page / 8);
    region[0] = 5;

    // Two more pages are needed, one and a byte are free.
    test::expectOutOfMemory(3 * page + 1, page + 1, 2 * page, [&] { region.ensureEndAtLeast(4 * page / 8); });

    expectState(region, memoryManager, 2 * page / 8, 2 * page);
    EXPECT_EQ(region[0], 5u);
    region.ensureEndAtLeast(3 * page / 8); // the lock is free, and what fits is still given
    expectState(region, memoryManager, 3 * page / 8, 3 * page);
    ASSERT_TRUE(memoryManager.trySetTotalBytes(5 * page));
    region.ensureEndAtLeast(4 * page / 8);
    expectState(region, memoryManager, 4 * page / 8, 4 * page);
}

TEST(MemoryRegion, ASizeThatCannotBeReservedLeavesTheRegionEmpty) {
    constexpr size_t LARGEST = std::numeric_limits<size_t>::max();
    const size_t page = getVMPageSize();
    struct Row {
        const char* name;
        size_t items;
        size_t reportedBytes;
    };
    const Row rows[] = {
        {"larger than the address space", size_t(1) << 58, size_t(1) << 62},
        {"the last size that rounds in 64 bits", (LARGEST - page + 1) / 16, LARGEST - page + 1},
        {"one item beyond that", (LARGEST - page + 1) / 16 + 1, LARGEST},
        {"wraps to zero", size_t(1) << 60, LARGEST},
        {"wraps to one page", (size_t(1) << 60) + page / 16, LARGEST},
        {"the largest number", LARGEST, LARGEST},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        MemoryManager memoryManager(AMPLE);
        MemoryRegion<Item16> region(memoryManager);
        region.initialize(1000);
        region.ensureEndAtLeast(1000);
        test::expectSystemCallError(
            "Engine/core/platform/system/MemoryRegion", 212, "mmap", ENOMEM,
            "An error occurred while reserving " + std::to_string(row.reportedBytes) + " bytes of address space.",
            [&] { region.initialize(row.items); });
        EXPECT_EQ(region.getData(), nullptr);
        EXPECT_EQ(region.getMaximumNumberOfItems(), 0u);
        expectState(region, memoryManager, 0, 0);
        region.initialize(1000);
        EXPECT_EQ(region.getMaximumNumberOfItems(), 1000u);
    }
}

TEST(MemoryRegion, InitialisingAgainReleasesTheOldContent) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(100000);
    region.ensureEndAtLeast(100000);
    std::memset(static_cast<void*>(region.getData()), 0xff, 800000);
    region.initialize(200);
    expectState(region, memoryManager, 0, 0);
    region.ensureEndAtLeast(200);
    EXPECT_TRUE(isZero(region));
    EXPECT_EQ(region.getEnd(), 200u);
}

TEST(MemoryRegion, DestructionReleasesEverything) {
    MemoryManager memoryManager(AMPLE);
    {
        MemoryRegion<uint64_t> region(memoryManager);
        region.initialize(100000);
        region.ensureEndAtLeast(70000);
        EXPECT_NE(memoryManager.getChargedBytes(), 0u);
    }
    EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
}

TEST(MemoryRegion, SwappedRegionsHaveExchangedContents) {
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<uint64_t> first(memoryManager);
    MemoryRegion<uint64_t> second(memoryManager);
    first.initialize(100000);
    first.ensureEndAtLeast(1);
    first[0] = 1;
    second.initialize(50000);
    second.ensureEndAtLeast(2 * page / 8);
    second[0] = 2;
    const uint64_t* const firstData = first.getData();

    first.swapContents(second);

    EXPECT_EQ(second.getData(), firstData);
    EXPECT_EQ(first[0], 2u);
    EXPECT_EQ(second[0], 1u);
    EXPECT_EQ(first.getEnd(), 2 * page / 8);
    EXPECT_EQ(second.getEnd(), page / 8);
    EXPECT_EQ(first.getMaximumNumberOfItems(), 50000u);
    EXPECT_EQ(second.getMaximumNumberOfItems(), 100000u);
    EXPECT_EQ(first.getCommittedBytes(), 2 * page);
    EXPECT_EQ(second.getCommittedBytes(), page);
    first.deinitialize();
    EXPECT_EQ(memoryManager.getChargedBytes(), page);
    second.ensureEndAtLeast(100000); // the capacity came along
    EXPECT_EQ(second[0], 1u);
}

TEST(MemoryRegion, ReachesAnItemThatSpansTwoPages) {
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<Item24> region(memoryManager);
    region.initialize(1000);
    region.ensureEndAtLeast(1);
    EXPECT_EQ(region.getEnd(), page / 24); // the item after it begins in the page but ends in the next
    region.ensureEndAtLeast(page / 24 + 1);
    expectState(region, memoryManager, 2 * page / 24, 2 * page);
    region[page / 24].m_words[2] = 9;
    EXPECT_EQ(region[page / 24].m_words[2], 9u);
}

}
