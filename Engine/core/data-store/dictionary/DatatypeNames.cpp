#include "core/data-store/dictionary/DatatypeNames.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/dictionary/Prefixes.h"

namespace kavix {

std::string getDatatypeName(std::string_view datatypeIRI) {
    std::string name;
    Prefixes::s_defaultPrefixes.encodeIRI(datatypeIRI.data(), datatypeIRI.size(), name);
    return name;
}

std::string getDatatypeName(uint8_t datatypeID) {
    if (datatypeID == D_XSD_DECIMAL)
        return getDatatypeName(s_xsdDecimal);
    if (isIntegerDatatype(datatypeID))
        return getDatatypeName(getIntegerDatatypeInfo(datatypeID).datatypeIRI);
    return "the unknown datatype ID " + std::to_string(datatypeID);
}

}
