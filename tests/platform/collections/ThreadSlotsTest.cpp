#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/collections/ThreadContext.h"
#include "support/ExpectError.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <pthread.h>
#include <set>
#include <thread>
#include <vector>

namespace kavix {

TEST(ThreadSlots, AThreadKeepsItsSlotAndReleasesItWhenItEnds) {
    const size_t takenBefore = ThreadSlots::getNumberOfTakenSlots();
    std::thread([&] {
        EXPECT_EQ(s_currentThreadContextIndex, NO_THREAD_SLOT);
        ThreadSlots::ensureSlot();
        const size_t slot = s_currentThreadContextIndex;
        EXPECT_LT(slot, NUMBER_OF_THREAD_SLOTS);
        EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore + 1);
        ThreadSlots::ensureSlot();
        EXPECT_EQ(s_currentThreadContextIndex, slot);
        EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore + 1);
    }).join();
    EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore);
}

TEST(ThreadSlots, LiveThreadsHaveSlotsOfTheirOwn) {
    const size_t takenBefore = ThreadSlots::getNumberOfTakenSlots();
    const size_t numberOfThreads = test::getNumberOfFreeSlots();
    std::vector<size_t> slots(numberOfThreads);
    std::atomic<size_t> numberOfThreadsDone{0};
    test::runThreads(numberOfThreads, [&](size_t threadIndex) {
        slots[threadIndex] = s_currentThreadContextIndex;
        ++numberOfThreadsDone;
        test::waitUntil([&] { return numberOfThreadsDone == numberOfThreads; });
    });
    EXPECT_EQ(std::set<size_t>(slots.begin(), slots.end()).size(), numberOfThreads);
    for (const size_t slot : slots)
        EXPECT_LT(slot, NUMBER_OF_THREAD_SLOTS);
    EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore);
}

TEST(ThreadSlots, OneThreadTooManyIsRefusedAndTheOthersContinue) {
    const size_t takenBefore = ThreadSlots::getNumberOfTakenSlots();
    const size_t numberOfThreads = test::getNumberOfFreeSlots();
    std::atomic<bool> isOver{false};
    test::runThreads(numberOfThreads, [&](size_t threadIndex) {
        if (threadIndex != 0)
            return test::waitUntil([&] { return isOver.load(); });
        std::thread([] {
            for (int attempt = 0; attempt < 2; ++attempt) {
                test::expectError(
                    "Engine/core/platform/collections/ThreadSlots", 70,
                    "At most 256 threads can use dictionaries at the same time; wait until one of them has ended.",
                    [] { ThreadSlots::ensureSlot(); });
                EXPECT_EQ(s_currentThreadContextIndex, NO_THREAD_SLOT);
            }
        }).join();
        EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), NUMBER_OF_THREAD_SLOTS);
        EXPECT_LT(s_currentThreadContextIndex, NUMBER_OF_THREAD_SLOTS);
        isOver = true;
    });
    EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore);
    test::runThreads(
        1, [&](size_t) { EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore + 1); }); // room again
}

TEST(ThreadSlots, AThreadRefusedOnceGetsTheSlotOfOneThatEnded) {
    const size_t numberOfThreads = test::getNumberOfFreeSlots() - 1;
    test::runThreads(1, [&](size_t) {
        std::atomic<bool> isRefused{false};
        std::thread late;
        test::runThreads(numberOfThreads, [&](size_t threadIndex) {
            if (threadIndex == 0) {
                // All slots are taken now: by these threads and by the one that waits for them.
                late = std::thread([&] {
                    EXPECT_THROW(ThreadSlots::ensureSlot(), KavixException);
                    isRefused = true;
                    test::waitUntil([] { return test::getNumberOfFreeSlots() != 0; });
                    ThreadSlots::ensureSlot();
                    EXPECT_LT(s_currentThreadContextIndex, NUMBER_OF_THREAD_SLOTS);
                });
            }
            test::waitUntil([&] { return isRefused.load(); });
        });
        late.join();
    });
}

namespace {

/// Uses the slot of its thread when it is destroyed.
struct LateUser {

    size_t* m_slotSeen = nullptr;

    ~LateUser() {
        if (m_slotSeen != nullptr) {
            ThreadSlots::ensureSlot();
            *m_slotSeen = s_currentThreadContextIndex;
        }
    }
};

}

TEST(ThreadSlots, AThreadLocalDestructorStillFindsTheSlotOfItsThread) {
    const size_t takenBefore = ThreadSlots::getNumberOfTakenSlots();
    size_t slot = NO_THREAD_SLOT;
    size_t slotSeenLate = NO_THREAD_SLOT;
    std::thread([&] {
        static thread_local LateUser s_lateUser; // constructed before the slot is taken, so destroyed late
        s_lateUser.m_slotSeen = &slotSeenLate;
        ThreadSlots::ensureSlot();
        slot = s_currentThreadContextIndex;
    }).join();
    EXPECT_NE(slot, NO_THREAD_SLOT);
    EXPECT_EQ(slotSeenLate, slot);
    EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore);
}

TEST(ThreadSlots, AThreadLocalDestructorMayBeTheFirstUser) {
    const size_t takenBefore = ThreadSlots::getNumberOfTakenSlots();
    size_t slotSeenLate = NO_THREAD_SLOT;
    std::thread([&] {
        static thread_local LateUser s_lateUser;
        s_lateUser.m_slotSeen = &slotSeenLate;
    }).join();
    EXPECT_LT(slotSeenLate, NUMBER_OF_THREAD_SLOTS);
    EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore);
}

TEST(ThreadSlots, ASlotTakenAgainAfterItsReleaseIsReleasedToo) {
    // Keys are destroyed in the order of their creation: this one after that of the slots.
    test::runThreads(1, [](size_t) {});
    static size_t s_slotSeenLate;
    s_slotSeenLate = NO_THREAD_SLOT;
    pthread_key_t key;
    ASSERT_EQ(
        ::pthread_key_create(
            &key,
            [](void*) {
                EXPECT_EQ(s_currentThreadContextIndex, NO_THREAD_SLOT);
                ThreadSlots::ensureSlot();
                s_slotSeenLate = s_currentThreadContextIndex;
            }),
        0);
    const size_t takenBefore = ThreadSlots::getNumberOfTakenSlots();
    std::thread([&] {
        ThreadSlots::ensureSlot();
        EXPECT_EQ(::pthread_setspecific(key, &key), 0);
    }).join();
    EXPECT_LT(s_slotSeenLate, NUMBER_OF_THREAD_SLOTS);
    EXPECT_EQ(ThreadSlots::getNumberOfTakenSlots(), takenBefore);
    ::pthread_key_delete(key);
}

}
