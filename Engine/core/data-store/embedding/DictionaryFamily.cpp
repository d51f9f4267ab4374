#include "core/data-store/embedding/DictionaryFamily.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace kavix {

namespace {

struct RegisteredDatatype {
    const DictionaryFamily* m_family = nullptr;
    std::string_view m_datatypeIRI; // the factory's
};

/// The registered families by datatype ID and by IRI, at one point in time. Immutable once published.
struct Registrations {
    std::array<RegisteredDatatype, 256> m_datatypesByID;
    // With IRIs of their own: a reader may compare with one whose family has just gone.
    std::map<std::string, uint8_t, std::less<>> m_datatypeIDsByIRI;
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
        // Acquire. Pairs with the release in publish(): a thread that observes the pointer observes the content, and
        // every family in it complete.
        return *m_current.load(std::memory_order_acquire);
    }

    /// Changes a copy of the registrations and publishes it.
    /// @throws std::bad_alloc  nothing has changed
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

// Function-local, so that families of any translation unit can register during static initialisation. It is complete
// before the first family is, and so outlives all static ones.
Registry& getRegistry() {
    static Registry s_registry;
    return s_registry;
}

}

DictionaryFamily::DictionaryFamily(
    const DictionaryDatatypeFactory& factory, const DictionaryDatatypeInspector& inspector) :
    m_factory(factory),
    m_inspector(inspector) {
    getRegistry().update([this](Registrations& registrations) {
        for (const auto& [datatypeID, datatypeIRI] : m_factory.getDatatypeIDsAndIRIs()) {
            RegisteredDatatype& datatype = registrations.m_datatypesByID[datatypeID];
            assert(datatypeID != D_NONE && datatype.m_family == nullptr);
            [[maybe_unused]] const bool isNew =
                registrations.m_datatypeIDsByIRI.try_emplace(datatypeIRI, datatypeID).second;
            assert(isNew);
            datatype = {this, datatypeIRI};
        }
    });
}

DictionaryFamily::~DictionaryFamily() {
    getRegistry().update([this](Registrations& registrations) {
        for (const auto& [datatypeID, datatypeIRI] : m_factory.getDatatypeIDsAndIRIs()) {
            registrations.m_datatypesByID[datatypeID] = RegisteredDatatype();
            registrations.m_datatypeIDsByIRI.erase(datatypeIRI);
        }
    });
}

const DictionaryFamily* DictionaryFamily::tryGetFamily(uint8_t datatypeID) noexcept {
    return getRegistry().get().m_datatypesByID[datatypeID].m_family;
}

uint8_t DictionaryFamily::tryGetDatatypeID(std::string_view datatypeIRI) noexcept {
    const Registrations& registrations = getRegistry().get();
    const auto iterator = registrations.m_datatypeIDsByIRI.find(datatypeIRI);
    return iterator == registrations.m_datatypeIDsByIRI.end() ? static_cast<uint8_t>(D_NONE) : iterator->second;
}

std::string_view DictionaryFamily::tryGetDatatypeIRI(uint8_t datatypeID) noexcept {
    return getRegistry().get().m_datatypesByID[datatypeID].m_datatypeIRI;
}

std::vector<const DictionaryFamily*> DictionaryFamily::getFamilies() {
    std::vector<const DictionaryFamily*> families;
    for (const RegisteredDatatype& datatype : getRegistry().get().m_datatypesByID)
        if (datatype.m_family != nullptr &&
            std::find(families.begin(), families.end(), datatype.m_family) == families.end())
            families.push_back(datatype.m_family);
    return families;
}

}
