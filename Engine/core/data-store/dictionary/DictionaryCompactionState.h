#pragma once

#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/Unmovable.h"

#include <cstdint>

namespace kavix {

/// A resource that survives a compaction.
struct CompactionEntry {
    uint64_t newResourceID;
    uint8_t datatypeID;
    uint8_t isInline; // 1: data is the value itself; 0: data is the offset of the value's record in the data pool
    uint64_t data;
    uint64_t dataSize; // of the record, in bytes; 0 for inline values
};

/// What a compaction keeps, collected over all dictionaries of a store: filled by prepareCompact() of each surviving
/// resource, then sorted by datatype ID, then read by finishCompact() of each dictionary. One thread at a time.
class DictionaryCompactionState : private Unmovable {

public:

    /// An empty state with room for a number of entries, charged to the budget.
    /// @throws as MemoryRegion
    DictionaryCompactionState(MemoryManager& memoryManager, uint64_t maximumNumberOfEntries) :
        m_entries(memoryManager),
        m_numberOfEntries(0) {
        m_entries.initialize(maximumNumberOfEntries);
        m_entries.ensureEndAtLeast(maximumNumberOfEntries);
    }

    /// Appends an entry; there must be room for it.
    void addEntry(const CompactionEntry& entry) noexcept { m_entries[m_numberOfEntries++] = entry; }

    CompactionEntry* begin() noexcept { return m_entries.getData(); }
    CompactionEntry* end() noexcept { return m_entries.getData() + m_numberOfEntries; }
    const CompactionEntry* begin() const noexcept { return m_entries.getData(); }
    const CompactionEntry* end() const noexcept { return m_entries.getData() + m_numberOfEntries; }

    uint64_t getNumberOfEntries() const noexcept { return m_numberOfEntries; }

private:

    MemoryRegion<CompactionEntry> m_entries;
    uint64_t m_numberOfEntries;
};

}
