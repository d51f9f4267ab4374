#pragma once

#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/data-store/inspection/DictionaryDatatypeInspector.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kavix {

/// Walks over every bucket and every resource of a numeric dictionary and reports inconsistencies. It never uses an ID
/// or an offset that it has not compared with its bound, so any content is safe to verify.
///
/// A bucket is consistent if its resource exists, has the table's datatype and the bucket's value, and is in no other
/// bucket; if no bucket between the value's first bucket and this one is empty, so that probing finds it; and if none
/// of them has the same value. A resource is consistent if its value is valid for its datatype and a bucket has it.
template<typename ResourceID>
class NumericDatatypeVerifier {

public:

    NumericDatatypeVerifier(
        const NumericDatatype<ResourceID>& dictionary, const StoreContents& contents, const ProblemReport& report) :
        m_dictionary(dictionary),
        m_contents(contents),
        m_report(report),
        m_isInBucket(contents.m_nextResourceID, false) { }

    void verify();

private:

    static constexpr DecimalRecord RECORD{RESOURCE_ID_WIDTH<ResourceID>};
    using IntegerPolicy = typename NumericDatatype<ResourceID>::IntegerPolicy;
    using DecimalPolicy = typename NumericDatatype<ResourceID>::DecimalPolicy;

    /// What a live bucket says about its resource.
    template<typename Key>
    struct Entry {
        uint64_t m_resourceID;
        uint64_t m_data; // the value that the array of data words must have
        Key m_key;
    };

    template<typename Policy>
    void verifyTable(const ParallelHashTable<Policy>& table, uint8_t datatypeID);

    template<typename Policy>
    void verifyCounts(
        const ParallelHashTable<Policy>& table, uint8_t datatypeID, uint64_t liveBuckets,
        uint64_t deletedBuckets) const;

    template<typename Policy, typename Key>
    void verifyEntry(uint8_t datatypeID, size_t index, const Entry<Key>& entry);

    template<typename Policy, typename Key>
    void verifyProbing(const ParallelHashTable<Policy>& table, uint8_t datatypeID, size_t index, const Key& key) const;

    void verifyResources() const;

    /// Whether the content of a live bucket can be read; if not, reports why.
    bool tryGetEntry(
        const typename IntegerPolicy::Bucket& bucket, ResourceID keyWord, uint8_t datatypeID, size_t index,
        Entry<int64_t>& entry) const;
    bool tryGetEntry(
        const typename DecimalPolicy::Bucket& bucket, uint64_t keyWord, uint8_t datatypeID, size_t index,
        Entry<XSDDecimal>& entry) const;

    bool hasKey(const typename IntegerPolicy::Bucket& bucket, ResourceID, int64_t key) const noexcept {
        return bucket.m_value == key;
    }
    bool hasKey(const typename DecimalPolicy::Bucket&, uint64_t keyWord, const XSDDecimal& key) const noexcept {
        return isRecordOffset(keyWord) && RECORD.readValue(m_contents.m_dataPoolBase + keyWord) == key;
    }

    bool isRecordOffset(uint64_t offset) const noexcept {
        return offset >= DataPool::FIRST_OFFSET && m_contents.m_dataPoolEnd >= RECORD.getSize() &&
               offset <= m_contents.m_dataPoolEnd - RECORD.getSize();
    }

    void reportTable(uint8_t datatypeID, const std::string& problem) const;

    void reportBucket(uint8_t datatypeID, size_t index, const std::string& problem) const;

    void reportResource(uint64_t resourceID, uint8_t datatypeID, const std::string& problem) const;

    const NumericDatatype<ResourceID>& m_dictionary;
    const StoreContents& m_contents;
    const ProblemReport& m_report;
    std::vector<bool> m_isInBucket; // by resource ID
};

}
