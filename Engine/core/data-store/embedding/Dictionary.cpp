#include "core/data-store/embedding/Dictionary.h"

#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"
#include "core/data-store/embedding/DictionaryFamily.h"
#include "core/data-store/embedding/DictionaryState.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <atomic>

namespace kavix {

Dictionary::Dictionary(const Options& options) :
    m_state(std::make_unique<DictionaryState>(options)) { }

Dictionary::~Dictionary() = default;

uint8_t Dictionary::getDatatypeID(std::string_view datatypeIRI) {
    const uint8_t datatypeID = DictionaryFamily::tryGetDatatypeID(datatypeIRI);
    if (datatypeID == D_NONE)
        Errors::throwUnknownDatatype(std::string(datatypeIRI));
    return datatypeID;
}

std::string_view Dictionary::getDatatypeIRI(uint8_t datatypeID) {
    const std::string_view datatypeIRI = DictionaryFamily::tryGetDatatypeIRI(datatypeID);
    if (datatypeIRI.empty())
        Errors::throwUnknownDatatypeID(datatypeID);
    return datatypeIRI;
}

namespace {

/// The scope in which one single value is inside the gate.
class SingleEntry : private Unmovable {

public:

    explicit SingleEntry(WriterGate& gate) noexcept :
        m_gate(gate) { }

    ~SingleEntry() { m_gate.leaveSingle(); }

private:

    WriterGate& m_gate;
};

}

uint64_t Dictionary::resolve(std::string_view lexicalForm, uint8_t datatypeID) {
    m_state->enterSingle();
    const SingleEntry entry(m_state->m_writerGate);
    return m_state->doResolve(nullptr, lexicalForm, datatypeID);
}

uint64_t Dictionary::resolve(const ResourceValue& value) {
    m_state->enterSingle();
    const SingleEntry entry(m_state->m_writerGate);
    return m_state->doResolve(nullptr, value);
}

uint64_t Dictionary::tryResolve(std::string_view lexicalForm, uint8_t datatypeID, const Snapshot& snapshot) const {
    const DictionaryState::Family& family = m_state->getFamily(datatypeID);
    ThreadSlots::ensureSlot();
    return family.m_dictionary->tryResolveResource(
        snapshot.toVisibility(), lexicalForm.data(), lexicalForm.size(), datatypeID);
}

uint64_t Dictionary::tryResolve(const ResourceValue& value, const Snapshot& snapshot) const {
    const DictionaryState::Family& family = m_state->getFamily(value.datatypeID);
    family.m_inspector.checkBinaryValue(value);
    ThreadSlots::ensureSlot();
    return family.m_dictionary->tryResolveResource(snapshot.toVisibility(), value);
}

ResourceValue Dictionary::getValue(uint64_t resourceID) const {
    const uint8_t datatypeID = m_state->getResourceDatatypeID(resourceID);
    ResourceValue value;
    m_state->getFamily(datatypeID).m_dictionary->getResource(resourceID, datatypeID, value);
    return value;
}

std::string Dictionary::getLexicalForm(uint64_t resourceID) const {
    const uint8_t datatypeID = m_state->getResourceDatatypeID(resourceID);
    std::string lexicalForm;
    m_state->getFamily(datatypeID).m_dictionary->getResource(resourceID, datatypeID, lexicalForm);
    return lexicalForm;
}

std::string Dictionary::getTurtleLiteral(uint64_t resourceID, const Prefixes& prefixes) const {
    const ResourceValue value = getValue(resourceID);
    std::string literal;
    m_state->getFamily(value.datatypeID)
        .m_factory.appendTurtleLiteral(
            value.datatypeID, value.data, value.dataSize, value.auxiliaryData, value.auxiliaryDataSize, prefixes,
            literal);
    return literal;
}

void Dictionary::setMemoryBudget(uint64_t memoryBudgetBytes) {
    if (!m_state->m_memoryManager.trySetTotalBytes(memoryBudgetBytes))
        Errors::throwMemoryBudgetInUse(memoryBudgetBytes, getUsedBytes());
}

uint64_t Dictionary::getMemoryBudgetBytes() const noexcept {
    return m_state->m_memoryManager.getTotalBytes();
}

uint64_t Dictionary::getUsedBytes() const noexcept {
    return m_state->m_memoryManager.getChargedBytes();
}

std::array<uint64_t, 256> Dictionary::countResourcesByDatatypeID() const {
    std::array<uint64_t, 256> counts{};
    // Relaxed: the count is exact only while no thread resolves, and then any order observes everything.
    const uint64_t end = std::min<uint64_t>(
        m_state->m_nextResourceID.load(std::memory_order_relaxed), m_state->m_resourceDatatypeIDs.getEnd());
    for (uint64_t resourceID = DictionaryState::FIRST_RESOURCE_ID; resourceID < end; ++resourceID)
        ++counts[m_state->m_resourceDatatypeIDs[resourceID].load(std::memory_order_relaxed)];
    counts[D_NONE] = 0; // IDs allocated and not used
    return counts;
}

std::unique_ptr<ComponentInfo> Dictionary::getComponentInfo() const {
    auto root = std::make_unique<ComponentInfo>("Dictionary");
    for (const DictionaryState::Family& family : m_state->m_families)
        root->getChildren().push_back(family.m_dictionary->getComponentInfo());
    return root;
}

std::vector<TableStatistics> Dictionary::getTableStatistics() const {
    std::vector<TableStatistics> statistics;
    for (const DictionaryState::Family& family : m_state->m_families) {
        const std::vector<TableStatistics> ofFamily =
            family.m_inspector.getTableStatistics(*family.m_dictionary, m_state->getContents());
        statistics.insert(statistics.end(), ofFamily.begin(), ofFamily.end());
    }
    return statistics;
}

ResourceIDWidth Dictionary::getResourceIDWidth() const noexcept {
    return m_state->m_resourceIDWidth;
}

uint8_t Dictionary::tryGetResourceDatatypeID(uint64_t resourceID) const noexcept {
    return m_state->tryGetResourceDatatypeID(resourceID);
}

Snapshot Dictionary::takeSnapshot() const noexcept {
    return m_state->takeSnapshot();
}

}
