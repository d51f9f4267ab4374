#pragma once

#include "core/data-store/dictionary/DataPool.h"
#include "core/data-store/dictionary/DecimalRecord.h"
#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/dictionary/DictionaryDatatypeBatches.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/collections/ParallelHashTable.h"
#include "core/platform/system/Prefetch.h"

#include <array>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

class NumericBatch;

/// The dictionary of numeric resources of one store: a table of xsd:decimal values and one of each integer datatype. A
/// value keeps the datatype under which it was entered, so "5"^^xsd:int and "5"^^xsd:long are two resources.
///
///   resource      data word             bucket                            record in the data pool
///   an integer    the value             resource ID, value                none
///   a decimal     the record's offset   the record's offset               resource ID, unscaled value, fraction digits
///
/// ResourceID is the width in which buckets and records store resource IDs, unsigned int or unsigned long; every
/// interface has 64 bits. The narrow dictionary relies on the bound given to initialize(): at most 2^32 - 2.
/// Callers, publication order: see DictionaryDatatype. Records are never freed or moved by this class.
template<typename ResourceID>
class NumericDatatype final : public DictionaryDatatypeBatches {

public:

    /// The layout of this dictionary's records.
    static constexpr DecimalRecord RECORD{RESOURCE_ID_WIDTH<ResourceID>};

    /// Buckets of integer tables: the key word is the resource ID. The hash is part of the image format.
    struct IntegerPolicy {

        using Key = int64_t;
        using KeyWord = ResourceID;

        static constexpr bool ENTRY_IS_IN_BUCKET = true;

        struct Bucket {
            std::atomic<ResourceID> m_resourceID; // padded to 8 bytes with zeroes that are never written
            alignas(8) int64_t m_value;
        };

        static std::atomic<KeyWord>& getKeyWord(Bucket& bucket) noexcept { return bucket.m_resourceID; }
        static const std::atomic<KeyWord>& getKeyWord(const Bucket& bucket) noexcept { return bucket.m_resourceID; }

        static uint64_t getHash(int64_t key) noexcept { return static_cast<uint64_t>(key) * 0x9e3779b1ULL; }

        static uint64_t getEntryHash(const Bucket& bucket, KeyWord) noexcept { return getHash(bucket.m_value); }

        static bool isEqual(const Bucket& bucket, KeyWord, int64_t key) noexcept { return bucket.m_value == key; }

        static void prefetchEntry(KeyWord) noexcept { }

        static void setValue(Bucket& bucket, int64_t key) noexcept { bucket.m_value = key; }

        static void copyValue(const Bucket& from, Bucket& to) noexcept { to.m_value = from.m_value; }

        static uint64_t getResourceID(const Bucket&, KeyWord keyWord) noexcept { return keyWord; }
    };

    /// Buckets of the decimal table: the key word is the offset of the record in the data pool, whose base is read at
    /// every access. The hash is part of the image format.
    struct DecimalPolicy {

        using Key = XSDDecimal;
        using KeyWord = uint64_t;

        static constexpr bool ENTRY_IS_IN_BUCKET = false;

        struct Bucket {
            std::atomic<uint64_t> m_recordOffset;
        };

        const DataPool& m_dataPool;

        static std::atomic<KeyWord>& getKeyWord(Bucket& bucket) noexcept { return bucket.m_recordOffset; }
        static const std::atomic<KeyWord>& getKeyWord(const Bucket& bucket) noexcept { return bucket.m_recordOffset; }

        /// 64-bit FNV-1a over the unscaled value and the number of fraction digits, each as one unit.
        static uint64_t getHash(const XSDDecimal& key) noexcept {
            constexpr uint64_t OFFSET_BASIS = 0xcbf29ce484222325ULL;
            constexpr uint64_t PRIME = 0x100000001b3ULL;
            return (((static_cast<uint64_t>(key.getUnscaledValue()) ^ OFFSET_BASIS) * PRIME) ^
                    key.getFractionDigits()) *
                   PRIME;
        }

