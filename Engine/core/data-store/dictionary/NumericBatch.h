#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatypeBatches.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/system/Unmovable.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <type_traits>

namespace kavix {

/// Up to 1024 numeric values in order, which can be read grouped by datatype: all values of one table together, each
/// with its index in the batch. An index may also be without a value. Lives on the stack of one thread (28 KB, of which
/// only the used part is touched) and allocates nothing.
class NumericBatch : private Unmovable {

public:

    static constexpr size_t MAX_SIZE = DictionaryDatatypeBatches::MAX_BATCH_SIZE;

    NumericBatch() noexcept :
        m_size(0),
        m_groupSizes() { } // the other members are filled only as far as they are used

    /// Adds a value in binary form, of a numeric datatype (22 to 35).
    void add(const ResourceValue& value) noexcept {
        if (value.datatypeID == D_XSD_DECIMAL) {
            const XSDDecimal decimal = value.getBinaryValue<XSDDecimal>();
            add(D_XSD_DECIMAL, decimal.getUnscaledValue(), decimal.getFractionDigits());
        }
        else
            add(value.datatypeID, value.getBinaryValue<int64_t>(), 0);
    }

    /// Adds an index without a value.
    void addNothing() noexcept { add(NO_DATATYPE, 0, 0); }

    bool hasValue(size_t index) const noexcept { return m_groups[index] != NO_VALUE_GROUP; }

    /// The datatype ID and the binary form at an index that has a value.
    uint8_t getDatatypeID(size_t index) const noexcept { return static_cast<uint8_t>(m_groups[index] + D_XSD_DECIMAL); }

    ResourceValue getValue(size_t index) const noexcept {
        ResourceValue value;
        if (m_groups[index] == DECIMAL_GROUP)
            value.setBinaryValue(D_XSD_DECIMAL, getDecimal(index));
        else
            value.setBinaryValue(getDatatypeID(index), m_words[index]);
        return value;
    }

    /// Whether every index has a value, and all are of one datatype. The batch is not empty.
    bool isOfOneDatatype() const noexcept { return hasValue(0) && m_groupSizes[m_groups[0]] == m_size; }

    /// All values, if each is an integer.
    std::span<const int64_t> getIntegers() const noexcept { return {m_words, m_size}; }

    /// All values, if each is a decimal; valid until values are requested again.
    std::span<const XSDDecimal> getDecimals() noexcept {
        return gather<XSDDecimal>(m_size, [this](size_t index) { return getDecimal(index); });
    }

    /// Calls operation(datatypeID, keys, places) for each datatype that occurs: the values of that datatype, a span of
    /// int64_t or XSDDecimal which is valid until the operation returns, and for each its index in the batch,
    /// ascending.
    template<typename Operation>
    void forEachDatatype(Operation operation) noexcept {
        sort();
        const uint16_t* places = m_places;
        for (size_t group = 0; group < NO_VALUE_GROUP; ++group) {
            const size_t size = m_groupSizes[group];
            if (size == 0)
                continue;
            const std::span<const uint16_t> ofGroup(places, size);
            if (group == DECIMAL_GROUP)
                operation(
                    D_XSD_DECIMAL, gather<XSDDecimal>(size, [&](size_t index) { return getDecimal(ofGroup[index]); }),
                    ofGroup);
            else
                operation(
                    static_cast<uint8_t>(group + D_XSD_DECIMAL),
                    gather<int64_t>(size, [&](size_t index) { return m_words[ofGroup[index]]; }), ofGroup);
            places += size;
        }
    }

private:

    static constexpr size_t DECIMAL_GROUP = 0; // a group is a datatype, numbered from that of decimals on
    static constexpr size_t NO_VALUE_GROUP = D_XSD_UNSIGNED_BYTE - D_XSD_DECIMAL + 1; // the last one
    static constexpr size_t NUMBER_OF_GROUPS = NO_VALUE_GROUP + 1;
    static constexpr uint8_t NO_DATATYPE = D_XSD_DECIMAL + NO_VALUE_GROUP;

    void add(uint8_t datatypeID, int64_t word, uint8_t fractionDigits) noexcept {
        assert(m_size < MAX_SIZE && datatypeID >= D_XSD_DECIMAL && datatypeID <= NO_DATATYPE);
        m_words[m_size] = word;
        m_fractionDigits[m_size] = fractionDigits;
        m_groups[m_size] = static_cast<uint8_t>(datatypeID - D_XSD_DECIMAL);
        ++m_groupSizes[m_groups[m_size]];
        ++m_size;
    }

    XSDDecimal getDecimal(size_t index) const noexcept {
        return XSDDecimal::fromNormalisedFields(m_words[index], m_fractionDigits[index]);
    }

    /// Sorts the indexes by group: a counting sort, which keeps the order within each.
    void sort() noexcept {
        uint16_t next[NUMBER_OF_GROUPS];
        uint16_t begin = 0;
        for (size_t group = 0; group < NUMBER_OF_GROUPS; ++group) {
            next[group] = begin;
            begin = static_cast<uint16_t>(begin + m_groupSizes[group]);
        }
        for (size_t index = 0; index < m_size; ++index)
            m_places[next[m_groups[index]]++] = static_cast<uint16_t>(index);
    }

    /// Writes getKey(0) to getKey(size - 1) one after the other.
    template<typename Key, typename GetKey>
    std::span<const Key> gather(size_t size, GetKey getKey) noexcept {
        static_assert(std::is_trivially_copyable_v<Key> && sizeof(Key) * MAX_SIZE <= sizeof(m_keys));
        Key* const keys = reinterpret_cast<Key*>(m_keys);
        for (size_t index = 0; index < size; ++index)
            std::construct_at(keys + index, getKey(index));
        return {keys, size};
    }

    size_t m_size;
    uint16_t m_groupSizes[NUMBER_OF_GROUPS];
    int64_t m_words[MAX_SIZE]; // an integer, or the unscaled value of a decimal
    uint8_t m_fractionDigits[MAX_SIZE];
    uint8_t m_groups[MAX_SIZE];
    uint16_t m_places[MAX_SIZE];
    alignas(XSDDecimal) std::byte m_keys[MAX_SIZE * sizeof(XSDDecimal)];
};

}
