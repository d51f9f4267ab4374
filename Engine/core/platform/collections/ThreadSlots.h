#pragma once

#include "core/platform/collections/ThreadContext.h"

#include <cstddef>

namespace kavix {

/// Gives each thread that uses tables a slot of its own, process-wide: on first use, until the thread ends.
///
/// Invariant: a slot belongs to at most one live thread. A returned slot is assigned again only after everything its
/// thread did is visible to the next owner. All operations are thread-safe; for a thread that has a slot they cost one
/// comparison.
class ThreadSlots {

public:

    /// Ensures that the calling thread has a slot.
    /// @throws KavixException       256 live threads have one: nothing has changed
    /// @throws SystemCallException  the system cannot register the thread-exit handler: the thread has no slot
    static void ensureSlot() {
        if (s_currentThreadContextIndex == NO_THREAD_SLOT)
            takeSlot();
    }

    /// The number of live threads that have a slot.
    static size_t getNumberOfTakenSlots() noexcept;

private:

    static void takeSlot();
};

}
