#include "core/platform/system/SpinLock.h"

#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>

namespace kavix {

TEST(SpinLock, OneThreadAtATimeHoldsIt) {
    const size_t rounds = 20000 / test::STRESS_DIVISOR;
    SpinLock lock;
    uint64_t counter = 0;
    test::runThreads(8, [&](size_t) {
        for (size_t round = 0; round < rounds; ++round) {
            const std::lock_guard<SpinLock> guard(lock);
            ++counter;
        }
    });
    EXPECT_EQ(counter, 8 * rounds);
}

}
