#include "core/data-store/dictionary/Restoration.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/Dictionary.h"
#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <numeric>
#include <string>

namespace kavix {

/// Ends the transaction of the dictionary at the end of the scope.
class Restoration::EndOfTransaction : private Unmovable {

public:

    explicit EndOfTransaction(Dictionary& dictionary) noexcept : m_dictionary(dictionary) { }

    ~EndOfTransaction() { m_dictionary.endTransaction(); }

private:

    Dictionary& m_dictionary;

};

Restoration::Restoration(Dictionary& dictionary, std::vector<uint64_t> countsByDatatypeID) :
    m_dictionary(dictionary),
    m_isRunning(false),
    m_endOfResourceIDs(Dictionary::FIRST_RESOURCE_ID),
    m_numberOfResources(0)
{
    if (m_dictionary.beginTransaction() != Dictionary::FIRST_RESOURCE_ID) {
        m_dictionary.endTransaction();
        Errors::throwDictionaryNotEmpty();
    }
    // No more resources than IDs: sizes that come from outside must not exceed what arithmetic and the budget allow.
    countsByDatatypeID.resize(256, 0);
    for (uint64_t& count : countsByDatatypeID)
        count = std::min(count, m_dictionary.m_maxResourceID);
    try {
        for (const std::unique_ptr<DictionaryDatatype>& dictionaryDatatype : m_dictionary.m_dictionaryDatatypes)
            dictionaryDatatype->restoreEmpty(countsByDatatypeID);
    }
    catch (...) {
        // A table that could not be sized has no buckets. If not even the smallest ones can be had, that error goes out.
        const EndOfTransaction end(m_dictionary);
        for (const std::unique_ptr<DictionaryDatatype>& dictionaryDatatype : m_dictionary.m_dictionaryDatatypes)
            dictionaryDatatype->initialize(m_dictionary.m_maxResourceID, 0);
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
    m_dictionary.getDictionaryDatatype(datatypeID); // throws for an unknown datatype
    ResourceValue value;
    DictionaryDatatypeFactory::tryGetFactory(datatypeID)->parseResourceValue(value, lexicalForm.data(), lexicalForm.size(), datatypeID);
    restore(resourceID, value);
}

void Restoration::restore(uint64_t resourceID, const ResourceValue& value) {
    if (!m_isRunning)
        Errors::throwTransactionHasEnded();
    if (resourceID < Dictionary::FIRST_RESOURCE_ID || resourceID >= m_dictionary.m_maxResourceID)
        Errors::throwInvalidOption("resource ID", resourceID, Dictionary::FIRST_RESOURCE_ID, m_dictionary.m_maxResourceID - 1);
    DictionaryDatatype& dictionaryDatatype = m_dictionary.getDictionaryDatatype(value.datatypeID);
    Dictionary::getInspector(value.datatypeID).checkBinaryValue(value);
    ThreadSlots::ensureSlot();
    if (m_dictionary.tryGetResourceDatatypeID(resourceID) != D_NONE)
        Errors::throwContradictingRecord(resourceID, "the ID was restored before");
    dictionaryDatatype.restoreResource(&m_contexts[s_currentThreadContextIndex], resourceID, value);
    const uint64_t foundResourceID = dictionaryDatatype.tryResolveResource(Dictionary::EVERYTHING, value);
    if (foundResourceID != resourceID)
        Errors::throwContradictingRecord(resourceID, "its value was restored before, under ID " + std::to_string(foundResourceID));
    // Relaxed, both: read by finish(), when no thread restores any more.
    m_numberOfResources.fetch_add(1, std::memory_order_relaxed);
    uint64_t end = m_endOfResourceIDs.load(std::memory_order_relaxed);
    while (end <= resourceID && !m_endOfResourceIDs.compare_exchange_weak(end, resourceID + 1, std::memory_order_relaxed)) {
    }
}

void Restoration::finish() {
    if (!m_isRunning)
        Errors::throwTransactionHasEnded();
    m_dictionary.m_nextResourceID.store(m_endOfResourceIDs.load(std::memory_order_relaxed), std::memory_order_relaxed); // relaxed, both: nobody else is inside
    const std::array<uint64_t, 256> counts = m_dictionary.countResourcesByDatatypeID();
    if (std::accumulate(counts.begin(), counts.end(), uint64_t(0)) != m_numberOfResources.load(std::memory_order_relaxed))
        Errors::throwContradictingRecord(0, "two threads restored one ID at the same time");
    m_isRunning = false;
    m_dictionary.endTransaction();
}

}
