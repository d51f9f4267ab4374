#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"

#include "core/data-store/dictionary/DatatypeIDs.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <mutex>
#include <unordered_map>

namespace kavix {

namespace {

struct RegisteredDatatype {
    const DictionaryDatatypeFactory* m_factory = nullptr;
    std::string_view m_datatypeIRI;
};

/// The registered families by datatype ID and by IRI, at one point in time. The IRIs are those that the factories own.
/// Immutable once published.
struct Registrations {
    std::array<RegisteredDatatype, 256> m_datatypesByID;
    std::unordered_map<std::string_view, uint8_t> m_datatypeIDsByIRI;
};

/// The current registrations. Readers take no lock; each change publishes a copy, and earlier copies are kept, since
/// they may still be read. Changes are rare: one when a family is registered and one when it is removed.
class Registry : private Unmovable {

public:

    Registry() :
        m_current(nullptr) {
        publish(std::make_unique<Registrations>());
    }

    const Registrations& get() const noexcept {
        // Acquire. Pairs with the release in publish(): a thread that observes the pointer observes the content.
        return *m_current.load(std::memory_order_acquire);
    }

    /// Changes a copy of the registrations and publishes it.
    /// @throws std::bad_alloc, and what the change throws: nothing has changed
    template<typename Change>
    void update(Change change) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        auto registrations = std::make_unique<Registrations>(get());
        change(*registrations);
        publish(std::move(registrations));
    }

private:

    void publish(std::unique_ptr<Registrations> registrations) {
        m_all.push_back(std::move(registrations));
        m_current.store(m_all.back().get(), std::memory_order_release); // pairs with the acquire in get()
    }

    std::mutex m_mutex; // held while registrations change
    std::vector<std::unique_ptr<Registrations>> m_all;
    std::atomic<const Registrations*> m_current;
};

// Function-local, so that factories of any translation unit can register during static initialisation. It is complete
// before the first factory is, and so outlives all static ones.
Registry& getRegistry() {
    static Registry s_registry;
    return s_registry;
}

}

const DictionaryDatatypeFactory* DictionaryDatatypeFactory::tryGetFactory(uint8_t datatypeID) noexcept {
    return getRegistry().get().m_datatypesByID[datatypeID].m_factory;
}

uint8_t DictionaryDatatypeFactory::tryGetDatatypeID(std::string_view datatypeIRI) noexcept {
    const Registrations& registrations = getRegistry().get();
    const auto iterator = registrations.m_datatypeIDsByIRI.find(datatypeIRI);
    return iterator == registrations.m_datatypeIDsByIRI.end() ? static_cast<uint8_t>(D_NONE) : iterator->second;
}

std::string_view DictionaryDatatypeFactory::tryGetDatatypeIRI(uint8_t datatypeID) noexcept {
    return getRegistry().get().m_datatypesByID[datatypeID].m_datatypeIRI;
}

std::vector<const DictionaryDatatypeFactory*> DictionaryDatatypeFactory::getFactories() {
    std::vector<const DictionaryDatatypeFactory*> factories;
    for (const RegisteredDatatype& datatype : getRegistry().get().m_datatypesByID)
        if (datatype.m_factory != nullptr &&
            std::find(factories.begin(), factories.end(), datatype.m_factory) == factories.end())
            factories.push_back(datatype.m_factory);
    return factories;
}

DictionaryDatatypeFactory::DictionaryDatatypeFactory(
    std::initializer_list<std::pair<uint8_t, std::string>> datatypeIDsAndIRIs) :
    m_datatypeIDsAndIRIs(datatypeIDsAndIRIs),
    m_inspector(nullptr) {
    getRegistry().update([this](Registrations& registrations) {
        for (const auto& [datatypeID, datatypeIRI] : m_datatypeIDsAndIRIs) {
            RegisteredDatatype& datatype = registrations.m_datatypesByID[datatypeID];
            assert(datatypeID != D_NONE && datatype.m_factory == nullptr);
            [[maybe_unused]] const bool isNew =
                registrations.m_datatypeIDsByIRI.try_emplace(datatypeIRI, datatypeID).second;
            assert(isNew);
            datatype = {this, datatypeIRI};
        }
    });
}

DictionaryDatatypeFactory::~DictionaryDatatypeFactory() {
    getRegistry().update([this](Registrations& registrations) {
        for (const auto& [datatypeID, datatypeIRI] : m_datatypeIDsAndIRIs) {
            registrations.m_datatypesByID[datatypeID] = RegisteredDatatype();
            registrations.m_datatypeIDsByIRI.erase(datatypeIRI);
        }
    });
}

}
