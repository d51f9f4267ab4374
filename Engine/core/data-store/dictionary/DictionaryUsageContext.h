#pragma once

#include <cstdint>

namespace kavix {

/// What one thread that resolves values keeps between its calls: its block of resource IDs and its chunk of the data
/// pool, both [next, end). A fresh context has neither and takes them with the first new value.
///
/// Belongs to one thread at a time and to one dictionary. It fills a cache line, so that contexts of several threads
/// never share one. What is left of block and chunk when it ends is never used.
struct alignas(64) DictionaryUsageContext {
    uint64_t m_resourceIDBlockNext = 0;
    uint64_t m_resourceIDBlockEnd = 0;
    uint64_t m_dataPoolChunkNext = 0;
    uint64_t m_dataPoolChunkEnd = 0;
};

}
