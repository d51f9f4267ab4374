#pragma once

#include <cstdint>
#include <utility>

namespace kavix {

/// What a thread that resolves values keeps between its calls: its block of resource IDs and its chunk of the data
/// pool, both [next, end). A fresh context has neither and takes them with the first new value.
///
/// Used by one thread at a time, for one dictionary. It fills a cache line, so that contexts of several threads never
/// share one. The unused rest of block and chunk is never used.
struct alignas(64) DictionaryUsageContext {
    uint64_t m_resourceIDBlockNext = 0;
    uint64_t m_resourceIDBlockEnd = 0;
    uint64_t m_dataPoolChunkNext = 0;
    uint64_t m_dataPoolChunkEnd = 0;

    bool hasResourceID() const noexcept { return m_resourceIDBlockNext < m_resourceIDBlockEnd; }

    /// The next ID of the block; there must be one.
    uint64_t takeResourceID() noexcept { return m_resourceIDBlockNext++; }

    bool hasDataPoolRoom(uint64_t numberOfBytes) const noexcept {
        return m_dataPoolChunkNext + numberOfBytes <= m_dataPoolChunkEnd;
    }

    /// The offset of the next bytes of the chunk; there must be room for them.
    uint64_t takeDataPoolRoom(uint64_t numberOfBytes) noexcept {
        return std::exchange(m_dataPoolChunkNext, m_dataPoolChunkNext + numberOfBytes);
    }
};

}
