#include "core/data-store/inspection/NumericDatatypeVerifier.h"

#include "core/data-store/dictionary/DatatypeNames.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/platform/collections/LinearProbing.h"
#include "core/platform/collections/ParallelHashTableImpl.h"

#include <atomic>
#include <cstddef>

namespace kavix {

template<typename ResourceID>
void NumericDatatypeVerifier<ResourceID>::reportTable(uint8_t datatypeID, const std::string& problem) const {
    m_report("table of " + getDatatypeName(datatypeID) + ": " + problem);
}

template<typename ResourceID>
void NumericDatatypeVerifier<ResourceID>::reportBucket(
    uint8_t datatypeID, size_t index, const std::string& problem) const {
    m_report("table of " + getDatatypeName(datatypeID) + ", bucket " + std::to_string(index) + ": " + problem);
}

template<typename ResourceID>
void NumericDatatypeVerifier<ResourceID>::reportResource(
    uint64_t resourceID, uint8_t datatypeID, const std::string& problem) const {
    m_report("resource " + std::to_string(resourceID) + " of " + getDatatypeName(datatypeID) + ": " + problem);
}

template<typename ResourceID>
void NumericDatatypeVerifier<ResourceID>::verify() {
    verifyTable(m_dictionary.getDecimalTable(), D_XSD_DECIMAL);
    for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
        verifyTable(m_dictionary.getIntegerTable(datatypeID), datatypeID);
    verifyResources();
}

template<typename ResourceID>
template<typename Policy>
void NumericDatatypeVerifier<ResourceID>::verifyTable(const ParallelHashTable<Policy>& table, uint8_t datatypeID) {
    using Table = ParallelHashTable<Policy>;
    uint64_t liveBuckets = 0;
    uint64_t deletedBuckets = 0;
    const size_t numberOfBuckets = table.getNumberOfBuckets();
    for (size_t index = 0; index < numberOfBuckets; ++index) {
        const typename Policy::Bucket& bucket = table.getBuckets()[index];
        const typename Policy::KeyWord keyWord =
            Policy::getKeyWord(bucket).load(std::memory_order_relaxed); // no thread writes
        if (keyWord == Table::EMPTY)
            continue;
        if (keyWord == Table::BUSY)
            reportBucket(datatypeID, index, "it is marked busy");
        else if (keyWord == Table::DELETED)
            ++deletedBuckets;
        else {
            ++liveBuckets;
            Entry<typename Policy::Key> entry;
            if (tryGetEntry(bucket, keyWord, datatypeID, index, entry)) {
                verifyEntry<Policy>(datatypeID, index, entry);
                verifyProbing(table, datatypeID, index, entry.m_key);
            }
        }
    }
    verifyCounts(table, datatypeID, liveBuckets, deletedBuckets);
}

template<typename ResourceID>
template<typename Policy>
void NumericDatatypeVerifier<ResourceID>::verifyCounts(
    const ParallelHashTable<Policy>& table, uint8_t datatypeID, uint64_t liveBuckets, uint64_t deletedBuckets) const {
    if (deletedBuckets != table.getDeletedCount())
        reportTable(
            datatypeID, "it has " + std::to_string(deletedBuckets) + " deleted buckets but counts " +
                            std::to_string(table.getDeletedCount()));
    if (liveBuckets + deletedBuckets != table.getNumberOfUsedBuckets())
        reportTable(
            datatypeID, "it has " + std::to_string(liveBuckets + deletedBuckets) +
                            " live and deleted buckets but counts " + std::to_string(table.getNumberOfUsedBuckets()));
    if (liveBuckets + deletedBuckets >= table.getNumberOfBuckets())
        reportTable(datatypeID, "no bucket is empty, so a search would never end");
}

template<typename ResourceID>
bool NumericDatatypeVerifier<ResourceID>::tryGetEntry(
    const typename IntegerPolicy::Bucket& bucket, ResourceID keyWord, uint8_t, size_t, Entry<int64_t>& entry) const {
    entry = {keyWord, static_cast<uint64_t>(bucket.m_value), bucket.m_value};
    return true;
}

template<typename ResourceID>
bool NumericDatatypeVerifier<ResourceID>::tryGetEntry(
    const typename DecimalPolicy::Bucket&, uint64_t keyWord, uint8_t datatypeID, size_t index,
    Entry<XSDDecimal>& entry) const {
    if (!isRecordOffset(keyWord)) {
        reportBucket(
            datatypeID, index, "its record at offset " + std::to_string(keyWord) + " is outside the data pool");
        return false;
    }
    const uint8_t* const record = m_contents.m_dataPoolBase + keyWord;
    entry = {RECORD.readResourceID(record), keyWord, RECORD.readValue(record)};
    return true;
}

template<typename ResourceID>
template<typename Policy, typename Key>
void NumericDatatypeVerifier<ResourceID>::verifyEntry(uint8_t datatypeID, size_t index, const Entry<Key>& entry) {
    const auto reportEntry = [&](const std::string& problem) {
        reportBucket(datatypeID, index, "resource " + std::to_string(entry.m_resourceID) + " " + problem);
    };
    if (entry.m_resourceID == 0 || entry.m_resourceID >= m_contents.m_nextResourceID) {
        reportEntry("was never assigned");
        return;
    }
    const uint8_t arrayDatatypeID =
        m_contents.m_resourceDatatypeIDs[entry.m_resourceID].load(std::memory_order_relaxed);
    if (arrayDatatypeID != datatypeID)
        reportEntry("has datatype ID " + std::to_string(arrayDatatypeID) + " in the array of datatype IDs");
    else if (m_contents.m_resourceData[entry.m_resourceID] != entry.m_data)
        reportEntry("has a different value in the array of data words");
    if (m_isInBucket[entry.m_resourceID])
        reportEntry("is also in another bucket");
    m_isInBucket[entry.m_resourceID] = true;
}

template<typename ResourceID>
template<typename Policy, typename Key>
void NumericDatatypeVerifier<ResourceID>::verifyProbing(
    const ParallelHashTable<Policy>& table, uint8_t datatypeID, size_t index, const Key& key) const {
    using Table = ParallelHashTable<Policy>;
    const size_t mask = table.getNumberOfBuckets() - 1;
    for (size_t probe = LinearProbing::getFirst(Policy::getHash(key), mask); probe != index;
         probe = LinearProbing::getNext(probe, mask)) {
        const typename Policy::Bucket& bucket = table.getBuckets()[probe];
        const typename Policy::KeyWord keyWord = Policy::getKeyWord(bucket).load(std::memory_order_relaxed);
        if (keyWord == Table::EMPTY) {
            reportBucket(
                datatypeID, index,
                "its value cannot be found, because bucket " + std::to_string(probe) + " before it is empty");
            return;
        }
        if (keyWord < Table::DELETED && hasKey(bucket, keyWord, key)) {
            reportBucket(datatypeID, index, "bucket " + std::to_string(probe) + " has the same value");
            return;
        }
    }
}

template<typename ResourceID>
void NumericDatatypeVerifier<ResourceID>::verifyResources() const {
    for (uint64_t resourceID = 1; resourceID < m_contents.m_nextResourceID; ++resourceID) {
        const uint8_t datatypeID = m_contents.m_resourceDatatypeIDs[resourceID].load(std::memory_order_relaxed);
        if (!isNumericDatatype(datatypeID))
            continue;
        const uint64_t data = m_contents.m_resourceData[resourceID];
        if (datatypeID == D_XSD_DECIMAL) {
            if (!isRecordOffset(data)) {
                reportResource(
                    resourceID, datatypeID,
                    "its record at offset " + std::to_string(data) + " is outside the data pool");
                continue;
            }
            const uint8_t* const record = m_contents.m_dataPoolBase + data;
            const XSDDecimal value = RECORD.readValue(record);
            if (RECORD.readResourceID(record) != resourceID)
                reportResource(
                    resourceID, datatypeID,
                    "its record belongs to resource " + std::to_string(RECORD.readResourceID(record)));
            if (!XSDDecimal::areNormalisedFields(value.getUnscaledValue(), value.getFractionDigits()))
                reportResource(
                    resourceID, datatypeID, "its decimal is not normalised, or has more than 19 fraction digits");
        }
        else {
            const int64_t value = static_cast<int64_t>(data);
            if (!getIntegerDatatypeInfo(datatypeID).contains(value))
                reportResource(
                    resourceID, datatypeID,
                    "its value " + std::to_string(value) + " is not in the range of the datatype");
        }
        if (!m_isInBucket[resourceID])
            reportResource(resourceID, datatypeID, "no bucket has it, so its value cannot be found");
    }
}

template class NumericDatatypeVerifier<unsigned int>;
template class NumericDatatypeVerifier<unsigned long>;

}
