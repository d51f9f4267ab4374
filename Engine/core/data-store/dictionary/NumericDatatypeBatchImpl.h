#pragma once

#include "core/data-store/dictionary/NumericDatatypeImpl.h"
#include "core/platform/collections/ParallelHashTableBatchImpl.h"

namespace kavix {

template<typename ResourceID>
void NumericDatatype<ResourceID>::resolveResources(DictionaryUsageContext* context, uint8_t datatypeID, std::span<const int64_t> values, uint64_t* resourceIDs) {
    getTable(datatypeID).findOrInsertAll(values, resourceIDs, [&](int64_t value, size_t) { return createEntry(context, datatypeID, value); });
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::resolveResources(DictionaryUsageContext* context, std::span<const XSDDecimal> values, uint64_t* resourceIDs) {
    m_decimalTable.findOrInsertAll(values, resourceIDs, [&](const XSDDecimal& value, size_t) { return createEntry(context, value); });
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::tryResolveResources(const std::pair<uint64_t, uint64_t>& visibility, uint8_t datatypeID, std::span<const int64_t> values, uint64_t* resourceIDs) const noexcept {
    getTable(datatypeID).findAll(values, resourceIDs, [](ResourceID) { return true; });
    for (size_t index = 0; index < values.size(); ++index)
        if (resourceIDs[index] >= visibility.first)
            resourceIDs[index] = 0;
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::tryResolveResources(const std::pair<uint64_t, uint64_t>& visibility, std::span<const XSDDecimal> values, uint64_t* resourceIDs) const noexcept {
    m_decimalTable.findAll(values, resourceIDs, [&visibility](uint64_t recordOffset) { return recordOffset < visibility.second; });
    for (size_t index = 0; index < values.size(); ++index)
        if (resourceIDs[index] >= visibility.first)
            resourceIDs[index] = 0;
}

}
