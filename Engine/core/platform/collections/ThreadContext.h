#pragma once

#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <pthread.h>

namespace kavix {

/// How many threads may use tables at the same time.
inline constexpr size_t NUMBER_OF_THREAD_SLOTS = 256;

/// The value of s_currentThreadContextIndex in a thread that has no slot.
inline constexpr size_t NO_THREAD_SLOT = NUMBER_OF_THREAD_SLOTS;

/// The slot of the calling thread in every table, assigned by ThreadSlots. Two threads never have the same one.
inline constinit thread_local size_t s_currentThreadContextIndex = NO_THREAD_SLOT;

/// One thread's slot in one table. Its thread enters it for every lookup and insertion; a thread that resizes the table
/// (the leader) stops every other thread by holding their slots.
///
///   entry count:  0 not held; 1 held, by its thread or by a leader; 2 held and one waits; 3 held and two wait: an old
///                 leader is still releasing, the owner waits, and the leader of the next resize is stopping
///   A thread that adds 1 to 0 holds the slot. A thread that finds more waits until a holder hands it over: a holder
///   that leaves at 2 or more sets the released flag and wakes one waiting thread, which clears the flag and holds the
///   slot.
///
/// Orders    entry count: acquire on entry, release on leaving; a thread that stops a slot observes what its thread did
///           inside, and a thread that enters observes what the leader changed. Waiting threads synchronise by the
///           mutex. free reservation: relaxed; changed by the holder of the slot, read by statistics.
/// A slot fills a 128-byte line (two cache lines, which processors fetch in pairs), so slots never share one.
class alignas(128) ThreadContext : private Unmovable {

public:

    ThreadContext() noexcept = default;

    ~ThreadContext();

    /// Enters, or stops, the slot: returns when the caller holds it.
    void enter() noexcept {
        if (!beginEntering())
            waitUntilHandedOver();
    }

    /// The first step of entering: returns whether the caller holds the slot. If not, waitUntilHandedOver() must
    /// follow.
    bool beginEntering() noexcept {
        // Acquire. Pairs with the release in leave().
        return m_entryCount.fetch_add(1, std::memory_order_acquire) == 0;
    }

    /// The second step, of a caller that has announced itself and does not hold the slot: returns when it does.
    void waitUntilHandedOver() noexcept;

    void leave() noexcept {
        // Release. Pairs with the acquire in beginEntering().
        if (m_entryCount.fetch_sub(1, std::memory_order_release) >= 2)
            handOver();
    }

    /// leave() at the end of a short function: returns the result, in a tail call if it calls anything.
    uint64_t leaveWith(uint64_t result) noexcept {
        // Release, as in leave(). (It was 1 or more; a comparison with 1 is free.)
        if (m_entryCount.fetch_sub(1, std::memory_order_release) != 1) [[unlikely]]
            return handOverWith(result);
        return result;
    }

    /// The number of buckets that may be filled through this slot without changing the table's used count.
    uint32_t getFreeReservation() const noexcept { return m_freeReservation.load(std::memory_order_relaxed); }

    void setFreeReservation(uint32_t freeReservation) noexcept {
        m_freeReservation.store(freeReservation, std::memory_order_relaxed);
    }

private:

    void handOver() noexcept;

    uint64_t handOverWith(uint64_t result) noexcept;

    std::atomic<uint32_t> m_entryCount{0};
    std::atomic<uint32_t> m_freeReservation{0};
    uint8_t m_releasedFlag = 0; // guarded by the mutex
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t m_condition = PTHREAD_COND_INITIALIZER;
};

static_assert(sizeof(ThreadContext) == 128 && alignof(ThreadContext) == 128);

}
