#include "core/data-store/inspection/DictionaryDatatypeInspector.h"

#include <array>
#include <cassert>

namespace kavix {

namespace {

using InspectorsByDatatypeID = std::array<const DictionaryDatatypeInspector*, 256>;

// Function-local, so that inspectors of any translation unit can register during static initialisation.
InspectorsByDatatypeID& getInspectors() noexcept {
    static InspectorsByDatatypeID s_inspectors{};
    return s_inspectors;
}

}

const DictionaryDatatypeInspector* DictionaryDatatypeInspector::tryGetInspector(uint8_t datatypeID) noexcept {
    return getInspectors()[datatypeID];
}

DictionaryDatatypeInspector::DictionaryDatatypeInspector(std::initializer_list<uint8_t> datatypeIDs) :
    m_datatypeIDs(datatypeIDs) {
    for (const uint8_t datatypeID : m_datatypeIDs) {
        assert(getInspectors()[datatypeID] == nullptr);
        getInspectors()[datatypeID] = this;
    }
}

DictionaryDatatypeInspector::~DictionaryDatatypeInspector() {
    for (const uint8_t datatypeID : m_datatypeIDs)
        getInspectors()[datatypeID] = nullptr;
}

}