        const uint8_t* getRecord(KeyWord recordOffset) const noexcept { return m_dataPool.getBase() + recordOffset; }

        uint64_t getEntryHash(const Bucket&, KeyWord keyWord) const noexcept {
            return getHash(RECORD.readValue(getRecord(keyWord)));
        }

        bool isEqual(const Bucket&, KeyWord keyWord, const XSDDecimal& key) const noexcept {
            return RECORD.readValue(getRecord(keyWord)) == key;
        }

        void prefetchEntry(KeyWord keyWord) const noexcept { fetchAhead(getRecord(keyWord)); }

        static void setValue(Bucket&, const XSDDecimal&) noexcept { }

        static void copyValue(const Bucket&, Bucket&) noexcept { }

        uint64_t getResourceID(const Bucket&, KeyWord keyWord) const noexcept {
            return RECORD.readResourceID(getRecord(keyWord));
        }
    };

    static_assert(
        sizeof(typename IntegerPolicy::Bucket) == 16 && offsetof(typename IntegerPolicy::Bucket, m_value) == 8);
    static_assert(sizeof(typename DecimalPolicy::Bucket) == 8);
    static_assert(std::atomic<ResourceID>::is_always_lock_free && std::atomic<uint64_t>::is_always_lock_free);

    /// How much of the data pool a usage context takes at a time, less one record.
    static constexpr uint64_t DATA_POOL_CHUNK_SIZE = 65536;

    NumericDatatype(
        MemoryManager& memoryManager, std::atomic<uint64_t>& nextResourceID, MemoryRegion<uint64_t>& resourceData,
        MemoryRegion<std::atomic<uint8_t>>& resourceDatatypeIDs, DataPool& dataPool);

    ~NumericDatatype() override;

    void initialize(uint64_t maxResourceID, uint64_t unused) override;
    void restoreEmpty(const std::vector<uint64_t>& countsByDatatypeID) override;

    uint64_t getNumberOfMappableEntriesInCompaction() override;
    void prepareCompact(uint64_t resourceID, uint64_t newResourceID, DictionaryCompactionState& state) override;
    void finishCompact(const DictionaryCompactionState& state) override;

    void deleteUncommittedResourceID(
        const std::pair<uint64_t, uint64_t>& visibility, uint64_t resourceID, uint8_t datatypeID) override;

    void getResource(uint64_t resourceID, uint8_t datatypeID, ResourceValue& value) const override;
    void getResource(uint64_t resourceID, uint8_t datatypeID, std::string& text) const override;

    uint64_t tryResolveResource(
        const std::pair<uint64_t, uint64_t>& visibility, const ResourceValue& value) const noexcept override;
    uint64_t tryResolveResource(
        const std::pair<uint64_t, uint64_t>& visibility, const char* lexicalForm, size_t length,
        uint8_t datatypeID) const override;

    uint64_t resolveResource(DictionaryUsageContext* context, const ResourceValue& value) override;
    uint64_t resolveResource(
        DictionaryUsageContext* context, const char* lexicalForm, size_t length, uint8_t datatypeID) override;

    void restoreResource(DictionaryUsageContext* context, uint64_t resourceID, const ResourceValue& value) override;

    /// resolveResource() and tryResolveResource() of a value in a register: an integer of an integer datatype (23 to
    /// 35) within its range, or a decimal.
    uint64_t resolveResource(DictionaryUsageContext* context, uint8_t datatypeID, int64_t value);
    uint64_t resolveResource(DictionaryUsageContext* context, const XSDDecimal& value);
    uint64_t tryResolveResource(
        const std::pair<uint64_t, uint64_t>& visibility, uint8_t datatypeID, int64_t value) const noexcept;
    uint64_t tryResolveResource(
        const std::pair<uint64_t, uint64_t>& visibility, const XSDDecimal& value) const noexcept;

