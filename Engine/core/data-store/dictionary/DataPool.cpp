#include "core/data-store/dictionary/DataPool.h"

#include "core/platform/errors/ErrorCatalogue.h"

namespace kavix {

void DataPool::initialize(uint64_t maximumSize) {
    m_bytes.initialize(maximumSize);
    m_nextOffset.store(FIRST_OFFSET, std::memory_order_relaxed); // relaxed: no other thread is inside
}

uint64_t DataPool::allocate(uint64_t size, uint64_t& end) {
    // Relaxed, in this operation: the counter hands out bytes and publishes nothing.
    uint64_t offset = m_nextOffset.load(std::memory_order_relaxed);
    do {
        if (m_bytes.getMaximumNumberOfItems() < offset || size > m_bytes.getMaximumNumberOfItems() - offset)
            Errors::throwRegionCapacityExceeded(offset + size, m_bytes.getMaximumNumberOfItems());
        // Before the counter moves, so that an allocated block is always usable.
        m_bytes.ensureEndAtLeast(offset + size);
    } while (!m_nextOffset.compare_exchange_weak(offset, offset + size, std::memory_order_relaxed));
    end = offset + size;
    return offset;
}

void DataPool::setEnd(uint64_t end) {
    m_bytes.ensureEndAtLeast(end);
    m_nextOffset.store(end, std::memory_order_relaxed); // relaxed: no other thread is inside
}

void DataPool::clear() noexcept {
    m_bytes.truncate(0);
    m_nextOffset.store(FIRST_OFFSET, std::memory_order_relaxed); // relaxed: no other thread is inside
}

void DataPool::swapContents(DataPool& other) noexcept {
    m_bytes.swapContents(other.m_bytes);
    // Relaxed: no other thread is inside.
    const uint64_t nextOffset = m_nextOffset.load(std::memory_order_relaxed);
    m_nextOffset.store(other.m_nextOffset.load(std::memory_order_relaxed), std::memory_order_relaxed);
    other.m_nextOffset.store(nextOffset, std::memory_order_relaxed);
}

}
