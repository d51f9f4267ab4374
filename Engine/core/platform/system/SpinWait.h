#pragma once

#include <sched.h>

namespace kavix {

/// A short wait for another thread: pauses first, then yields the processor at every step, so that the other thread
/// makes progress even if threads outnumber processors. One object for each wait.
class SpinWait {

public:

    void step() noexcept {
        if (m_pauses < MAX_PAUSES) {
            ++m_pauses;
#if defined(__x86_64__)
            __builtin_ia32_pause();
#elif defined(__aarch64__)
            __asm__ __volatile__("yield");
#endif
        }
        else
            ::sched_yield();
    }

private:

    static constexpr unsigned MAX_PAUSES = 64;

    unsigned m_pauses = 0;
};

}
