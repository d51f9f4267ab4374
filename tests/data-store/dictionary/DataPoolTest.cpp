#include "core/data-store/dictionary/DataPool.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/system/VMPageSize.h"
#include "support/ExpectError.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

namespace {

constexpr uint64_t AMPLE = uint64_t(1) << 40;

std::string getCapacityMessage(uint64_t requested, uint64_t maximum) {
    return "Failed to ensure that a memory region could hold " + std::to_string(requested) +
           " items because it was initialized to hold at most " + std::to_string(maximum) + " items.";
}

}

TEST(DataPool, GivesConsecutiveZeroedBlocksAboveTheReservedOffsets) {
    MemoryManager memoryManager(AMPLE);
    DataPool pool(memoryManager);
    pool.initialize(1 << 20);
    EXPECT_EQ(pool.getEnd(), DataPool::FIRST_OFFSET);
    EXPECT_EQ(pool.getCommittedBytes(), 0u);
    uint64_t expectedOffset = DataPool::FIRST_OFFSET;
    for (const uint64_t size : {uint64_t(1), uint64_t(13), uint64_t(17), uint64_t(4096), uint64_t(65536 + 17)}) {
        uint64_t end = 0;
        const uint64_t offset = pool.allocate(size, end);
        EXPECT_EQ(offset, expectedOffset);
        EXPECT_EQ(end, offset + size);
        EXPECT_EQ(pool.getEnd(), end);
        EXPECT_GE(pool.getCommittedBytes(), end);
        uint8_t* const block = pool.getBase() + offset;
        EXPECT_TRUE(std::all_of(block, block + size, [](uint8_t byte) { return byte == 0; }));
        std::memset(block, 0xff, size);
        expectedOffset = end;
    }
    EXPECT_EQ(memoryManager.getChargedBytes(), pool.getCommittedBytes());
}

TEST(DataPool, NeverMovesWhileItGrows) {
    MemoryManager memoryManager(AMPLE);
    DataPool pool(memoryManager);
    pool.initialize(1 << 24);
    const uint8_t* const base = pool.getBase();
    uint64_t end;
    while (pool.getEnd() + 50000 <= 1 << 24) {
        pool.allocate(50000, end);
        ASSERT_EQ(pool.getBase(), base);
    }
}

TEST(DataPool, GivesItsLastByteAndNotOneMore) {
    MemoryManager memoryManager(AMPLE);
    DataPool pool(memoryManager);
    pool.initialize(1000);
    uint64_t end = 5;
    test::expectError("Engine/core/platform/system/MemoryRegion", 242, getCapacityMessage(1001, 1000), [&] {
        pool.allocate(1001 - DataPool::FIRST_OFFSET, end);
    });
    EXPECT_EQ(end, 5u);
    EXPECT_EQ(pool.getEnd(), DataPool::FIRST_OFFSET);
    EXPECT_THROW(pool.allocate(std::numeric_limits<uint64_t>::max(), end), KavixException); // offset plus size wraps
    EXPECT_THROW(
        pool.allocate(std::numeric_limits<uint64_t>::max() - DataPool::FIRST_OFFSET + 1, end),
        KavixException); // wraps to 0
    EXPECT_EQ(pool.allocate(1000 - DataPool::FIRST_OFFSET, end), DataPool::FIRST_OFFSET);
    EXPECT_EQ(end, 1000u);
    EXPECT_THROW(pool.allocate(1, end), KavixException);
    EXPECT_EQ(end, 1000u);
    EXPECT_EQ(pool.getEnd(), 1000u);
}

TEST(DataPool, APoolWithoutCapacityRefusesEveryBlock) {
    for (const uint64_t capacity : {uint64_t(0), uint64_t(1), uint64_t(63), uint64_t(64)}) {
        SCOPED_TRACE(capacity);
        MemoryManager memoryManager(AMPLE);
        DataPool pool(memoryManager);
        pool.initialize(capacity);
        uint64_t end;
        EXPECT_THROW(pool.allocate(1, end), KavixException);
        EXPECT_THROW(pool.allocate(65536, end), KavixException);
        EXPECT_EQ(pool.getEnd(), DataPool::FIRST_OFFSET);
    }
}

TEST(DataPool, ABlockThatTheBudgetRefusesIsNotAllocated) {
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(2 * page);
    DataPool pool(memoryManager);
    pool.initialize(100 * page);
    uint64_t end = 0;
    EXPECT_EQ(pool.allocate(10, end), DataPool::FIRST_OFFSET);
    test::expectOutOfMemory(2 * page, page, 2 * page, [&] { pool.allocate(2 * page, end); });
    EXPECT_EQ(end, DataPool::FIRST_OFFSET + 10);
    EXPECT_EQ(pool.getEnd(), end);
    EXPECT_EQ(memoryManager.getChargedBytes(), page);
    ASSERT_TRUE(memoryManager.trySetTotalBytes(3 * page));
    EXPECT_EQ(pool.allocate(2 * page, end), DataPool::FIRST_OFFSET + 10);
}

TEST(DataPool, InitialisingMakesItEmpty) {
    MemoryManager memoryManager(AMPLE);
    DataPool pool(memoryManager);
    pool.initialize(1 << 20);
    uint64_t end;
    std::memset(pool.getBase() + pool.allocate(5000, end), 0xff, 5000);
    pool.initialize(1 << 20);
    EXPECT_EQ(pool.getEnd(), DataPool::FIRST_OFFSET);
    EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
    EXPECT_EQ(pool.allocate(5000, end), DataPool::FIRST_OFFSET);
    EXPECT_EQ(pool.getBase()[DataPool::FIRST_OFFSET], 0);
}

TEST(DataPool, ThreadsGetBlocksThatDoNotOverlap) {
    constexpr size_t NUMBER_OF_THREADS = 8;
    constexpr size_t BLOCKS_PER_THREAD = 500;
    MemoryManager memoryManager(AMPLE);
    DataPool pool(memoryManager);
    pool.initialize(1 << 24);
    std::vector<std::vector<std::pair<uint64_t, uint64_t>>> blocks(NUMBER_OF_THREADS);
    test::runThreads(NUMBER_OF_THREADS, [&](size_t threadIndex) {
        for (size_t index = 0; index < BLOCKS_PER_THREAD; ++index) {
            const uint64_t size = 1 + (index * 37 + threadIndex) % 200;
            uint64_t end;
            const uint64_t offset = pool.allocate(size, end);
            ASSERT_EQ(end, offset + size);
            std::memset(pool.getBase() + offset, static_cast<int>(threadIndex + 1), size);
            blocks[threadIndex].emplace_back(offset, end);
        }
    });
    std::vector<std::pair<uint64_t, uint64_t>> all;
    for (size_t threadIndex = 0; threadIndex < NUMBER_OF_THREADS; ++threadIndex)
        for (const auto& [offset, end] : blocks[threadIndex]) {
            all.emplace_back(offset, end);
            for (uint64_t position = offset; position < end; ++position)
                ASSERT_EQ(pool.getBase()[position], threadIndex + 1);
        }
    std::sort(all.begin(), all.end());
    uint64_t expectedOffset = DataPool::FIRST_OFFSET;
    for (const auto& [offset, end] : all) {
        ASSERT_EQ(offset, expectedOffset);
        expectedOffset = end;
    }
    EXPECT_EQ(pool.getEnd(), expectedOffset);
}

}
