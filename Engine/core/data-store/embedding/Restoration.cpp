#include "core/data-store/embedding/Restoration.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"
#include "core/data-store/embedding/DictionaryState.h"
#include "core/data-store/embedding/UsageContexts.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <string>

namespace kavix {

/// Ends the transaction of the dictionary at the end of the scope.
class Restoration::EndOfTransaction : private Unmovable {

public:

    explicit EndOfTransaction(DictionaryState& dictionary) noexcept :
        m_dictionary(dictionary) { }

    ~EndOfTransaction() { m_dictionary.endTransaction(); }

private:

    DictionaryState& m_dictionary;
};

/// An ID whose datatype marks it as being restored by a thread, so that no other thread writes its array entries. At
/// the end of the scope the ID has no datatype again, unless it was restored.
class Restoration::ClaimedID : private Unmovable {

public:

    /// @throws KavixException  the ID is already restored or claimed
    ClaimedID(DictionaryState& dictionary, uint64_t resourceID) :
        m_datatypeID(dictionary.m_resourceDatatypeIDs[resourceID]) {
        uint8_t expected = D_NONE;
        // Acquire. Pairs with the release in the destructor: we observe what a thread that gave the ID up did.
        if (!m_datatypeID.compare_exchange_strong(
                expected, CLAIMED, std::memory_order_acquire, std::memory_order_relaxed))
            Errors::throwContradictingRecord(resourceID, "the ID was already restored");
    }

    ~ClaimedID() {
        uint8_t expected = CLAIMED;
        // Release. Pairs with the acquire in the constructor. (A restored ID has another datatype and keeps it.)
        m_datatypeID.compare_exchange_strong(expected, D_NONE, std::memory_order_release, std::memory_order_relaxed);
    }

private:

    static constexpr uint8_t CLAIMED = 1; // no datatype has this ID

    std::atomic<uint8_t>& m_datatypeID;
};

Restoration::Restoration(Dictionary& dictionary, std::vector<uint64_t> countsByDatatypeID) :
    m_dictionary(*dictionary.m_state),
    m_contexts(std::make_unique<UsageContexts>()),
    m_isRunning(false),
    m_endOfResourceIDs(DictionaryState::FIRST_RESOURCE_ID) {
    if (m_dictionary.beginTransaction() != DictionaryState::FIRST_RESOURCE_ID) {
        m_dictionary.endTransaction();
        Errors::throwDictionaryNotEmpty();
    }
    // No more resources than IDs: sizes from outside must not exceed what arithmetic and the budget allow.
    countsByDatatypeID.resize(256, 0);
    for (uint64_t& count : countsByDatatypeID)
        count = std::min(count, m_dictionary.m_maxResourceID);
    try {
        for (const DictionaryState::Family& family : m_dictionary.m_families)
            family.m_dictionary->restoreEmpty(countsByDatatypeID);
    }
    catch (...) {
        // A table that could not be sized has no buckets. If not even the smallest ones can be allocated, that error is
        // thrown.
        const EndOfTransaction end(m_dictionary);
        for (const DictionaryState::Family& family : m_dictionary.m_families)
            family.m_dictionary->initialize(m_dictionary.m_maxResourceID, 0);
        throw;
    }
    m_isRunning = true;
}

Restoration::~Restoration() {
    if (m_isRunning) {
        m_dictionary.removeEverything();
        m_dictionary.endTransaction();
    }
}

void Restoration::restore(uint64_t resourceID, std::string_view lexicalForm, uint8_t datatypeID) {
    ResourceValue value;
    m_dictionary.getFamily(datatypeID)
        .m_factory.parseResourceValue(value, lexicalForm.data(), lexicalForm.size(), datatypeID);
    restore(resourceID, value);
}

void Restoration::restore(uint64_t resourceID, const ResourceValue& value) {
    if (!m_isRunning)
        Errors::throwTransactionHasEnded();
    if (resourceID < DictionaryState::FIRST_RESOURCE_ID || resourceID >= m_dictionary.m_maxResourceID)
        Errors::throwResourceIDOutOfRange(
            resourceID, DictionaryState::FIRST_RESOURCE_ID, m_dictionary.m_maxResourceID - 1);
    const DictionaryState::Family& family = m_dictionary.getFamily(value.datatypeID);
    family.m_inspector.checkBinaryValue(value);
    ThreadSlots::ensureSlot();
    m_dictionary.m_resourceDatatypeIDs.ensureEndAtLeast(resourceID + 1);
    const ClaimedID claimedID(m_dictionary, resourceID);
    family.m_dictionary->restoreResource(&m_contexts->getOwn(), resourceID, value);
    const uint64_t foundResourceID =
        family.m_dictionary->tryResolveResource(Dictionary::EVERYTHING.toVisibility(), value);
    if (foundResourceID != resourceID)
        Errors::throwContradictingRecord(
            resourceID, "its value was already restored as resource " + std::to_string(foundResourceID));
    // Relaxed: read by finish(), when no thread restores any more.
    uint64_t end = m_endOfResourceIDs.load(std::memory_order_relaxed);
    while (end <= resourceID &&
           !m_endOfResourceIDs.compare_exchange_weak(end, resourceID + 1, std::memory_order_relaxed)) { }
}

void Restoration::finish() {
    if (!m_isRunning)
        Errors::throwTransactionHasEnded();
    m_dictionary.m_nextResourceID.store(
        m_endOfResourceIDs.load(std::memory_order_relaxed),
        std::memory_order_relaxed); // relaxed, both: no other thread is inside
    m_isRunning = false;
    m_dictionary.endTransaction();
}

}
