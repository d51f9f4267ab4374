#include "core/platform/errors/KavixException.h"
#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/VMPageSize.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace kavix {

TEST(MemoryRegion, EightThreadsGrowOneRegionAndTheChargeIsExact) {
    constexpr size_t NUMBER_OF_THREADS = 8;
    const size_t page = getVMPageSize();
    const size_t perPage = page / sizeof(uint64_t);
    for (size_t round = 0; round < 20; ++round) {
        const size_t numberOfPages = 1000 / test::STRESS_DIVISOR;
        MemoryManager memoryManager(numberOfPages * page); // not a byte more than they need
        MemoryRegion<uint64_t> region(memoryManager);
        region.initialize(numberOfPages * perPage);
        test::runThreads(NUMBER_OF_THREADS, [&](size_t threadIndex) {
            for (size_t pageIndex = 0; pageIndex < numberOfPages; ++pageIndex) {
                const size_t index = pageIndex * perPage + threadIndex;
                region.ensureEndAtLeast(index + 1);
                ASSERT_GE(region.getEnd(), index + 1);
                ASSERT_EQ(region[index], 0u);
                region[index] = index; // usable at once, no matter which thread grew the region
            }
        });
        ASSERT_EQ(region.getEnd(), numberOfPages * perPage);
        ASSERT_EQ(region.getCommittedBytes(), numberOfPages * page);
        ASSERT_EQ(memoryManager.getFreeBytes(), 0u);
        for (size_t pageIndex = 0; pageIndex < numberOfPages; ++pageIndex)
            for (size_t threadIndex = 0; threadIndex < NUMBER_OF_THREADS; ++threadIndex)
                ASSERT_EQ(region[pageIndex * perPage + threadIndex], pageIndex * perPage + threadIndex);
    }
}

TEST(MemoryRegion, AReaderUsesEverythingBelowTheEndThatItObserves) {
    const size_t page = getVMPageSize();
    const size_t numberOfPages = 2000 / test::STRESS_DIVISOR;
    MemoryManager memoryManager(numberOfPages * page);
    MemoryRegion<std::atomic<uint8_t>> region(memoryManager);
    region.initialize(numberOfPages * page);
    test::runThreads(4, [&](size_t threadIndex) {
        if (threadIndex == 0)
            for (size_t n = 1; n <= numberOfPages * page; n += page)
                region.ensureEndAtLeast(n);
        else
            for (size_t end = 0; end < numberOfPages * page;) {
                end = region.getEnd();
                if (end != 0) {
                    ASSERT_EQ(region[end - 1].load(std::memory_order_relaxed), 0);
                }
            }
    });
}

TEST(MemoryRegion, RegionsThatShareAShortBudgetChargeWhatTheyCommit) {
    constexpr size_t NUMBER_OF_THREADS = 8;
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(100 * page + page / 2);
    std::vector<std::unique_ptr<MemoryRegion<uint8_t>>> regions;
    for (size_t index = 0; index < 3; ++index) {
        regions.push_back(std::make_unique<MemoryRegion<uint8_t>>(memoryManager));
        regions.back()->initialize(1000 * page);
    }
    std::atomic<size_t> failures{0};
    test::runThreads(NUMBER_OF_THREADS, [&](size_t threadIndex) {
        std::mt19937_64 random(threadIndex);
        for (size_t round = 0; round < 2000 / test::STRESS_DIVISOR; ++round) {
            MemoryRegion<uint8_t>& region = *regions[random() % regions.size()];
            const size_t n = region.getEnd() + 1 + random() % (3 * page);
            try {
                region.ensureEndAtLeast(n);
                region[n - 1] = 0;
            }
            catch (const KavixException&) {
                ++failures;
            }
        }
    });
    size_t committedBytes = 0;
    for (const auto& region : regions)
        committedBytes += region->getCommittedBytes();
    EXPECT_EQ(memoryManager.getChargedBytes(), committedBytes);
    EXPECT_NE(failures, 0u);
    EXPECT_GE(committedBytes, 97 * page); // requests of up to four pages failed only near the end
}

}
