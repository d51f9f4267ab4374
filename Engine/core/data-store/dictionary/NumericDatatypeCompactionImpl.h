#pragma once

#include "core/data-store/dictionary/DictionaryCompactionState.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/platform/collections/ParallelHashTableImpl.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

// How the numeric dictionary takes part in a compaction of the store.

namespace kavix {

template<typename ResourceID>
uint64_t NumericDatatype<ResourceID>::getNumberOfMappableEntriesInCompaction() {
    return 0;
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::prepareCompact(
    uint64_t resourceID, uint64_t newResourceID, DictionaryCompactionState& state) {
    // Acquire. Pairs with the release in setResource(): we see the data word of the resource.
    const uint8_t datatypeID = m_resourceDatatypeIDs[resourceID].load(std::memory_order_acquire);
    const bool isDecimal = datatypeID == D_XSD_DECIMAL;
    state.addEntry(CompactionEntry{
        newResourceID, datatypeID, uint8_t(isDecimal ? 0 : 1), m_resourceData[resourceID],
        isDecimal ? RECORD.getSize() : 0});
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::finishCompact(const DictionaryCompactionState& state) {
    const CompactionEntry* entry = std::lower_bound(
        state.begin(), state.end(), D_XSD_DECIMAL,
        [](const CompactionEntry& candidate, uint8_t datatypeID) { return candidate.datatypeID < datatypeID; });

    // Refills one table with the run of entries of its datatype; if there are none, the table still loses its old
    // content.
    const auto rebuild = [this, &entry, &state](auto& table, uint8_t datatypeID, auto reinsertEntry) {
        table.runInside([&] {
            table.clear();
            for (; entry != state.end() && entry->datatypeID == datatypeID; ++entry) {
                reinsertEntry(table, *entry);
                setResource(entry->newResourceID, entry->data, datatypeID);
            }
            table.shrinkToFit(table.MINIMUM_NUMBER_OF_BUCKETS);
        });
    };

    rebuild(m_decimalTable, D_XSD_DECIMAL, [this](DecimalTable& table, const CompactionEntry& decimalEntry) {
        uint8_t* const record = m_dataPool.getBase() + decimalEntry.data;
        RECORD.writeResourceID(record, decimalEntry.newResourceID);
        table.reinsert(
            RECORD.readValue(record), decimalEntry.data,
            [&decimalEntry](const typename DecimalPolicy::Bucket&, uint64_t recordOffset) {
                return recordOffset == decimalEntry.data;
            });
    });
    for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
        rebuild(getTable(datatypeID), datatypeID, [](IntegerTable& table, const CompactionEntry& integerEntry) {
            const int64_t value = static_cast<int64_t>(integerEntry.data);
            table.reinsert(
                value, static_cast<ResourceID>(integerEntry.newResourceID),
                [value](const typename IntegerPolicy::Bucket& bucket, ResourceID resourceID) {
                    return resourceID != IntegerTable::DELETED && bucket.m_value == value;
                });
        });
}

}
