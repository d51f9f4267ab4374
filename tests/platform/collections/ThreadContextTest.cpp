#include "core/platform/collections/ThreadContext.h"

#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace kavix {

TEST(ThreadContext, StartsWithoutReservationAndFillsItsLine) {
    ThreadContext contexts[2];
    EXPECT_EQ(contexts[0].getFreeReservation(), 0u);
    contexts[0].setFreeReservation(99);
    EXPECT_EQ(contexts[0].getFreeReservation(), 99u);
    EXPECT_EQ(contexts[1].getFreeReservation(), 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&contexts[0]) % 128, 0u);
}

namespace {

/// How many hold a context or wait for it. Its first word; there is no operation for it, since only tests need to know.
uint32_t getEntryCount(const ThreadContext& context) {
    return reinterpret_cast<const std::atomic<uint32_t>*>(&context)->load(std::memory_order_acquire);
}

}

TEST(ThreadContext, AContextIsHandedOverToOneWaitingThreadAfterTheOther) {
    // What an old leader that is still releasing, the owner, and the leader of the next resize can cause.
    ThreadContext context;
    std::atomic<int> numberInside{0};
    std::atomic<int> numberOfVisits{0};
    context.enter();
    EXPECT_EQ(getEntryCount(context), 1u);
    test::runThreads(3, [&](size_t threadIndex) {
        if (threadIndex == 0) {
            test::waitUntil([&] { return getEntryCount(context) == 3; });
            EXPECT_EQ(numberOfVisits, 0);
            context.leave();
        }
        else {
            context.enter();
            EXPECT_EQ(++numberInside, 1);
            ++numberOfVisits;
            test::letOthersRun();
            --numberInside;
            context.leave();
        }
    });
    EXPECT_EQ(numberOfVisits, 2);
    EXPECT_EQ(getEntryCount(context), 0u);
}

TEST(ThreadContext, OneThreadAtATimeHoldsIt) {
    ThreadContext context;
    uint64_t counter = 0; // guarded by the context
    constexpr size_t ROUNDS = 300;
    test::runThreads(6, [&](size_t) {
        for (size_t round = 0; round < ROUNDS; ++round) {
            context.enter();
            ++counter;
            if (round % 16 == 0)
                std::this_thread::yield(); // let the others queue up
            context.leave();
        }
    });
    EXPECT_EQ(counter, 6 * ROUNDS);
    EXPECT_EQ(getEntryCount(context), 0u);
}

}
