#include "core/data-store/inspection/DictionaryDatatypeInspector.h"

#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"

#include <cassert>

namespace kavix {

DictionaryDatatypeInspector::DictionaryDatatypeInspector(DictionaryDatatypeFactory& factory) noexcept :
    m_factory(factory) {
    assert(m_factory.tryGetInspector() == nullptr);
    m_factory.setInspector(this);
}

DictionaryDatatypeInspector::~DictionaryDatatypeInspector() {
    m_factory.setInspector(nullptr);
}

}
