#pragma once

#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstdint>

namespace kavix {

/// The memory budget, in bytes. Every committed page is charged to it before it is requested from the system; so a
/// program that runs out of memory gets an error it can handle instead of being killed.
///
/// Invariant: total = free + charged. All operations are thread-safe and lock-free; all orders are relaxed, since the
/// counts ration memory and publish nothing.
class MemoryManager : private Unmovable {

public:

    /// @param useHugePages  whether large regions request huge pages, which the system may or may not grant; the charge
    ///                      is the same
    explicit MemoryManager(uint64_t totalBytes, bool useHugePages = false) noexcept :
        m_totalBytes(totalBytes),
        m_freeBytes(totalBytes),
        m_useHugePages(useHugePages) { }

    /// Takes bytes from the budget.
    /// @throws KavixException  "The Kavix instance has run out of memory. …": nothing was charged
    void charge(uint64_t numberOfBytes) {
        uint64_t freeBytes = m_freeBytes.load(std::memory_order_relaxed);
        do {
            if (numberOfBytes > freeBytes)
                Errors::throwOutOfMemory(getTotalBytes(), freeBytes, numberOfBytes);
        } while (!m_freeBytes.compare_exchange_weak(freeBytes, freeBytes - numberOfBytes, std::memory_order_relaxed));
    }

    /// Returns charged bytes to the budget.
    void release(uint64_t numberOfBytes) noexcept { m_freeBytes.fetch_add(numberOfBytes, std::memory_order_relaxed); }

    /// Changes the size of the budget. Returns false, and changes nothing, if more than that is charged.
    bool trySetTotalBytes(uint64_t totalBytes) noexcept;

    uint64_t getTotalBytes() const noexcept { return m_totalBytes.load(std::memory_order_relaxed); }

    uint64_t getFreeBytes() const noexcept { return m_freeBytes.load(std::memory_order_relaxed); }

    /// The bytes charged; may be inexact while other threads change the budget.
    uint64_t getChargedBytes() const noexcept { return getTotalBytes() - getFreeBytes(); }

    bool getUseHugePages() const noexcept { return m_useHugePages; }

private:

    std::atomic<uint64_t> m_totalBytes;
    std::atomic<uint64_t> m_freeBytes;
    const bool m_useHugePages;
};

/// Charges bytes and returns them at the end of the scope, unless they are kept.
class MemoryCharge : private Unmovable {

public:

    MemoryCharge(MemoryManager& memoryManager, uint64_t numberOfBytes) :
        m_memoryManager(memoryManager),
        m_numberOfBytes(numberOfBytes) {
        m_memoryManager.charge(numberOfBytes);
    }

    ~MemoryCharge() { m_memoryManager.release(m_numberOfBytes); }

    void keep() noexcept { m_numberOfBytes = 0; }

private:

    MemoryManager& m_memoryManager;
    uint64_t m_numberOfBytes;
};

}
