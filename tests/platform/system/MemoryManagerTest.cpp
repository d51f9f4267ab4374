#include "core/platform/system/MemoryManager.h"
#include "support/ExpectError.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace kavix {

TEST(MemoryManager, ChargingTakesFreeBytesAndReleasingReturnsThem) {
    MemoryManager memoryManager(1000);
    EXPECT_EQ(memoryManager.getTotalBytes(), 1000u);
    EXPECT_EQ(memoryManager.getFreeBytes(), 1000u);

    memoryManager.charge(300);
    EXPECT_EQ(memoryManager.getFreeBytes(), 700u);
    EXPECT_EQ(memoryManager.getChargedBytes(), 300u);
    memoryManager.charge(700);
    EXPECT_EQ(memoryManager.getFreeBytes(), 0u);
    memoryManager.release(1000);
    EXPECT_EQ(memoryManager.getFreeBytes(), 1000u);
    EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
    EXPECT_EQ(memoryManager.getTotalBytes(), 1000u);
}

TEST(MemoryManager, AChargeBeyondTheFreeBytesTakesNothingAndReportsTheNumbers) {
    constexpr uint64_t LARGEST = std::numeric_limits<uint64_t>::max();
    struct Row {
        const char* name;
        uint64_t total;
        uint64_t charged;
        uint64_t requested;
    };
    const Row rows[] = {
        {"one byte of an empty budget", 0, 0, 1},         {"one byte more than the budget", 100, 0, 101},
        {"one byte more than what is free", 100, 60, 41}, {"one byte when all is charged", 100, 100, 1},
        {"the largest number", 100, 1, LARGEST},          {"the largest budget, in use", LARGEST, 1, LARGEST},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        MemoryManager memoryManager(row.total);
        memoryManager.charge(row.charged);
        test::expectOutOfMemory(
            row.total, row.total - row.charged, row.requested, [&] { memoryManager.charge(row.requested); });
        EXPECT_EQ(memoryManager.getFreeBytes(), row.total - row.charged);
        EXPECT_NO_THROW(memoryManager.charge(row.requested - 1 <= row.total - row.charged ? row.requested - 1 : 0));
    }
}

TEST(MemoryManager, ChargingNothingAlwaysSucceeds) {
    MemoryManager memoryManager(0);
    EXPECT_NO_THROW(memoryManager.charge(0));
    EXPECT_EQ(memoryManager.getFreeBytes(), 0u);
}

TEST(MemoryManager, ItsSizeCanChangeDownToWhatIsCharged) {
    struct Row {
        const char* name;
        uint64_t newTotal;
        bool succeeds;
    };
    const Row rows[] = {
        {"grows", 2000, true},
        {"keeps its size", 1000, true},
        {"shrinks", 999, true},
        {"shrinks to the charge", 400, true},
        {"would shrink below the charge", 399, false},
        {"would shrink to nothing", 0, false},
        {"grows to the limit", std::numeric_limits<uint64_t>::max(), true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        MemoryManager memoryManager(1000);
        memoryManager.charge(400);
        EXPECT_EQ(memoryManager.trySetTotalBytes(row.newTotal), row.succeeds);
        const uint64_t total = row.succeeds ? row.newTotal : 1000;
        EXPECT_EQ(memoryManager.getTotalBytes(), total);
        EXPECT_EQ(memoryManager.getFreeBytes(), total - 400);
        EXPECT_EQ(memoryManager.getChargedBytes(), 400u);
    }
}

TEST(MemoryCharge, ReleasesTheBytesUnlessTheyAreKept) {
    MemoryManager memoryManager(1000);
    {
        const MemoryCharge charge(memoryManager, 600);
        EXPECT_EQ(memoryManager.getFreeBytes(), 400u);
    }
    EXPECT_EQ(memoryManager.getFreeBytes(), 1000u);
    {
        MemoryCharge charge(memoryManager, 600);
        charge.keep();
    }
    EXPECT_EQ(memoryManager.getFreeBytes(), 400u);
}

TEST(MemoryCharge, TakesNothingWhenTheBudgetIsShort) {
    MemoryManager memoryManager(1000);
    test::expectOutOfMemory(1000, 1000, 1001, [&] { const MemoryCharge charge(memoryManager, 1001); });
    EXPECT_EQ(memoryManager.getFreeBytes(), 1000u);
}

}
