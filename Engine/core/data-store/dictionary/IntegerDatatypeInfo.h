#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace kavix {

inline constexpr size_t NUMBER_OF_INTEGER_DATATYPES = 13;

/// An integer datatype and the values it holds, both bounds inclusive. All integer values share one signed 64-bit
/// representation, so the bounds of the unbounded types and of xsd:unsignedLong are restricted to it.
struct IntegerDatatypeInfo {
    uint8_t datatypeID;
    std::string datatypeIRI;
    int64_t minimum;
    int64_t maximum;

    bool contains(int64_t value) const noexcept { return minimum <= value && value <= maximum; }
};

/// The integer datatypes in the order of their IDs: that of datatype ID d is element d - 23.
extern const IntegerDatatypeInfo s_integerDatatypeInfos[NUMBER_OF_INTEGER_DATATYPES];

extern const std::string s_xsdDecimal;

extern const std::unordered_map<std::string, uint8_t> s_datatypeIRIsToIDs;

inline bool isIntegerDatatype(uint8_t datatypeID) noexcept {
    return datatypeID >= D_XSD_INTEGER && datatypeID <= D_XSD_UNSIGNED_BYTE;
}

inline bool isNumericDatatype(uint8_t datatypeID) noexcept {
    return datatypeID >= D_XSD_DECIMAL && datatypeID <= D_XSD_UNSIGNED_BYTE;
}

inline const IntegerDatatypeInfo& getIntegerDatatypeInfo(uint8_t datatypeID) noexcept {
    return s_integerDatatypeInfos[datatypeID - D_XSD_INTEGER];
}

}
