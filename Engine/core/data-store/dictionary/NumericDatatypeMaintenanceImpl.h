#pragma once

#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DictionaryCompactionState.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/data-store/dictionary/Prefixes.h"
#include "core/platform/collections/ParallelHashTableImpl.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <cstring>
#include <utility>

// The image, compaction and statistics of the numeric dictionary: what a store does with it as a whole.

namespace kavix {

namespace NumericDatatypeImage {

inline constexpr char HEADER[] = "NumericDatatype";
inline constexpr uint64_t HEADER_LENGTH = sizeof(HEADER) - 1;

}

template<typename ResourceID>
void NumericDatatype<ResourceID>::save(OutputStream& output) const {
    const uint64_t headerLength = NumericDatatypeImage::HEADER_LENGTH;
    output.write(&headerLength, sizeof(headerLength));
    output.write(NumericDatatypeImage::HEADER, headerLength);
    output.write(&m_maxResourceID, sizeof(m_maxResourceID));
    output.write(&m_maxResourceIDForBlocks, sizeof(m_maxResourceIDForBlocks));
    m_decimalTable.save(output);
    for (const std::unique_ptr<IntegerTable>& table : m_integerTables)
        table->save(output);
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::load(InputStream& input) {
    uint64_t headerLength;
    readExactly(input, &headerLength, sizeof(headerLength));
    if (headerLength != NumericDatatypeImage::HEADER_LENGTH)
        Errors::throwCannotLoadNumericDatatype();
    char header[NumericDatatypeImage::HEADER_LENGTH];
    readExactly(input, header, sizeof(header));
    if (std::memcmp(header, NumericDatatypeImage::HEADER, sizeof(header)) != 0)
        Errors::throwCannotLoadNumericDatatype();
    readExactly(input, &m_maxResourceID, sizeof(m_maxResourceID));
    readExactly(input, &m_maxResourceIDForBlocks, sizeof(m_maxResourceIDForBlocks));
    m_decimalTable.load(input);
    for (const std::unique_ptr<IntegerTable>& table : m_integerTables)
        table->load(input);
}

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
        isDecimal ? Record::SIZE : 0});
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::finishCompact(const DictionaryCompactionState& state) {
    const CompactionEntry* entry = std::lower_bound(
        state.begin(), state.end(), D_XSD_DECIMAL,
        [](const CompactionEntry& candidate, uint8_t datatypeID) { return candidate.datatypeID < datatypeID; });

    // Refills one table with the run of entries of its datatype; without any, the table still loses what it held.
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
        Record::writeResourceID(record, static_cast<ResourceID>(decimalEntry.newResourceID));
        table.reinsert(
            Record::readValue(record), decimalEntry.data,
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

template<typename ResourceID>
std::unique_ptr<ComponentInfo> NumericDatatype<ResourceID>::getComponentInfo() const {
    auto root = std::make_unique<ComponentInfo>("NumericDatatype");
    uint64_t aggregateSize = 0;
    const auto addTable = [&root, &aggregateSize](const auto& table, const std::string& datatypeIRI) {
        std::string name;
        Prefixes::s_defaultPrefixes.encodeIRI(datatypeIRI.data(), datatypeIRI.size(), name);
        auto child = std::make_unique<ComponentInfo>(std::move(name));
        const uint64_t size = table.getCommittedBytes();
        const uint64_t numberOfBuckets = table.getNumberOfBuckets();
        const uint64_t numberOfUsedBuckets = table.getNumberOfUsedBuckets();
        child->addNumericProperty("Size", size, 0);
        child->addNumericProperty("Total number of buckets", numberOfBuckets, 0);
        child->addNumericProperty("Number of used buckets", numberOfUsedBuckets, 0);
        if (numberOfBuckets != 0)
            child->addDoubleProperty(
                "Load factor (%)",
                static_cast<double>(numberOfUsedBuckets) * 100.0 / static_cast<double>(numberOfBuckets));
        root->getChildren().push_back(std::move(child));
        aggregateSize += size;
    };
    addTable(m_decimalTable, s_xsdDecimal);
    for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
        addTable(std::as_const(getTable(datatypeID)), getIntegerDatatypeInfo(datatypeID).datatypeIRI);
    root->addNumericProperty("Aggregate size", aggregateSize, 0);
    return root;
}

}
