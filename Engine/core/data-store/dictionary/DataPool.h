#pragma once

#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kavix {

/// The byte heap of a store, addressed by 64-bit offsets. Blocks are allocated one after the other and never freed.
///
/// It lies in reserved address space, so its base never moves and threads may write their blocks while others allocate.
/// Offsets below 64 are never allocated: an offset of 0 can mean "none".
/// allocate and access: any thread. The rest: one thread, with no other thread inside.
class DataPool : private Unmovable {

public:

    static constexpr uint64_t FIRST_OFFSET = 64;

    explicit DataPool(MemoryManager& memoryManager) noexcept :
        m_bytes(memoryManager),
        m_nextOffset(FIRST_OFFSET) { }

    /// Makes the pool empty.
    /// @param maximumSize  how many bytes of address space to reserve
    /// @throws SystemCallException  the address space cannot be reserved: the pool has no capacity
    void initialize(uint64_t maximumSize);

    /// Allocates size bytes, which are zero; returns the offset of the first and sets end to one past the last.
    /// @throws as MemoryRegion::doEnsureEndAtLeast(): nothing was allocated, end is unchanged
    uint64_t allocate(uint64_t size, uint64_t& end);

    /// Makes the bytes below an offset usable and sets the end of the pool there, as after loading them; no other
    /// thread may be inside.
    /// @throws as MemoryRegion::doEnsureEndAtLeast(): the end is unchanged
    void setEnd(uint64_t end);

    /// Makes the pool empty and releases its pages; no other thread may be inside.
    void clear() noexcept;

    /// Exchanges the contents of two pools of one memory manager; no other thread may be inside.
    void swapContents(DataPool& other) noexcept;

    uint8_t* getBase() noexcept { return m_bytes.getData(); }

    const uint8_t* getBase() const noexcept { return m_bytes.getData(); }

    /// The offset one past the last byte allocated so far.
    uint64_t getEnd() const noexcept {
        // Relaxed: a bound for snapshots, which are taken while no thread enters values.
        return m_nextOffset.load(std::memory_order_relaxed);
    }

    size_t getCommittedBytes() const noexcept { return m_bytes.getCommittedBytes(); }

private:

    MemoryRegion<uint8_t> m_bytes;
    std::atomic<uint64_t> m_nextOffset;
};

}
