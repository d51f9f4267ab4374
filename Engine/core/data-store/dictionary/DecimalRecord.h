#pragma once

#include "core/data-store/dictionary/ResourceIDWidth.h"
#include "core/data-store/numbers/XSDDecimal.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kavix {

/// The record of an xsd:decimal resource in the data pool: the resource ID in the width of the dictionary, the unscaled
/// value (signed 64-bit), the number of fraction digits (8-bit); packed, native byte order, at any address. Records are
/// saved with the pool. This is the only place that knows their layout, reads and writes them.
///
/// If the width is a constant, so is everything here: no branch on it remains.
class DecimalRecord {

public:

    constexpr explicit DecimalRecord(ResourceIDWidth width) noexcept :
        m_resourceIDSize(width == ResourceIDWidth::BITS_32 ? sizeof(uint32_t) : sizeof(uint64_t)) { }

    /// In bytes: 13 or 17.
    constexpr size_t getSize() const noexcept { return m_resourceIDSize + sizeof(int64_t) + sizeof(uint8_t); }

    void write(uint8_t* record, uint64_t resourceID, const XSDDecimal& value) const noexcept {
        writeResourceID(record, resourceID);
        const int64_t unscaledValue = value.getUnscaledValue();
        std::memcpy(record + m_resourceIDSize, &unscaledValue, sizeof(unscaledValue));
        record[m_resourceIDSize + sizeof(unscaledValue)] = value.getFractionDigits();
    }

    void writeResourceID(uint8_t* record, uint64_t resourceID) const noexcept {
        std::memcpy(record, &resourceID, m_resourceIDSize); // the low bytes come first
    }

    uint64_t readResourceID(const uint8_t* record) const noexcept {
        uint64_t resourceID = 0;
        std::memcpy(&resourceID, record, m_resourceIDSize);
        return resourceID;
    }

    /// The value as it is stored; an untrusted record may have fields that are not normalised.
    XSDDecimal readValue(const uint8_t* record) const noexcept {
        int64_t unscaledValue;
        std::memcpy(&unscaledValue, record + m_resourceIDSize, sizeof(unscaledValue));
        return XSDDecimal::fromNormalisedFields(unscaledValue, record[m_resourceIDSize + sizeof(unscaledValue)]);
    }

private:

    const size_t m_resourceIDSize;
};

// The low bytes of an ID come first.
static_assert(std::endian::native == std::endian::little);
static_assert(DecimalRecord(ResourceIDWidth::BITS_32).getSize() == 13);
static_assert(DecimalRecord(ResourceIDWidth::BITS_64).getSize() == 17);

}
