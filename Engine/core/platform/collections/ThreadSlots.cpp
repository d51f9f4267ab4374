#include "core/platform/collections/ThreadSlots.h"

#include "core/platform/errors/ErrorCatalogue.h"

#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <pthread.h>

namespace kavix {

namespace {

constexpr size_t SLOTS_PER_WORD = 64;

/// A set bit means a taken slot.
std::atomic<uint64_t> s_takenSlots[NUMBER_OF_THREAD_SLOTS / SLOTS_PER_WORD];

size_t tryTakeFreeSlot() noexcept {
    for (size_t wordIndex = 0; wordIndex < NUMBER_OF_THREAD_SLOTS / SLOTS_PER_WORD; ++wordIndex) {
        std::atomic<uint64_t>& word = s_takenSlots[wordIndex];
        uint64_t taken = word.load(std::memory_order_relaxed); // the exchange below synchronises
        while (taken != UINT64_MAX) {
            const int bit = std::countr_one(taken);
            // Acquire. Pairs with the release in giveSlotBack(): we observe what the previous owner left in the slot.
            if (word.compare_exchange_weak(
                    taken, taken | (uint64_t(1) << bit), std::memory_order_acquire, std::memory_order_relaxed))
                return wordIndex * SLOTS_PER_WORD + static_cast<size_t>(bit);
        }
    }
    return NO_THREAD_SLOT;
}

void giveSlotBack(size_t slot) noexcept {
    // Release. Pairs with the acquire in tryTakeFreeSlot().
    s_takenSlots[slot / SLOTS_PER_WORD].fetch_and(~(uint64_t(1) << (slot % SLOTS_PER_WORD)), std::memory_order_release);
}

/// Reports the end of a thread. Its destructors run after those of thread_local objects, and again if they use a
/// dictionary themselves, so a slot is not used after it was returned.
struct ThreadEndKey {

    pthread_key_t m_key;
    int m_errorNumber;

    ThreadEndKey() noexcept :
        m_key(),
        m_errorNumber(::pthread_key_create(&m_key, &onThreadEnd)) { }

    static void onThreadEnd(void*) noexcept {
        const size_t slot = s_currentThreadContextIndex;
        s_currentThreadContextIndex = NO_THREAD_SLOT;
        giveSlotBack(slot);
    }
};

}

size_t ThreadSlots::getNumberOfTakenSlots() noexcept {
    size_t result = 0;
    for (const std::atomic<uint64_t>& word : s_takenSlots)
        result += static_cast<size_t>(std::popcount(word.load(std::memory_order_relaxed))); // informative only
    return result;
}

void ThreadSlots::takeSlot() {
    static const ThreadEndKey s_threadEndKey;
    if (s_threadEndKey.m_errorNumber != 0)
        Errors::throwCannotWatchThreadEnd("pthread_key_create", s_threadEndKey.m_errorNumber);
    const size_t slot = tryTakeFreeSlot();
    if (slot == NO_THREAD_SLOT)
        Errors::throwThreadSlotsExhausted(NUMBER_OF_THREAD_SLOTS);
    // Any non-null value makes the system call onThreadEnd.
    const int errorNumber = ::pthread_setspecific(s_threadEndKey.m_key, &s_takenSlots[0]);
    if (errorNumber != 0) {
        giveSlotBack(slot);
        Errors::throwCannotWatchThreadEnd("pthread_setspecific", errorNumber);
    }
    s_currentThreadContextIndex = slot;
}

}
