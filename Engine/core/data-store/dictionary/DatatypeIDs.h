#pragma once

#include <cstdint>

namespace kavix {

/// The 8-bit codes of the datatypes. They are stored in images and in the array of datatype IDs, so they never change.
/// 0 means that there is no resource.
enum DatatypeID : uint8_t {
    D_NONE = 0,
    D_XSD_DOUBLE = 20, // belongs to another family; only produced as an equal value
    D_XSD_FLOAT = 21, // belongs to another family; only produced as an equal value
    D_XSD_DECIMAL = 22,
    D_XSD_INTEGER = 23,
    D_XSD_NON_NEGATIVE_INTEGER = 24,
    D_XSD_NON_POSITIVE_INTEGER = 25,
    D_XSD_NEGATIVE_INTEGER = 26,
    D_XSD_POSITIVE_INTEGER = 27,
    D_XSD_LONG = 28,
    D_XSD_INT = 29,
    D_XSD_SHORT = 30,
    D_XSD_BYTE = 31,
    D_XSD_UNSIGNED_LONG = 32,
    D_XSD_UNSIGNED_INT = 33,
    D_XSD_UNSIGNED_SHORT = 34,
    D_XSD_UNSIGNED_BYTE = 35,
};

}
