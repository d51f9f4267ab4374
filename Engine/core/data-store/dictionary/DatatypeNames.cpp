#include "core/data-store/dictionary/DatatypeNames.h"

#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"
#include "core/data-store/dictionary/Prefixes.h"

namespace kavix {

std::string getDatatypeName(std::string_view datatypeIRI) {
    std::string name;
    Prefixes::s_defaultPrefixes.encodeIRI(datatypeIRI.data(), datatypeIRI.size(), name);
    return name;
}

std::string getDatatypeName(uint8_t datatypeID) {
    const std::string_view datatypeIRI = DictionaryDatatypeFactory::tryGetDatatypeIRI(datatypeID);
    return datatypeIRI.empty() ? "the unknown datatype ID " + std::to_string(datatypeID) : getDatatypeName(datatypeIRI);
}

}
