#pragma once

#include "core/platform/collections/ThreadContext.h"

#include <cstddef>

namespace kavix {

/// Gives each thread that uses tables a slot of its own, process-wide: on first use, until the thread ends.
///
/// Invariant: a slot belongs to at most one live thread. A slot given back is handed out again only after everything
/// its thread did is visible to the next owner. All operations are thread-safe; a thread that has a slot pays one
/// comparison.
class ThreadSlots {

public:

    /// Makes sure that the calling thread has a slot.
    /// @throws KavixException       256 live threads have one: nothing has changed
    /// @throws SystemCallException  the system cannot tell us when the thread ends: it has no slot
    static void ensureSlot() {
        if (s_currentThreadContextIndex == NO_THREAD_SLOT)
            takeSlot();
    }

    /// How many live threads have a slot.
    static size_t getNumberOfTakenSlots() noexcept;

private:

    static void takeSlot();
};

}
