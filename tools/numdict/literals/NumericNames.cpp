#include "numdict/literals/NumericNames.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeIRIs.h"

namespace kavix::numdict {

namespace {

constexpr std::string_view XSD(XSD_NAMESPACE);
constexpr std::string_view RDF("http://www.w3.org/1999/02/22-rdf-syntax-ns#");

}

const std::array<NumericName, NUMBER_OF_NUMERIC_DATATYPES> NUMERIC_NAMES{{
    {D_XSD_DECIMAL, "decimal"},
    {D_XSD_INTEGER, "integer"},
    {D_XSD_NON_POSITIVE_INTEGER, "nonPositiveInteger"},
    {D_XSD_NEGATIVE_INTEGER, "negativeInteger"},
    {D_XSD_NON_NEGATIVE_INTEGER, "nonNegativeInteger"},
    {D_XSD_POSITIVE_INTEGER, "positiveInteger"},
    {D_XSD_LONG, "long"},
    {D_XSD_INT, "int"},
    {D_XSD_SHORT, "short"},
    {D_XSD_BYTE, "byte"},
    {D_XSD_UNSIGNED_LONG, "unsignedLong"},
    {D_XSD_UNSIGNED_INT, "unsignedInt"},
    {D_XSD_UNSIGNED_SHORT, "unsignedShort"},
    {D_XSD_UNSIGNED_BYTE, "unsignedByte"},
}};

size_t findNumericDatatype(std::string_view datatypeIRI) noexcept {
    if (!datatypeIRI.starts_with(XSD))
        return NO_NUMERIC_DATATYPE;
    const std::string_view localName = datatypeIRI.substr(XSD.size());
    for (size_t index = 0; index < NUMERIC_NAMES.size(); ++index)
        if (NUMERIC_NAMES[index].m_localName == localName)
            return index;
    return NO_NUMERIC_DATATYPE;
}

size_t getNumericIndex(uint8_t datatypeID) noexcept {
    for (size_t index = 0; index < NUMERIC_NAMES.size(); ++index)
        if (NUMERIC_NAMES[index].m_datatypeID == datatypeID)
            return index;
    return NO_NUMERIC_DATATYPE;
}

std::string getNumericName(size_t index) {
    return "xsd:" + std::string(NUMERIC_NAMES[index].m_localName);
}

std::string getDatatypeName(std::string_view datatypeIRI) {
    if (datatypeIRI.starts_with(XSD))
        return "xsd:" + std::string(datatypeIRI.substr(XSD.size()));
    if (datatypeIRI.starts_with(RDF))
        return "rdf:" + std::string(datatypeIRI.substr(RDF.size()));
    return std::string(datatypeIRI);
}

}
