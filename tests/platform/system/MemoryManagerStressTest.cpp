#include "core/platform/system/MemoryManager.h"

#include "core/platform/errors/KavixException.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <random>

namespace kavix {

TEST(MemoryManager, ThreadsNeverChargeMoreThanTheBudget) {
    constexpr size_t NUMBER_OF_THREADS = 8;
    const size_t rounds = 100000 / test::STRESS_DIVISOR;
    constexpr uint64_t TOTAL = 1000;
    MemoryManager memoryManager(TOTAL);
    std::atomic<uint64_t> charged{0};
    test::runThreads(NUMBER_OF_THREADS, [&](size_t threadIndex) {
        std::mt19937_64 random(threadIndex);
        for (size_t round = 0; round < rounds; ++round) {
            const uint64_t numberOfBytes = random() % 400;
            try {
                memoryManager.charge(numberOfBytes);
            }
            catch (const KavixException&) {
                continue;
            }
            ASSERT_LE(charged.fetch_add(numberOfBytes) + numberOfBytes, TOTAL);
            charged.fetch_sub(numberOfBytes);
            memoryManager.release(numberOfBytes);
        }
    });
    EXPECT_EQ(memoryManager.getFreeBytes(), TOTAL);
}

TEST(MemoryManager, ThreadsThatRaceForTheLastBytesGetThemExactlyOnce) {
    constexpr size_t NUMBER_OF_THREADS = 8;
    constexpr uint64_t PIECE = 7;
    constexpr uint64_t NUMBER_OF_PIECES = 5000;
    MemoryManager memoryManager(PIECE * NUMBER_OF_PIECES + PIECE - 1);
    std::atomic<uint64_t> successes{0};
    test::runThreads(NUMBER_OF_THREADS, [&](size_t) {
        try {
            for (;;) {
                memoryManager.charge(PIECE);
                ++successes;
            }
        }
        catch (const KavixException&) {
        }
    });
    EXPECT_EQ(successes, NUMBER_OF_PIECES);
    EXPECT_EQ(memoryManager.getFreeBytes(), PIECE - 1);
}

TEST(MemoryManager, TheSizeMayChangeWhileOthersCharge) {
    constexpr size_t NUMBER_OF_THREADS = 4;
    const size_t rounds = 50000 / test::STRESS_DIVISOR;
    MemoryManager memoryManager(1000);
    test::runThreads(NUMBER_OF_THREADS, [&](size_t threadIndex) {
        std::mt19937_64 random(threadIndex);
        for (size_t round = 0; round < rounds; ++round) {
            if (threadIndex < 2)
                memoryManager.trySetTotalBytes(random() % 3000);
            else {
                const uint64_t numberOfBytes = random() % 500;
                try {
                    memoryManager.charge(numberOfBytes);
                    memoryManager.release(numberOfBytes);
                }
                catch (const KavixException&) {
                }
            }
        }
    });
    EXPECT_EQ(memoryManager.getFreeBytes(), memoryManager.getTotalBytes());
}

}
