#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeIRIs.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kavix::numdict {

inline constexpr std::string_view RDF_NAMESPACE("http://www.w3.org/1999/02/22-rdf-syntax-ns#");

inline constexpr size_t NUMBER_OF_NUMERIC_DATATYPES = D_XSD_UNSIGNED_BYTE - D_XSD_DECIMAL + 1;

/// The IDs of the numeric datatypes in the order of reports: a type before those derived from it.
extern const std::array<uint8_t, NUMBER_OF_NUMERIC_DATATYPES> NUMERIC_DATATYPE_IDS;

/// An element for each numeric datatype, by datatype ID (22 to 35).
template<typename T>
class ByDatatype {

public:

    T& operator[](uint8_t datatypeID) noexcept { return m_elements[datatypeID - D_XSD_DECIMAL]; }

    const T& operator[](uint8_t datatypeID) const noexcept { return m_elements[datatypeID - D_XSD_DECIMAL]; }

private:

    std::array<T, NUMBER_OF_NUMERIC_DATATYPES> m_elements{};
};

/// The ID of the numeric datatype with exactly this IRI, or D_NONE. Called for every typed literal.
uint8_t findNumericDatatype(std::string_view datatypeIRI) noexcept;

/// The IRI of a numeric datatype (22 to 35), xsd:double or xsd:float (20, 21).
std::string_view getDatatypeIRI(uint8_t datatypeID) noexcept;

/// How people and programs are shown a datatype: "xsd:date" for those of XML Schema, "rdf:langString", otherwise the
/// IRI.
std::string getDatatypeName(std::string_view datatypeIRI);

/// The same for a datatype by its ID (20 to 35).
std::string getDatatypeName(uint8_t datatypeID);

}