    /// resolveResource() for many values of one datatype, in order, with cache misses overlapped.
    /// @param resourceIDs  one for each value
    /// @throws as resolveResource() at the first value that fails: those before it are entered, no value from that
    ///         index on is
    void resolveResources(
        DictionaryUsageContext* context, uint8_t datatypeID, std::span<const int64_t> values, uint64_t* resourceIDs);
    void resolveResources(DictionaryUsageContext* context, std::span<const XSDDecimal> values, uint64_t* resourceIDs);

    /// tryResolveResource() for many values of one datatype.
    void tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, uint8_t datatypeID, std::span<const int64_t> values,
        uint64_t* resourceIDs) const noexcept;
    void tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const XSDDecimal> values,
        uint64_t* resourceIDs) const noexcept;

    void resolveResources(
        DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) override;
    void tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values,
        uint64_t* resourceIDs) const noexcept override;

    size_t resolveResources(
        DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept override;
    size_t tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const Literal> literals,
        Resolution* resolutions) const noexcept override;

    void getResources(
        std::span<const uint64_t> resourceIDs, const uint8_t* datatypeIDs, ResourceValue* values) const override;

    void save(OutputStream& output) const override;
    void load(InputStream& input) override;

    std::unique_ptr<ComponentInfo> getComponentInfo() const override;

    using DecimalTable = ParallelHashTable<DecimalPolicy>;
    using IntegerTable = ParallelHashTable<IntegerPolicy>;

    /// The tables, for inspection while no thread writes.
    const DecimalTable& getDecimalTable() const noexcept { return m_decimalTable; }
    const IntegerTable& getIntegerTable(uint8_t datatypeID) const noexcept { return getTable(datatypeID); }

private:

    IntegerTable& getTable(uint8_t datatypeID) const noexcept {
        assert(datatypeID >= D_XSD_INTEGER && datatypeID <= D_XSD_UNSIGNED_BYTE);
        return *m_integerTables[size_t(datatypeID) - D_XSD_INTEGER]; // in 64 bits, which folds into an address
    }

    /// Looks up all values of a batch; a 0 for each that is absent or not visible. An index without a value gets
    /// nothing.
    void findAll(
        const std::pair<uint64_t, uint64_t>& visibility, NumericBatch& batch, uint64_t* resourceIDs) const noexcept;

    // The arguments of the tables' fast paths. They are named types, so that programs find the slow paths in the
    // library.

    struct IsAnything {
        bool operator()(ResourceID) const noexcept { return true; }
    };

    struct IsRecordBelow {
        uint64_t m_end;

        bool operator()(uint64_t recordOffset) const noexcept { return recordOffset < m_end; }
    };

    struct CreateEntry {
        auto operator()(const XSDDecimal& value, NumericDatatype* dictionary, DictionaryUsageContext* context) const {
            return dictionary->createEntry(context, value);
        }
        auto operator()(
            int64_t value, NumericDatatype* dictionary, DictionaryUsageContext* context, uint8_t datatypeID) const {
            return dictionary->createEntry(context, datatypeID, value);
        }

        /// The entry, if the context has an ID and, for a decimal, room for a record; otherwise nothing was taken.
        std::optional<typename ParallelHashTable<DecimalPolicy>::Entry> tryAtOnce(
            const XSDDecimal& value, NumericDatatype* dictionary, DictionaryUsageContext* context) const noexcept;
        std::optional<typename ParallelHashTable<IntegerPolicy>::Entry> tryAtOnce(
            int64_t value, NumericDatatype* dictionary, DictionaryUsageContext* context,
            uint8_t datatypeID) const noexcept;
    };

    /// Takes a resource ID for a value and publishes it; the table does not have the entry yet.
    typename DecimalTable::Entry createEntry(DictionaryUsageContext* context, const XSDDecimal& value);
    typename IntegerTable::Entry createEntry(DictionaryUsageContext* context, uint8_t datatypeID, int64_t value);

    /// Writes the record of a decimal and the array entries of its resource.
    void setDecimal(uint64_t recordOffset, ResourceID resourceID, const XSDDecimal& value) noexcept;

    /// Returns the offset of a new record.
    uint64_t allocateRecord(DictionaryUsageContext* context);

    void ensureResourceUsable(uint64_t resourceID);

    XSDDecimal getDecimal(uint64_t resourceID) const noexcept {
        return RECORD.readValue(m_dataPool.getBase() + m_resourceData[resourceID]);
    }

    // Lookups write only the entry count of the thread's slot, but they may have to help a resize. The integer tables,
    // in the order of the datatype IDs, are reached through pointers, which takes fewer instructions than computing
    // with their sizes.
    mutable DecimalTable m_decimalTable;
    std::array<std::unique_ptr<IntegerTable>, NUMBER_OF_INTEGER_DATATYPES> m_integerTables;
};

