#pragma once

#include "core/data-store/numbers/XSDDecimal.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kavix {

/// The record of an xsd:decimal resource in the data pool: the resource ID in the width of the dictionary, the unscaled
/// value (signed 64-bit), the number of fraction digits (8-bit); packed, native byte order, at any address. Records are
/// saved with the pool. This is the one place that reads and writes them.
template<typename ResourceID>
struct DecimalRecord {

    static constexpr size_t UNSCALED_VALUE_OFFSET = sizeof(ResourceID);
    static constexpr size_t FRACTION_DIGITS_OFFSET = UNSCALED_VALUE_OFFSET + sizeof(int64_t);
    static constexpr size_t SIZE = FRACTION_DIGITS_OFFSET + sizeof(uint8_t);

    static void write(uint8_t* record, ResourceID resourceID, const XSDDecimal& value) noexcept {
        writeResourceID(record, resourceID);
        const int64_t unscaledValue = value.getUnscaledValue();
        std::memcpy(record + UNSCALED_VALUE_OFFSET, &unscaledValue, sizeof(unscaledValue));
        record[FRACTION_DIGITS_OFFSET] = value.getFractionDigits();
    }

    static void writeResourceID(uint8_t* record, ResourceID resourceID) noexcept {
        std::memcpy(record, &resourceID, sizeof(resourceID));
    }

    static ResourceID readResourceID(const uint8_t* record) noexcept {
        ResourceID resourceID;
        std::memcpy(&resourceID, record, sizeof(resourceID));
        return resourceID;
    }

    static XSDDecimal readValue(const uint8_t* record) noexcept {
        int64_t unscaledValue;
        std::memcpy(&unscaledValue, record + UNSCALED_VALUE_OFFSET, sizeof(unscaledValue));
        return XSDDecimal::fromNormalisedFields(unscaledValue, record[FRACTION_DIGITS_OFFSET]);
    }
};

static_assert(DecimalRecord<unsigned int>::SIZE == 13 && DecimalRecord<unsigned long>::SIZE == 17);

}
