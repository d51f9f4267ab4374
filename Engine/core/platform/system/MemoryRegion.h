#pragma once

#include "core/platform/stream/InputStream.h"
#include "core/platform/stream/OutputStream.h"
#include "core/platform/system/MemoryManager.h"
#include "core/platform/system/SpinLock.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kavix {

/// An array whose whole capacity is reserved as address space once and whose pages are committed on demand, so that it
/// never moves: readers may hold pointers into it while writers extend it.
///
///   empty --initialize--> reserved --ensureEndAtLeast--> partly committed --truncate--> fewer pages
///     ^------------- initialize(0), deinitialize, load of a capacity of 0 --------------'
///
/// Invariants
///  - Bytes charged to the memory manager == bytes committed, also after every failure.
///  - Items 0 to end - 1 are usable and were zero when they were committed; end <= maximum number of items.
///  - Committed bytes are whole pages and never exceed the reserved, rounded capacity.
///  - A region that requests huge pages makes whole huge pages accessible, so up to one of them may be accessible, and
///    backed by memory, beyond what is committed and charged; it is not used before it is committed. In other regions
///    the committed bytes are the accessible ones.
/// Callers   ensureEndAtLeast, doEnsureEndAtLeast, getEnd, item access below the end: any thread. The rest: one thread,
///           no other thread inside.
/// Orders    end: published by release, read by acquire; a thread that observes an end can use the items below it. The
///           committed bytes are relaxed: changed under the lock, read by statistics.
/// Progress  Readers never lock; threads that grow the same region take turns with a spin lock held for one system
///           call.
/// Cost      Growth is exactly to the page boundary: no slack, no copying, one system call.
///
/// T must be usable as zeroed memory, without construction, and saved as raw bytes.
template<typename T>
class MemoryRegion : private Unmovable {

public:

    /// An empty region. Nothing is reserved or charged.
    explicit MemoryRegion(MemoryManager& memoryManager) noexcept;

    ~MemoryRegion() { deinitialize(); }

    /// Releases the content and reserves address space for a number of items; 0 leaves the region empty.
    /// @throws SystemCallException  the system refused, or the size in bytes exceeds 64 bits: the region is empty
    void initialize(size_t maximumNumberOfItems);

    /// Releases everything and leaves the region empty.
    void deinitialize() noexcept;

    /// Makes items 0 to n - 1 usable; grows to the page boundary at or after item n, never shrinks. Callers use this
    /// before they access item n - 1.
    /// @throws as doEnsureEndAtLeast()
    void ensureEndAtLeast(size_t n) {
        if (getEnd() < n)
            doEnsureEndAtLeast(n);
    }

    /// @param n  a number of items, 0 to the capacity given to initialize()
    /// @throws KavixException       n exceeds the capacity, or the budget is short: nothing has changed
    /// @throws SystemCallException  the system refused the pages: the charge is returned
    void doEnsureEndAtLeast(size_t n);

    /// Releases the pages beyond item n and zeroes the items from n to the end of the last page that is kept.
    void truncate(size_t n) noexcept;

    /// Exchanges the contents of two regions that share a memory manager.
    void swapContents(MemoryRegion& other) noexcept;

    /// Writes the capacity and, unless it is 0, the end and the items below it, as raw bytes. No thread may write
    /// during the call.
    void save(OutputStream& output) const;

    /// Replaces the content with what save() wrote.
    /// @throws KavixException  the stream ends early, or its sizes do not fit the budget or the address space: the
    ///                         region may be left initialised and partly filled
    void load(InputStream& input);

    T* getData() noexcept { return m_data; }
    const T* getData() const noexcept { return m_data; }

    T& operator[](size_t index) noexcept { return m_data[index]; }
    const T& operator[](size_t index) const noexcept { return m_data[index]; }

    /// The number of usable items.
    size_t getEnd() const noexcept {
        // Acquire. Pairs with the release in doEnsureEndAtLeast(): the pages below this end are accessible.
        return m_end.load(std::memory_order_acquire);
    }

    size_t getMaximumNumberOfItems() const noexcept { return m_maximumNumberOfItems; }

    /// The bytes charged for this region at this moment.
    size_t getCommittedBytes() const noexcept { return m_committedBytes.load(std::memory_order_relaxed); }

private:

    static constexpr size_t HUGE_PAGE_SIZE = size_t(1) << 21;

    /// Smaller regions have no room for huge pages, or would waste most of them.
    static constexpr size_t MINIMUM_BYTES_FOR_HUGE_PAGES = 2 * HUGE_PAGE_SIZE;

    /// Whether a region of that many reserved bytes requests huge pages.
    bool wantsHugePages(size_t reservedBytes) const noexcept {
        return m_memoryManager.getUseHugePages() && reservedBytes >= MINIMUM_BYTES_FOR_HUGE_PAGES;
    }

    /// Makes at least a number of bytes accessible; returns false and sets errno if the system refuses.
    bool tryMakeAccessible(size_t numberOfBytes) noexcept;

    size_t roundToPages(size_t numberOfBytes) const noexcept {
        return numberOfBytes == 0 ? 0 : (((numberOfBytes - 1) >> m_pageSizeShift) + 1) << m_pageSizeShift;
    }

    T* m_data;
    std::atomic<size_t> m_end;
    const uint8_t m_pageSizeShift;
    SpinLock m_lock; // held by the thread that grows the region
    MemoryManager& m_memoryManager;
    size_t m_maximumNumberOfItems;
    std::atomic<size_t> m_committedBytes; // written under the lock, or when one thread is alone
    size_t m_accessibleBytes; // used under the lock, or when one thread is alone
};

}

#include "core/platform/system/MemoryRegionImpl.h"
