#include "core/data-store/embedding/Transaction.h"

#include "core/data-store/embedding/DictionaryState.h"
#include "core/data-store/embedding/UsageContexts.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <exception>

namespace kavix {

Transaction::Transaction(Dictionary& dictionary) :
    m_dictionary(*dictionary.m_state),
    m_contexts(std::make_unique<UsageContexts>()),
    m_firstResourceID(m_dictionary.beginTransaction()),
    m_isRunning(true) { }

Transaction::~Transaction() {
    if (m_isRunning)
        rollback();
}

DictionaryUsageContext& Transaction::getOwnContext() {
    if (!m_isRunning) [[unlikely]]
        Errors::throwTransactionHasEnded();
    ThreadSlots::ensureSlot();
    return m_contexts->getOwn();
}

uint64_t Transaction::resolve(std::string_view lexicalForm, uint8_t datatypeID) {
    return m_dictionary.doResolve(&getOwnContext(), lexicalForm, datatypeID);
}

uint64_t Transaction::resolve(std::string_view lexicalForm, std::string_view datatypeIRI) {
    return resolve(lexicalForm, Dictionary::getDatatypeID(datatypeIRI));
}

uint64_t Transaction::resolve(const ResourceValue& value) {
    return m_dictionary.doResolve(&getOwnContext(), value);
}

void Transaction::resolve(std::span<const ResourceValue> values, uint64_t* resourceIDs) {
    m_dictionary.doResolve(&getOwnContext(), values, resourceIDs);
}

size_t Transaction::resolve(std::span<const Literal> literals, Resolution* resolutions) noexcept {
    DictionaryUsageContext* context;
    try {
        context = &getOwnContext();
    }
    catch (...) {
        std::fill_n(resolutions, literals.size(), Resolution{0, std::current_exception()});
        return literals.size();
    }
    return m_dictionary.doResolve(context, literals, resolutions);
}

void Transaction::commit() noexcept {
    if (m_isRunning) {
        m_isRunning = false;
        m_dictionary.endTransaction();
    }
}

void Transaction::rollback() {
    if (m_isRunning) {
        m_dictionary.deleteResourcesFrom(m_firstResourceID);
        m_isRunning = false;
        m_dictionary.endTransaction();
    }
}

}
