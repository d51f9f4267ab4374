#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"

#include "core/data-store/dictionary/DatatypeIDs.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <unordered_map>

namespace kavix {

namespace {

struct RegisteredDatatype {
    const DictionaryDatatypeFactory* m_factory = nullptr;
    std::string_view m_datatypeIRI;
};

/// What is registered, by datatype ID and by IRI. The IRIs are those that the factories own.
struct Registry {
    std::array<RegisteredDatatype, 256> m_datatypesByID;
    std::unordered_map<std::string_view, uint8_t> m_datatypeIDsByIRI;
};

// Function-local, so that factories of any translation unit can register during static initialisation. It is complete
// before the first factory is, and so outlives all static ones.
Registry& getRegistry() {
    static Registry s_registry;
    return s_registry;
}

void unregisterFactory(
    Registry& registry, const DictionaryDatatypeFactory* factory,
    const DictionaryDatatypeFactory::DatatypeIDsAndIRIs& datatypeIDsAndIRIs) noexcept {
    for (const auto& [datatypeID, datatypeIRI] : datatypeIDsAndIRIs)
        if (registry.m_datatypesByID[datatypeID].m_factory == factory) {
            registry.m_datatypesByID[datatypeID] = RegisteredDatatype();
            registry.m_datatypeIDsByIRI.erase(datatypeIRI);
        }
}

}

const DictionaryDatatypeFactory* DictionaryDatatypeFactory::tryGetFactory(uint8_t datatypeID) noexcept {
    return getRegistry().m_datatypesByID[datatypeID].m_factory;
}

uint8_t DictionaryDatatypeFactory::tryGetDatatypeID(std::string_view datatypeIRI) noexcept {
    const Registry& registry = getRegistry();
    const auto iterator = registry.m_datatypeIDsByIRI.find(datatypeIRI);
    return iterator == registry.m_datatypeIDsByIRI.end() ? static_cast<uint8_t>(D_NONE) : iterator->second;
}

std::string_view DictionaryDatatypeFactory::tryGetDatatypeIRI(uint8_t datatypeID) noexcept {
    return getRegistry().m_datatypesByID[datatypeID].m_datatypeIRI;
}

std::vector<const DictionaryDatatypeFactory*> DictionaryDatatypeFactory::getFactories() {
    std::vector<const DictionaryDatatypeFactory*> factories;
    for (const RegisteredDatatype& datatype : getRegistry().m_datatypesByID)
        if (datatype.m_factory != nullptr &&
            std::find(factories.begin(), factories.end(), datatype.m_factory) == factories.end())
            factories.push_back(datatype.m_factory);
    return factories;
}

DictionaryDatatypeFactory::DictionaryDatatypeFactory(
    std::initializer_list<std::pair<uint8_t, std::string>> datatypeIDsAndIRIs) :
    m_datatypeIDsAndIRIs(datatypeIDsAndIRIs) {
    Registry& registry = getRegistry();
    try {
        for (const auto& [datatypeID, datatypeIRI] : m_datatypeIDsAndIRIs) {
            RegisteredDatatype& datatype = registry.m_datatypesByID[datatypeID];
            assert(datatypeID != D_NONE && datatype.m_factory == nullptr);
            [[maybe_unused]] const bool isNew = registry.m_datatypeIDsByIRI.try_emplace(datatypeIRI, datatypeID).second;
            assert(isNew);
            datatype = {this, datatypeIRI};
        }
    }
    catch (...) {
        // No destructor will run: what was registered must not be found.
        unregisterFactory(registry, this, m_datatypeIDsAndIRIs);
        throw;
    }
}

DictionaryDatatypeFactory::~DictionaryDatatypeFactory() {
    unregisterFactory(getRegistry(), this, m_datatypeIDsAndIRIs);
}

}
