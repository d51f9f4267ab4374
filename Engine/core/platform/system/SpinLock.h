#pragma once

#include "core/platform/system/SpinWait.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstdint>

namespace kavix {

/// A lock for short critical sections with little contention. Meets the standard's BasicLockable.
///
///   word:  0 free --exchange by lock()--> 1 held --store by unlock()--> 0
class SpinLock : private Unmovable {

public:

    void lock() noexcept {
        SpinWait wait;
        for (;;) {
            // Relaxed: only waits for the word to look free; the exchange below synchronises.
            while (m_word.load(std::memory_order_relaxed) != 0)
                wait.step();
            // Acquire. Pairs with the release in unlock(): we observe what the previous holder did.
            if (m_word.exchange(1, std::memory_order_acquire) == 0)
                return;
        }
    }

    void unlock() noexcept {
        // Release. Pairs with the acquire in lock().
        m_word.store(0, std::memory_order_release);
    }

private:

    std::atomic<uint32_t> m_word{0};
};

}
