#include "core/data-store/dictionary/DictionaryDatatype.h"

#include "core/platform/errors/ErrorCatalogue.h"

namespace kavix {

DictionaryDatatype::DictionaryDatatype(
    std::atomic<uint64_t>& nextResourceID, MemoryRegion<uint64_t>& resourceData,
    MemoryRegion<std::atomic<uint8_t>>& resourceDatatypeIDs, DataPool& dataPool) noexcept :
    m_maxResourceID(0),
    m_maxResourceIDForBlocks(0),
    m_nextResourceID(nextResourceID),
    m_resourceData(resourceData),
    m_resourceDatatypeIDs(resourceDatatypeIDs),
    m_dataPool(dataPool) { }

DictionaryDatatype::~DictionaryDatatype() = default;

uint64_t DictionaryDatatype::allocateResourceID() {
    return takeResourceIDs(1, m_maxResourceID, ErrorSites::RESOURCE_CAPACITY_EXCEEDED_FOR_SINGLE_ID);
}

uint64_t DictionaryDatatype::allocateResourceIDBlock() {
    return takeResourceIDs(
        RESOURCE_ID_BLOCK_SIZE, m_maxResourceIDForBlocks, ErrorSites::RESOURCE_CAPACITY_EXCEEDED_FOR_BLOCK);
}

uint64_t DictionaryDatatype::takeResourceIDs(uint64_t size, uint64_t bound, const ErrorSite& errorSite) {
    // Relaxed, in this operation: the counter hands out IDs and publishes nothing.
    uint64_t first = m_nextResourceID.load(std::memory_order_relaxed);
    do {
        if (bound <= first)
            Errors::throwResourceCapacityExceeded(errorSite);
        // Before the counter moves, so that an allocated ID always has usable entries. Each array has its own end: a
        // thread that gets here between the two calls finds the first array already grown.
        m_resourceData.ensureEndAtLeast(first + size);
        m_resourceDatatypeIDs.ensureEndAtLeast(first + size);
    } while (!m_nextResourceID.compare_exchange_weak(first, first + size, std::memory_order_relaxed));
    return first;
}

}