// Inline, for callers that know the type: a call takes a tenth of the time of a lookup.

template<typename ResourceID>
inline uint64_t NumericDatatype<ResourceID>::tryResolveResource(
    const std::pair<uint64_t, uint64_t>& visibility, const XSDDecimal& value) const noexcept {
    return m_decimalTable.find(value, IsRecordBelow{visibility.second}, visibility.first);
}

template<typename ResourceID>
inline uint64_t NumericDatatype<ResourceID>::tryResolveResource(
    const std::pair<uint64_t, uint64_t>& visibility, uint8_t datatypeID, int64_t value) const noexcept {
    return getTable(datatypeID).find(value, IsAnything(), visibility.first);
}

template<typename ResourceID>
inline uint64_t NumericDatatype<ResourceID>::resolveResource(DictionaryUsageContext* context, const XSDDecimal& value) {
    return m_decimalTable.findOrInsert(value, CreateEntry(), this, context);
}

template<typename ResourceID>
inline uint64_t NumericDatatype<ResourceID>::resolveResource(
    DictionaryUsageContext* context, uint8_t datatypeID, int64_t value) {
    return getTable(datatypeID).findOrInsert(value, CreateEntry(), this, context, datatypeID);
}

template<typename ResourceID>
inline void NumericDatatype<ResourceID>::setDecimal(
    uint64_t recordOffset, ResourceID resourceID, const XSDDecimal& value) noexcept {
    RECORD.write(m_dataPool.getBase() + recordOffset, resourceID, value);
    setResource(resourceID, recordOffset, D_XSD_DECIMAL);
}

template<typename ResourceID>
inline std::optional<typename NumericDatatype<ResourceID>::DecimalTable::Entry> NumericDatatype<ResourceID>::
    CreateEntry::tryAtOnce(
        const XSDDecimal& value, NumericDatatype* dictionary, DictionaryUsageContext* context) const noexcept {
    if (context == nullptr || !context->hasResourceID() || !context->hasDataPoolRoom(RECORD.getSize()))
        return std::nullopt;
    const ResourceID resourceID = static_cast<ResourceID>(context->takeResourceID());
    const uint64_t recordOffset = context->takeDataPoolRoom(RECORD.getSize());
    dictionary->setDecimal(recordOffset, resourceID, value);
    return typename DecimalTable::Entry{recordOffset, resourceID};
}

template<typename ResourceID>
inline std::optional<typename NumericDatatype<ResourceID>::IntegerTable::Entry> NumericDatatype<ResourceID>::
    CreateEntry::tryAtOnce(
        int64_t value, NumericDatatype* dictionary, DictionaryUsageContext* context,
        uint8_t datatypeID) const noexcept {
    if (context == nullptr || !context->hasResourceID())
        return std::nullopt;
    const uint64_t resourceID = context->takeResourceID();
    dictionary->setResource(resourceID, static_cast<uint64_t>(value), datatypeID);
    return typename IntegerTable::Entry{static_cast<ResourceID>(resourceID), resourceID};
}

extern template class NumericDatatype<unsigned int>;
extern template class NumericDatatype<unsigned long>;

}
