#include "core/platform/system/MemoryRegion.h"

#include "core/platform/errors/SystemCallException.h"
#include "core/platform/stream/MemoryInputStream.h"
#include "core/platform/system/VMPageSize.h"
#include "support/Bytes.h"
#include "support/ExpectError.h"
#include "support/FaultInjection.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace kavix {

using test::Call;
using test::Fault;
using test::FaultPoint;

namespace {

constexpr const char* COMMIT_MESSAGE =
    "An error occurred during memory allocation. This is most likely due to the system running out of memory.";

}

TEST(MemoryRegion, ARefusedCommitReturnsTheChargeAndFreesTheLock) {
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(10 * page);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(page);
    region.ensureEndAtLeast(1);
    region[0] = 3;
    for (const int errorNumber : {ENOMEM, EACCES}) {
        const Fault fault(Call::MPROTECT, 1, errorNumber);
        test::expectSystemCallError(
            "Engine/core/platform/system/MemoryRegion", 167, "mprotect", errorNumber, COMMIT_MESSAGE,
            [&] { region.ensureEndAtLeast(3 * page / 8); });
        EXPECT_TRUE(fault.wasHit());
        EXPECT_EQ(region.getEnd(), page / 8);
        EXPECT_EQ(region.getCommittedBytes(), page);
        EXPECT_EQ(memoryManager.getChargedBytes(), page);
        EXPECT_EQ(region[0], 3u);
    }
    region.ensureEndAtLeast(3 * page / 8);
    EXPECT_EQ(memoryManager.getChargedBytes(), 3 * page);
}

TEST(MemoryRegion, ARefusedReservationLeavesTheRegionEmpty) {
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(10 * page);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(page);
    region.ensureEndAtLeast(1);
    {
        const Fault fault(Call::MMAP, 1, EAGAIN);
        test::expectSystemCallError(
            "Engine/core/platform/system/MemoryRegion", 212, "mmap", EAGAIN,
            "An error occurred while reserving " + std::to_string(2 * page) + " bytes of address space.",
            [&] { region.initialize(page / 8 + 1); });
    }
    EXPECT_EQ(region.getData(), nullptr);
    EXPECT_EQ(region.getEnd(), 0u);
    EXPECT_EQ(region.getMaximumNumberOfItems(), 0u);
    EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
    region.initialize(page);
    region.ensureEndAtLeast(page);
    EXPECT_EQ(region.getEnd(), page);
}

TEST(MemoryRegion, EveryCallOfALifetimeMayFailAndTheRetrySucceeds) {
    const size_t page = getVMPageSize();
    std::string image;
    {
        MemoryManager memoryManager(100 * page);
        MemoryRegion<uint64_t> region(memoryManager);
        region.initialize(3 * page);
        region.ensureEndAtLeast(1000);
        image = test::saveToBytes(region);
    }
    for (const Call call : {Call::MMAP, Call::MPROTECT}) {
        const uint64_t failures = test::failEach(call, [&](FaultPoint& point) {
            MemoryManager memoryManager(100 * page);
            MemoryRegion<uint64_t> region(memoryManager);
            const std::vector<std::function<void()>> steps = {
                [&] { region.initialize(4 * page); },
                [&] { region.ensureEndAtLeast(1); },
                [&] { region.ensureEndAtLeast(4 * page); },
                [&] { region.truncate(page); }, // a refused decommit is not an error
                [&] { region.ensureEndAtLeast(2 * page); },
                [&] {
                    MemoryInputStream input(image);
                    region.load(input);
                },
                [&] { region.ensureEndAtLeast(3 * page); },
                [&] { region.initialize(page); },
                [&] { region.ensureEndAtLeast(page); },
            };
            const Fault fault(point);
            for (const std::function<void()>& step : steps) {
                const size_t endBefore = region.getEnd();
                try {
                    step();
                }
                catch (const SystemCallException&) {
                    EXPECT_EQ(memoryManager.getChargedBytes(), region.getCommittedBytes());
                    EXPECT_TRUE(region.getEnd() == endBefore || region.getEnd() == 0);
                    step();
                }
                ASSERT_EQ(memoryManager.getChargedBytes(), region.getCommittedBytes());
                ASSERT_EQ(region.getCommittedBytes(), (region.getEnd() * 8 + page - 1) / page * page);
            }
            EXPECT_EQ(region.getEnd(), page);
        });
        EXPECT_GE(failures, 3u);
    }
}

}
