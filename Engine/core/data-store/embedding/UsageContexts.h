#pragma once

#include "core/data-store/dictionary/DictionaryUsageContext.h"
#include "core/platform/collections/ThreadContext.h"

#include <array>

namespace kavix {

/// One usage context for each thread slot, used by the thread that has the slot.
struct UsageContexts {

    std::array<DictionaryUsageContext, NUMBER_OF_THREAD_SLOTS> m_contexts;

    /// The context of the calling thread, which has a slot.
    DictionaryUsageContext& getOwn() noexcept { return m_contexts[s_currentThreadContextIndex]; }
};

}
