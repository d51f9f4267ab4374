#include "numdict/literals/Datatypes.h"

#include <utility>

namespace kavix::numdict {

namespace {

constexpr std::string_view XSD(XSD_NAMESPACE);

/// By datatype ID, from 20.
constexpr std::array<std::string_view, NUMBER_OF_NUMERIC_DATATYPES + 2> DATATYPE_IRIS{
    "http://www.w3.org/2001/XMLSchema#double",
    "http://www.w3.org/2001/XMLSchema#float",
    XSD_DECIMAL,
    XSD_INTEGER,
    XSD_NON_NEGATIVE_INTEGER,
    XSD_NON_POSITIVE_INTEGER,
    XSD_NEGATIVE_INTEGER,
    XSD_POSITIVE_INTEGER,
    XSD_LONG,
    XSD_INT,
    XSD_SHORT,
    XSD_BYTE,
    XSD_UNSIGNED_LONG,
    XSD_UNSIGNED_INT,
    XSD_UNSIGNED_SHORT,
    XSD_UNSIGNED_BYTE,
};

static_assert(DATATYPE_IRIS[D_XSD_DECIMAL - D_XSD_DOUBLE] == XSD_DECIMAL);
static_assert(DATATYPE_IRIS[D_XSD_NEGATIVE_INTEGER - D_XSD_DOUBLE] == XSD_NEGATIVE_INTEGER);
static_assert(DATATYPE_IRIS[D_XSD_UNSIGNED_BYTE - D_XSD_DOUBLE] == XSD_UNSIGNED_BYTE);

}

const std::array<uint8_t, NUMBER_OF_NUMERIC_DATATYPES> NUMERIC_DATATYPE_IDS{
    D_XSD_DECIMAL,
    D_XSD_INTEGER,
    D_XSD_NON_POSITIVE_INTEGER,
    D_XSD_NEGATIVE_INTEGER,
    D_XSD_NON_NEGATIVE_INTEGER,
    D_XSD_POSITIVE_INTEGER,
    D_XSD_LONG,
    D_XSD_INT,
    D_XSD_SHORT,
    D_XSD_BYTE,
    D_XSD_UNSIGNED_LONG,
    D_XSD_UNSIGNED_INT,
    D_XSD_UNSIGNED_SHORT,
    D_XSD_UNSIGNED_BYTE,
};

uint8_t findNumericDatatype(std::string_view datatypeIRI) noexcept {
    if (!datatypeIRI.starts_with(XSD))
        return D_NONE;
    const std::string_view localName = datatypeIRI.substr(XSD.size());
    for (uint8_t datatypeID = D_XSD_DECIMAL; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
        if (DATATYPE_IRIS[datatypeID - D_XSD_DOUBLE].substr(XSD.size()) == localName)
            return datatypeID;
    return D_NONE;
}

std::string_view getDatatypeIRI(uint8_t datatypeID) noexcept {
    return DATATYPE_IRIS[datatypeID - D_XSD_DOUBLE];
}

std::string getDatatypeName(std::string_view datatypeIRI) {
    for (const auto& [prefix, namespaceIRI] : {std::pair("xsd:", XSD), std::pair("rdf:", RDF_NAMESPACE)})
        if (datatypeIRI.starts_with(namespaceIRI))
            return prefix + std::string(datatypeIRI.substr(namespaceIRI.size()));
    return std::string(datatypeIRI);
}

std::string getDatatypeName(uint8_t datatypeID) {
    return getDatatypeName(getDatatypeIRI(datatypeID));
}

}
