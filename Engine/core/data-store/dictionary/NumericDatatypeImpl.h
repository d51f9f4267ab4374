#pragma once

#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "core/data-store/numbers/IntegerText.h"
#include "core/platform/collections/ParallelHashTableImpl.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

template<typename ResourceID>
NumericDatatype<ResourceID>::NumericDatatype(
    MemoryManager& memoryManager, std::atomic<uint64_t>& nextResourceID, MemoryRegion<uint64_t>& resourceData,
    MemoryRegion<std::atomic<uint8_t>>& resourceDatatypeIDs, DataPool& dataPool) :
    DictionaryDatatypeBatches(nextResourceID, resourceData, resourceDatatypeIDs, dataPool),
    m_decimalTable(memoryManager, DecimalPolicy{dataPool}) {
    for (std::unique_ptr<IntegerTable>& table : m_integerTables)
        table = std::make_unique<IntegerTable>(memoryManager, IntegerPolicy());
}

template<typename ResourceID>
NumericDatatype<ResourceID>::~NumericDatatype() = default;

template<typename ResourceID>
void NumericDatatype<ResourceID>::initialize(uint64_t maxResourceID, uint64_t) {
    m_maxResourceID = maxResourceID;
    m_maxResourceIDForBlocks =
        maxResourceID - RESOURCE_ID_BLOCK_SIZE; // wraps for a smaller bound, which then limits single IDs only
    m_decimalTable.initialize(DecimalTable::MINIMUM_NUMBER_OF_BUCKETS);
    for (const std::unique_ptr<IntegerTable>& table : m_integerTables)
        table->initialize(IntegerTable::MINIMUM_NUMBER_OF_BUCKETS);
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::restoreEmpty(const std::vector<uint64_t>& countsByDatatypeID) {
    const auto initializeTable = [&countsByDatatypeID](auto& table, uint8_t datatypeID) {
        const size_t neededNumberOfBuckets =
            static_cast<size_t>(static_cast<double>(countsByDatatypeID[datatypeID]) / table.LOAD_FACTOR) + 1;
        table.initialize(std::max(table.MINIMUM_NUMBER_OF_BUCKETS, std::bit_ceil(neededNumberOfBuckets)));
    };
    initializeTable(m_decimalTable, D_XSD_DECIMAL);
    for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
        initializeTable(getTable(datatypeID), datatypeID);
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::getResource(uint64_t resourceID, uint8_t datatypeID, ResourceValue& value) const {
    if (datatypeID == D_XSD_DECIMAL)
        value.setBinaryValue(datatypeID, getDecimal(resourceID));
    else
        value.setBinaryValue(datatypeID, m_resourceData[resourceID]);
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::getResource(uint64_t resourceID, uint8_t datatypeID, std::string& text) const {
    if (datatypeID == D_XSD_DECIMAL) {
        char buffer[XSDDecimal::MAX_TEXT_LENGTH];
        text.assign(buffer, getDecimal(resourceID).toString(buffer, false));
    }
    else {
        text.clear();
        uint64_t magnitude = m_resourceData[resourceID];
        if (static_cast<int64_t>(magnitude) < 0) {
            text.push_back('-');
            magnitude = 0 - magnitude; // unsigned, so that the smallest integer has a magnitude
        }
        appendNumber(magnitude, text);
    }
}

template<typename ResourceID>
uint64_t NumericDatatype<ResourceID>::tryResolveResource(
    const std::pair<uint64_t, uint64_t>& visibility, const ResourceValue& value) const noexcept {
    if (value.datatypeID == D_XSD_DECIMAL)
        return tryResolveResource(visibility, value.getBinaryValue<XSDDecimal>());
    return tryResolveResource(visibility, value.datatypeID, value.getBinaryValue<int64_t>());
}

template<typename ResourceID>
uint64_t NumericDatatype<ResourceID>::tryResolveResource(
    const std::pair<uint64_t, uint64_t>& visibility, const char* lexicalForm, size_t length, uint8_t datatypeID) const {
    if (datatypeID == D_XSD_DECIMAL)
        return tryResolveResource(visibility, XSDDecimal(lexicalForm, length));
    return tryResolveResource(visibility, datatypeID, parseIntegerValue(datatypeID, lexicalForm, length));
}

template<typename ResourceID>
uint64_t NumericDatatype<ResourceID>::resolveResource(DictionaryUsageContext* context, const ResourceValue& value) {
    if (value.datatypeID == D_XSD_DECIMAL)
        return resolveResource(context, value.getBinaryValue<XSDDecimal>());
    return resolveResource(context, value.datatypeID, value.getBinaryValue<int64_t>());
}

template<typename ResourceID>
uint64_t NumericDatatype<ResourceID>::resolveResource(
    DictionaryUsageContext* context, const char* lexicalForm, size_t length, uint8_t datatypeID) {
    if (datatypeID == D_XSD_DECIMAL)
        return resolveResource(context, XSDDecimal(lexicalForm, length));
    return resolveResource(context, datatypeID, parseIntegerValue(datatypeID, lexicalForm, length));
}

template<typename ResourceID>
typename NumericDatatype<ResourceID>::DecimalTable::Entry NumericDatatype<ResourceID>::createEntry(
    DictionaryUsageContext* context, const XSDDecimal& value) {
    const ResourceID resourceID = static_cast<ResourceID>(nextResourceIDGetter(context)());
    const uint64_t recordOffset = allocateRecord(context);
    setDecimal(recordOffset, resourceID, value);
    return typename DecimalTable::Entry{recordOffset, resourceID};
}

template<typename ResourceID>
typename NumericDatatype<ResourceID>::IntegerTable::Entry NumericDatatype<ResourceID>::createEntry(
    DictionaryUsageContext* context, uint8_t datatypeID, int64_t value) {
    const uint64_t resourceID = nextResourceIDGetter(context)();
    setResource(resourceID, static_cast<uint64_t>(value), datatypeID);
    return typename IntegerTable::Entry{static_cast<ResourceID>(resourceID), resourceID};
}

template<typename ResourceID>
uint64_t NumericDatatype<ResourceID>::allocateRecord(DictionaryUsageContext* context) {
    uint64_t end;
    if (context == nullptr)
        return m_dataPool.allocate(RECORD.getSize(), end);
    if (!context->hasDataPoolRoom(RECORD.getSize())) [[unlikely]] {
        // The rest of the old chunk, less than a record, is abandoned.
        context->m_dataPoolChunkNext = m_dataPool.allocate(DATA_POOL_CHUNK_SIZE + RECORD.getSize(), end);
        context->m_dataPoolChunkEnd = end;
    }
    return context->takeDataPoolRoom(RECORD.getSize());
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::ensureResourceUsable(uint64_t resourceID) {
    m_resourceData.ensureEndAtLeast(resourceID + 1);
    m_resourceDatatypeIDs.ensureEndAtLeast(resourceID + 1);
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::restoreResource(
    DictionaryUsageContext* context, uint64_t resourceID, const ResourceValue& value) {
    if (value.datatypeID == D_XSD_DECIMAL) {
        const XSDDecimal decimal = value.getBinaryValue<XSDDecimal>();
        m_decimalTable.findOrInsert(decimal, [&](const XSDDecimal&) {
            ensureResourceUsable(resourceID);
            const uint64_t recordOffset = allocateRecord(context);
            setDecimal(recordOffset, static_cast<ResourceID>(resourceID), decimal);
            return typename DecimalTable::Entry{recordOffset, resourceID};
        });
    }
    else {
        const int64_t integer = value.getBinaryValue<int64_t>();
        getTable(value.datatypeID).findOrInsert(integer, [&](int64_t) {
            ensureResourceUsable(resourceID);
            setResource(resourceID, static_cast<uint64_t>(integer), value.datatypeID);
            return typename IntegerTable::Entry{static_cast<ResourceID>(resourceID), resourceID};
        });
    }
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::deleteUncommittedResourceID(
    const std::pair<uint64_t, uint64_t>&, uint64_t resourceID, uint8_t datatypeID) {
    const uint64_t data = m_resourceData[resourceID];
    if (datatypeID != D_XSD_DECIMAL)
        getTable(datatypeID).markDeleted(static_cast<int64_t>(data), static_cast<ResourceID>(resourceID));
    else if (data >= DataPool::FIRST_OFFSET) // otherwise the ID never had a record
        m_decimalTable.markDeleted(getDecimal(resourceID), data);
}

}
