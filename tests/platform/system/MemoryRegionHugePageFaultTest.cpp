#include "core/platform/errors/SystemCallException.h"
#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/VMPageSize.h"
#include "support/FaultInjection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

namespace kavix {

using test::Call;
using test::Fault;
using test::FaultPoint;

namespace {

constexpr size_t HUGE = size_t(1) << 21;

}

TEST(MemoryRegionHugePage, EveryCallOfALifetimeMayFailAndLeavesTheRegionUnchanged) {
    const size_t page = getVMPageSize();
    for (const Call call : {Call::MMAP, Call::MPROTECT}) {
        const uint64_t failures = test::failEach(call, [&](FaultPoint& point) {
            MemoryManager memoryManager(64 * HUGE, true);
            MemoryRegion<uint8_t> region(memoryManager);
            const struct {
                std::function<void()> act;
                size_t end;
            } steps[] = {
                {[&] { region.initialize(5 * HUGE + 3 * page); }, 0},
                {[&] { region.ensureEndAtLeast(1); }, page},
                {[&] { region.ensureEndAtLeast(HUGE + 1); }, HUGE + page},
                {[&] { region.ensureEndAtLeast(3 * HUGE); }, 3 * HUGE},
                {[&] { region.truncate(HUGE + 1); }, HUGE + page}, // a refused decommit is not an error
                {[&] { region.ensureEndAtLeast(2 * HUGE + page); }, 2 * HUGE + page},
                {[&] { region.truncate(page + 7); }, 2 * page},
                {[&] { region.truncate(0); }, 0},
                {[&] { region.ensureEndAtLeast(5 * HUGE + 3 * page); }, 5 * HUGE + 3 * page},
            };
            const Fault fault(point);
            std::vector<uint8_t> model;
            for (const auto& step : steps) {
                const size_t endBefore = region.getEnd();
                try {
                    step.act();
                }
                catch (const SystemCallException& exception) {
                    EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
                    ASSERT_EQ(region.getEnd(), endBefore);
                    ASSERT_EQ(region.getCommittedBytes(), endBefore);
                    ASSERT_EQ(memoryManager.getChargedBytes(), endBefore);
                    ASSERT_TRUE(std::equal(model.begin(), model.end(), region.getData()));
                    step.act();
                }
                ASSERT_EQ(region.getEnd(), step.end);
                ASSERT_EQ(region.getCommittedBytes(), step.end);
                ASSERT_EQ(memoryManager.getChargedBytes(), step.end);
                if (step.end < endBefore)
                    std::fill(
                        model.begin() + static_cast<ptrdiff_t>(
                                            &step == &steps[4]   ? HUGE + 1
                                            : &step == &steps[6] ? page + 7
                                                                 : 0),
                        model.end(), uint8_t(0));
                model.resize(step.end, 0); // new bytes are zero, whether they are new pages or kept ones
                ASSERT_TRUE(std::equal(model.begin(), model.end(), region.getData()));
                std::fill(model.begin(), model.end(), uint8_t(&step - steps + 1));
                if (!model.empty())
                    std::memcpy(region.getData(), model.data(), model.size());
            }
        });
        EXPECT_EQ(failures, call == Call::MMAP ? 4u : 5u); // a reservation and three truncations; five growths
    }
}

}
