#pragma once

#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "core/data-store/dictionary/NumericLexicalForms.h"

#include <cstdint>

namespace kavix::test {

inline constexpr LexicalFormStatus OUT = LexicalFormStatus::OUT_OF_RANGE;
inline constexpr LexicalFormStatus BEYOND = LexicalFormStatus::BEYOND_CAPACITY;

/// The integer datatypes, written down again: IDs, names, IRIs, ranges.
struct DatatypeRow {
    uint8_t m_datatypeID;
    const char* m_name;
    const char* m_datatypeIRI;
    int64_t m_minimum;
    int64_t m_maximum;
    // Just outside the range, and what that is.
    const char* m_belowMinimum;
    LexicalFormStatus m_belowMinimumStatus;
    const char* m_aboveMaximum;
    LexicalFormStatus m_aboveMaximumStatus;
};

inline const DatatypeRow DATATYPES[] = {
    {23, "xsd:integer", XSD_INTEGER, INT64_MIN, INT64_MAX, "-9223372036854775809", BEYOND, "9223372036854775808",
     BEYOND},
    {24, "xsd:nonNegativeInteger", XSD_NON_NEGATIVE_INTEGER, 0, INT64_MAX, "-1", OUT, "9223372036854775808", BEYOND},
    {25, "xsd:nonPositiveInteger", XSD_NON_POSITIVE_INTEGER, INT64_MIN, 0, "-9223372036854775809", BEYOND, "1", OUT},
    {26, "xsd:negativeInteger", XSD_NEGATIVE_INTEGER, INT64_MIN, -1, "-9223372036854775809", BEYOND, "0", OUT},
    {27, "xsd:positiveInteger", XSD_POSITIVE_INTEGER, 1, INT64_MAX, "0", OUT, "9223372036854775808", BEYOND},
    {28, "xsd:long", XSD_LONG, INT64_MIN, INT64_MAX, "-9223372036854775809", OUT, "9223372036854775808", OUT},
    {29, "xsd:int", XSD_INT, -2147483648, 2147483647, "-2147483649", OUT, "2147483648", OUT},
    {30, "xsd:short", XSD_SHORT, -32768, 32767, "-32769", OUT, "32768", OUT},
    {31, "xsd:byte", XSD_BYTE, -128, 127, "-129", OUT, "128", OUT},
    {32, "xsd:unsignedLong", XSD_UNSIGNED_LONG, 0, INT64_MAX, "-1", OUT, "9223372036854775808", BEYOND},
    {33, "xsd:unsignedInt", XSD_UNSIGNED_INT, 0, 4294967295, "-1", OUT, "4294967296", OUT},
    {34, "xsd:unsignedShort", XSD_UNSIGNED_SHORT, 0, 65535, "-1", OUT, "65536", OUT},
    {35, "xsd:unsignedByte", XSD_UNSIGNED_BYTE, 0, 255, "-1", OUT, "256", OUT},
};

}
