#pragma once

#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/VMPageSize.h"
#include "core/platform/system/VirtualMemory.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>
#include <mutex>

namespace kavix {

template<typename T>
MemoryRegion<T>::MemoryRegion(MemoryManager& memoryManager) noexcept :
    m_data(nullptr),
    m_end(0),
    m_pageSizeShift(static_cast<uint8_t>(std::bit_width(getVMPageSize()) - 1)),
    m_memoryManager(memoryManager),
    m_maximumNumberOfItems(0),
    m_committedBytes(0),
    m_accessibleBytes(0) { }

template<typename T>
void MemoryRegion<T>::deinitialize() noexcept {
    if (m_data != nullptr) {
        VirtualMemory::release(m_data, roundToPages(m_maximumNumberOfItems * sizeof(T)));
        m_memoryManager.release(getCommittedBytes());
        m_data = nullptr;
        // Relaxed, both: no other thread is inside.
        m_committedBytes.store(0, std::memory_order_relaxed);
        m_end.store(0, std::memory_order_relaxed);
        m_maximumNumberOfItems = 0;
        m_accessibleBytes = 0;
    }
}

template<typename T>
void MemoryRegion<T>::initialize(size_t maximumNumberOfItems) {
    deinitialize();
    if (maximumNumberOfItems == 0)
        return;
    // The largest size that still rounds to whole pages in 64 bits. A capacity from outside may exceed it, and the
    // product would wrap to a small number: the system would refuse such a reservation.
    const size_t maximumBytes = std::numeric_limits<size_t>::max() >> m_pageSizeShift << m_pageSizeShift;
    if (maximumNumberOfItems > maximumBytes / sizeof(T))
        Errors::throwCannotReserveAddressSpace(ENOMEM, std::numeric_limits<size_t>::max());
    const size_t reservedBytes = roundToPages(maximumNumberOfItems * sizeof(T));
    m_data = static_cast<T*>(VirtualMemory::reserve(reservedBytes));
    if (m_data == nullptr)
        Errors::throwCannotReserveAddressSpace(errno, reservedBytes);
    m_maximumNumberOfItems = maximumNumberOfItems;
    if (wantsHugePages(reservedBytes))
        VirtualMemory::adviseHugePages(m_data, reservedBytes);
}

template<typename T>
bool MemoryRegion<T>::tryMakeAccessible(size_t numberOfBytes) noexcept {
    if (numberOfBytes <= m_accessibleBytes)
        return true;
    const size_t reservedBytes = roundToPages(m_maximumNumberOfItems * sizeof(T));
    uint8_t* const bytes = reinterpret_cast<uint8_t*>(m_data);
    if (wantsHugePages(reservedBytes)) {
        // Up to the end of a huge page by address: a page fault gets a huge page only if all of it is accessible.
        const uintptr_t address = reinterpret_cast<uintptr_t>(bytes + numberOfBytes);
        numberOfBytes = std::min(reservedBytes, numberOfBytes + static_cast<size_t>(-address % HUGE_PAGE_SIZE));
    }
    if (!VirtualMemory::commit(bytes + m_accessibleBytes, numberOfBytes - m_accessibleBytes))
        return false;
    m_accessibleBytes = numberOfBytes;
    return true;
}

template<typename T>
void MemoryRegion<T>::doEnsureEndAtLeast(size_t n) {
    if (m_maximumNumberOfItems < n)
        Errors::throwRegionCapacityExceeded(n, m_maximumNumberOfItems);
    const std::lock_guard<SpinLock> lock(m_lock);
    // Relaxed, here and below: both change only under the lock.
    if (n <= m_end.load(std::memory_order_relaxed))
        return; // another thread did the work
    const size_t oldCommittedBytes = m_committedBytes.load(std::memory_order_relaxed);
    const size_t newCommittedBytes = roundToPages(n * sizeof(T)); // cannot wrap: n is within the reserved capacity
    MemoryCharge charge(m_memoryManager, newCommittedBytes - oldCommittedBytes);
    if (!tryMakeAccessible(newCommittedBytes))
        Errors::throwCannotCommitMemory(errno);
    charge.keep();
    m_committedBytes.store(newCommittedBytes, std::memory_order_relaxed);
    // Release. Pairs with the acquire in getEnd().
    m_end.store(std::min(newCommittedBytes / sizeof(T), m_maximumNumberOfItems), std::memory_order_release);
}

template<typename T>
void MemoryRegion<T>::truncate(size_t n) noexcept {
    const size_t oldEnd = m_end.load(std::memory_order_relaxed); // relaxed, here and below: no other thread is inside
    if (n >= oldEnd)
        return;
    uint8_t* const bytes = reinterpret_cast<uint8_t*>(m_data);
    const size_t keptBytes = roundToPages(n * sizeof(T));
    const size_t committedBytes = m_committedBytes.load(std::memory_order_relaxed);
    if (committedBytes > keptBytes) {
        // If the system keeps the pages, zero them, so that they are like new pages when they are used again.
        if (VirtualMemory::decommit(bytes + keptBytes, m_accessibleBytes - keptBytes))
            m_accessibleBytes = keptBytes;
        else
            std::memset(bytes + keptBytes, 0, committedBytes - keptBytes);
        m_memoryManager.release(committedBytes - keptBytes);
        m_committedBytes.store(keptBytes, std::memory_order_relaxed);
        if (const size_t reservedBytes = roundToPages(m_maximumNumberOfItems * sizeof(T));
            wantsHugePages(reservedBytes))
            VirtualMemory::adviseHugePages(
                bytes + keptBytes, reservedBytes - keptBytes); // the new mapping lost the advice
    }
    const size_t zeroEnd = std::min(oldEnd * sizeof(T), keptBytes);
    std::memset(bytes + n * sizeof(T), 0, zeroEnd - n * sizeof(T));
    m_end.store(std::min(m_maximumNumberOfItems, keptBytes / sizeof(T)), std::memory_order_relaxed);
}

template<typename T>
void MemoryRegion<T>::swapContents(MemoryRegion& other) noexcept {
    // Relaxed: no other thread is inside, and the thread that stopped the others publishes the outcome to them.
    const auto swapAtomics = [](std::atomic<size_t>& first, std::atomic<size_t>& second) {
        const size_t firstValue = first.load(std::memory_order_relaxed);
        first.store(second.load(std::memory_order_relaxed), std::memory_order_relaxed);
        second.store(firstValue, std::memory_order_relaxed);
    };
    std::swap(m_data, other.m_data);
    swapAtomics(m_end, other.m_end);
    std::swap(m_maximumNumberOfItems, other.m_maximumNumberOfItems);
    swapAtomics(m_committedBytes, other.m_committedBytes);
    std::swap(m_accessibleBytes, other.m_accessibleBytes);
}

template<typename T>
void MemoryRegion<T>::save(OutputStream& output) const {
    const uint64_t maximumNumberOfItems = m_maximumNumberOfItems;
    output.write(&maximumNumberOfItems, sizeof(maximumNumberOfItems));
    if (maximumNumberOfItems != 0) {
        const uint64_t end = getEnd();
        output.write(&end, sizeof(end));
        output.write(m_data, end * sizeof(T));
    }
}

template<typename T>
void MemoryRegion<T>::load(InputStream& input) {
    uint64_t maximumNumberOfItems;
    readExactly(input, &maximumNumberOfItems, sizeof(maximumNumberOfItems));
    if (maximumNumberOfItems == 0) {
        deinitialize();
        return;
    }
    uint64_t numberOfItems;
    readExactly(input, &numberOfItems, sizeof(numberOfItems));
    initialize(maximumNumberOfItems);
    ensureEndAtLeast(numberOfItems);
    readExactly(input, m_data, numberOfItems * sizeof(T));
}

}
