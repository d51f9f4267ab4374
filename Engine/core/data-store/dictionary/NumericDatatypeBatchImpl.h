#pragma once

#include "core/data-store/dictionary/NumericBatch.h"
#include "core/data-store/dictionary/NumericDatatypeImpl.h"
#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "core/platform/collections/ParallelHashTableBatchImpl.h"
#include "core/platform/system/Prefetch.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>

namespace kavix {

template<typename ResourceID>
void NumericDatatype<ResourceID>::resolveResources(
    DictionaryUsageContext* context, uint8_t datatypeID, std::span<const int64_t> values, uint64_t* resourceIDs) {
    getTable(datatypeID).findOrInsertAll(values, resourceIDs, [&](int64_t value, size_t) {
        return createEntry(context, datatypeID, value);
    });
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::resolveResources(
    DictionaryUsageContext* context, std::span<const XSDDecimal> values, uint64_t* resourceIDs) {
    m_decimalTable.findOrInsertAll(
        values, resourceIDs, [&](const XSDDecimal& value, size_t) { return createEntry(context, value); });
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::tryResolveResources(
    const std::pair<uint64_t, uint64_t>& visibility, uint8_t datatypeID, std::span<const int64_t> values,
    uint64_t* resourceIDs) const noexcept {
    getTable(datatypeID).findAll(values, resourceIDs, [](ResourceID) { return true; });
    for (size_t index = 0; index < values.size(); ++index)
        if (resourceIDs[index] >= visibility.first)
            resourceIDs[index] = 0;
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::tryResolveResources(
    const std::pair<uint64_t, uint64_t>& visibility, std::span<const XSDDecimal> values,
    uint64_t* resourceIDs) const noexcept {
    m_decimalTable.findAll(
        values, resourceIDs, [&visibility](uint64_t recordOffset) { return recordOffset < visibility.second; });
    for (size_t index = 0; index < values.size(); ++index)
        if (resourceIDs[index] >= visibility.first)
            resourceIDs[index] = 0;
}

namespace NumericBatches {

inline constexpr std::pair<uint64_t, uint64_t> EVERYTHING{UINT64_MAX, UINT64_MAX}; // no visibility bound

/// Adds the values of literals to a batch; an invalid literal gets its error, and an index without a value. Returns how
/// many are invalid.
inline size_t parse(std::span<const Literal> literals, NumericBatch& batch, Resolution* resolutions) noexcept {
    size_t numberOfFailures = 0;
    ResourceValue value;
    for (size_t index = 0; index < literals.size(); ++index) {
        const auto& [lexicalForm, datatypeID] = literals[index];
        if (tryParseNumericValue(datatypeID, lexicalForm.data(), lexicalForm.size(), value) == LexicalFormStatus::VALID)
            [[likely]]
            batch.add(value);
        else {
            batch.addNothing();
            numberOfFailures += !resolutions[index].trySet([&literal = literals[index]]() -> uint64_t {
                parseNumericValue(literal.datatypeID, literal.lexicalForm.data(), literal.lexicalForm.size()); // throws
                return 0;
            });
        }
    }
    return numberOfFailures;
}

}

template<typename ResourceID>
void NumericDatatype<ResourceID>::findAll(
    const std::pair<uint64_t, uint64_t>& visibility, NumericBatch& batch, uint64_t* resourceIDs) const noexcept {
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
void NumericDatatype<ResourceID>::resolveResources(
    DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) {
    NumericBatch batch;
    for (const ResourceValue& value : values)
        batch.add(value);
    if (!batch.isOfOneDatatype()) {
        findAll(NumericBatches::EVERYTHING, batch, resourceIDs);
        // In order, so that IDs are the same as one at a time. The lines are in the cache now. A value that another
        // thread, or an earlier element of this batch, has entered in between is found.
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
void NumericDatatype<ResourceID>::tryResolveResources(
    const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values,
    uint64_t* resourceIDs) const noexcept {
    NumericBatch batch;
    for (const ResourceValue& value : values)
        batch.add(value);
    findAll(visibility, batch, resourceIDs);
}

template<typename ResourceID>
size_t NumericDatatype<ResourceID>::resolveResources(
    DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept {
    NumericBatch batch;
    size_t numberOfFailures = NumericBatches::parse(literals, batch, resolutions);
    uint64_t resourceIDs[NumericBatch::MAX_SIZE];
    findAll(NumericBatches::EVERYTHING, batch, resourceIDs);
    for (size_t index = 0; index < literals.size(); ++index)
        if (batch.hasValue(index))
            numberOfFailures += !resolutions[index].trySet([&] {
                if (resourceIDs[index] != 0)
                    return resourceIDs[index];
                const ResourceValue value = batch.getValue(index);
                try {
                    return resolveResource(context, value);
                }
                catch (...) {
                    // Its reservation may have failed although an earlier element of this batch has entered it. A value
                    // that is present has no error, however the literals were split into batches.
                    const uint64_t resourceID = tryResolveResource(NumericBatches::EVERYTHING, value);
                    if (resourceID == 0)
                        throw;
                    return resourceID;
                }
            });
    return numberOfFailures;
}

template<typename ResourceID>
size_t NumericDatatype<ResourceID>::tryResolveResources(
    const std::pair<uint64_t, uint64_t>& visibility, std::span<const Literal> literals,
    Resolution* resolutions) const noexcept {
    NumericBatch batch;
    const size_t numberOfFailures = NumericBatches::parse(literals, batch, resolutions);
    uint64_t resourceIDs[NumericBatch::MAX_SIZE];
    findAll(visibility, batch, resourceIDs);
    for (size_t index = 0; index < literals.size(); ++index)
        if (batch.hasValue(index))
            resolutions[index] = Resolution{resourceIDs[index], nullptr};
    return numberOfFailures;
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::getResources(
    std::span<const uint64_t> resourceIDs, const uint8_t* datatypeIDs, ResourceValue* values) const {
    // Three steps for each resource: its data word is prefetched; some resources later its record, if it has one; then
    // both are present.
    constexpr size_t DISTANCE = 16;
    for (size_t step = 0; step < resourceIDs.size() + 2 * DISTANCE; ++step) {
        if (step < resourceIDs.size())
            fetchAhead(&m_resourceData[resourceIDs[step]]);
        if (const size_t index = step - DISTANCE;
            index < resourceIDs.size() && datatypeIDs[index] == D_XSD_DECIMAL) // wraps at first
            fetchAhead(m_dataPool.getBase() + m_resourceData[resourceIDs[index]]);
        if (const size_t index = step - 2 * DISTANCE; index < resourceIDs.size())
            getResource(resourceIDs[index], datatypeIDs[index], values[index]);
    }
}

}
