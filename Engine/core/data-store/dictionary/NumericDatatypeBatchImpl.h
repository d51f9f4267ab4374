#pragma once

#include "core/data-store/dictionary/NumericBatch.h"
#include "core/data-store/dictionary/NumericDatatypeImpl.h"
#include "core/platform/collections/ParallelHashTableBatchImpl.h"

#include <span>
#include <type_traits>
#include <utility>

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

/// Looks all values of a batch up; a 0 for each that is absent or not visible.
template<typename ResourceID>
void NumericDatatype<ResourceID>::findAll(const std::pair<uint64_t, uint64_t>& visibility, NumericBatch& batch, uint64_t* resourceIDs) const noexcept {
    uint64_t found[NumericBatch::MAX_SIZE];
    batch.forEachDatatype([&](uint8_t datatypeID, auto keys, std::span<const uint16_t> places) {
        if constexpr (std::is_same_v<decltype(keys), std::span<const XSDDecimal>>)
            tryResolveResources(visibility, keys, found);
        else
            tryResolveResources(visibility, datatypeID, keys, found);
        for (size_t index = 0; index < places.size(); ++index)
            resourceIDs[places[index]] = found[index];
    });
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::resolveResources(DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) {
    NumericBatch batch;
    for (const ResourceValue& value : values)
        batch.add(value);
    if (!batch.isOfOneDatatype()) {
        constexpr std::pair<uint64_t, uint64_t> EVERYTHING{UINT64_MAX, UINT64_MAX};
        findAll(EVERYTHING, batch, resourceIDs);
        // In order, so that IDs come out as they would one at a time. The lines are in the cache now. A value that another
        // thread, or an earlier place of this batch, has entered meanwhile is found.
        for (size_t index = 0; index < values.size(); ++index)
            if (resourceIDs[index] == 0)
                resourceIDs[index] = resolveResource(context, values[index]);
    }
    else if (batch.getDatatypeID(0) == D_XSD_DECIMAL)
        resolveResources(context, batch.getDecimals(), resourceIDs);
    else
        resolveResources(context, batch.getDatatypeID(0), batch.getIntegers(), resourceIDs);
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::tryResolveResources(const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values, uint64_t* resourceIDs) const noexcept {
    NumericBatch batch;
    for (const ResourceValue& value : values)
        batch.add(value);
    findAll(visibility, batch, resourceIDs);
}

}
