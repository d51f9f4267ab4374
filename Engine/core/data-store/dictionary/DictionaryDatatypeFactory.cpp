#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"

namespace kavix {

DictionaryDatatypeFactory::DictionaryDatatypeFactory(
    std::initializer_list<std::pair<uint8_t, std::string>> datatypeIDsAndIRIs) :
    m_datatypeIDsAndIRIs(datatypeIDsAndIRIs) { }

DictionaryDatatypeFactory::~DictionaryDatatypeFactory() = default;

}
