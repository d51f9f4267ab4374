#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kavix::numdict {

inline constexpr size_t NUMBER_OF_NUMERIC_DATATYPES = 14;

/// The numeric datatypes in the order of reports: a type before those derived from it. The index of a datatype here is
/// what counters are kept by.
struct NumericName {
    uint8_t m_datatypeID;
    std::string_view m_localName;
};

extern const std::array<NumericName, NUMBER_OF_NUMERIC_DATATYPES> NUMERIC_NAMES;

inline constexpr size_t NO_NUMERIC_DATATYPE = NUMBER_OF_NUMERIC_DATATYPES;

/// The index of the numeric datatype that has exactly this IRI, or NO_NUMERIC_DATATYPE. Called for every typed literal.
size_t findNumericDatatype(std::string_view datatypeIRI) noexcept;

/// The index of a numeric datatype (22 to 35).
size_t getNumericIndex(uint8_t datatypeID) noexcept;

/// "xsd:decimal" and so on.
std::string getNumericName(size_t index);

/// How a datatype is shown: "xsd:date" for those of XML Schema, "rdf:langString", otherwise the IRI.
std::string getDatatypeName(std::string_view datatypeIRI);

}
