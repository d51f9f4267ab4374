#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryCompactionState.h"
#include "core/data-store/embedding/DictionaryState.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

namespace kavix {

namespace {

/// The gate, closed for a maintenance operation.
class ClosedGate : private Unmovable {

public:

    explicit ClosedGate(WriterGate& gate) noexcept :
        m_gate(gate) { }

    ~ClosedGate() { m_gate.open(); }

private:

    WriterGate& m_gate;
};

/// Copies the records of the kept resources into a new pool and sets the entries to their offsets there.
void moveRecords(DictionaryCompactionState& state, const DataPool& oldPool, DataPool& newPool) {
    for (CompactionEntry& entry : state)
        if (entry.isInline == 0) {
            uint64_t end;
            const uint64_t newOffset = newPool.allocate(entry.dataSize, end);
            std::memcpy(newPool.getBase() + newOffset, oldPool.getBase() + entry.data, entry.dataSize);
            entry.data = newOffset;
        }
}

}

std::vector<uint64_t> Dictionary::compact(const std::function<bool(uint64_t resourceID)>& isKept) {
    ThreadSlots::ensureSlot();
    if (!m_state->tryCloseGate())
        Errors::throwTransactionRuns();
    const ClosedGate gate(m_state->m_writerGate);

    // Everything that can fail comes first and touches nothing that is in use.
    const uint64_t oldEnd = m_state->getContents().m_nextResourceID;
    std::vector<uint64_t> newResourceIDs(m_state->getCounters().resourceIDEnd, 0);
    uint64_t nextNewResourceID = DictionaryState::FIRST_RESOURCE_ID;
    for (uint64_t resourceID = DictionaryState::FIRST_RESOURCE_ID; resourceID < oldEnd; ++resourceID)
        if (m_state->tryGetResourceDatatypeID(resourceID) != D_NONE && isKept(resourceID))
            newResourceIDs[resourceID] = nextNewResourceID++;
    DictionaryCompactionState state(m_state->m_memoryManager, nextNewResourceID - DictionaryState::FIRST_RESOURCE_ID);
    for (uint64_t resourceID = DictionaryState::FIRST_RESOURCE_ID; resourceID < oldEnd; ++resourceID)
        if (newResourceIDs[resourceID] != 0)
            m_state->getFamily(m_state->tryGetResourceDatatypeID(resourceID))
                .m_dictionary->prepareCompact(resourceID, newResourceIDs[resourceID], state);
    DataPool newPool(m_state->m_memoryManager);
    newPool.initialize(DictionaryState::getMaximumDataPoolSize(m_state->m_maxResourceID));
    moveRecords(state, m_state->m_dataPool, newPool);
    std::sort(state.begin(), state.end(), [](const CompactionEntry& first, const CompactionEntry& second) {
        return first.datatypeID != second.datatypeID ? first.datatypeID < second.datatypeID
                                                     : first.newResourceID < second.newResourceID;
    });

    // From here on nothing fails: new IDs lie in committed memory, and tables only shrink.
    m_state->m_dataPool.swapContents(newPool);
    for (const DictionaryState::Family& family : m_state->m_families)
        family.m_dictionary->finishCompact(state);
    m_state->m_resourceData.truncate(nextNewResourceID);
    m_state->m_resourceDatatypeIDs.truncate(nextNewResourceID);
    m_state->m_nextResourceID.store(nextNewResourceID, std::memory_order_relaxed); // relaxed: no other thread is inside
    return newResourceIDs;
}

}
