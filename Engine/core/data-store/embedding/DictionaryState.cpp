#include "core/data-store/embedding/DictionaryState.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DecimalRecord.h"
#include "core/data-store/dictionary/DictionaryCompactionState.h"
#include "core/data-store/dictionary/DictionaryDatatypeBatches.h"
#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"
#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/embedding/DictionaryFamily.h"
#include "core/data-store/inspection/NumericDatatypeInspector.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/system/SpinWait.h"
#include "core/platform/system/StaticInitialisation.h"

#include <algorithm>
#include <cassert>
#include <mutex>
#include <string>
#include <utility>

namespace kavix {

namespace {

// The families that come with the library: a new one is added here and nowhere else. Families of an embedder's own are
// registered in the same way, from anywhere.
[[gnu::init_priority(INITIALISE_FAMILIES)]] const DictionaryFamily s_numericFamily(
    s_NumericDatatypeFactory, s_NumericDatatypeInspector);

constexpr const DictionaryFamily* BUILT_IN_FAMILIES[] = {&s_numericFamily};

uint64_t checkMaxResourceID(const Dictionary::Options& options) {
    const bool isNarrow = options.resourceIDWidth == ResourceIDWidth::BITS_32;
    if (options.maxResourceID == 0)
        return isNarrow ? Dictionary::MAX_RESOURCE_ID_32 : Dictionary::DEFAULT_MAX_RESOURCE_ID_64;
    const uint64_t maximum = isNarrow ? Dictionary::MAX_RESOURCE_ID_32 : Dictionary::MAX_RESOURCE_ID_64;
    if (options.maxResourceID < Dictionary::MIN_MAX_RESOURCE_ID || options.maxResourceID > maximum)
        Errors::throwInvalidOption("maxResourceID", options.maxResourceID, Dictionary::MIN_MAX_RESOURCE_ID, maximum);
    return options.maxResourceID;
}

}

uint64_t DictionaryState::getMaximumDataPoolSize(uint64_t maxResourceID) noexcept {
    // Room for a record of every resource, and more than as much again for the unused rest of contexts' chunks; but for
    // the largest numbers of resources the address space suffices only if chunks are used up.
    constexpr uint64_t BYTES_PER_RESOURCE = 40;
    constexpr uint64_t MINIMUM_SIZE = uint64_t(1) << 30;
    constexpr uint64_t MAXIMUM_SIZE = uint64_t(1) << 45;
    static_assert(MAXIMUM_SIZE / Dictionary::MAX_RESOURCE_ID_64 > DecimalRecord(ResourceIDWidth::BITS_64).getSize());
    return std::min(MAXIMUM_SIZE, MINIMUM_SIZE + maxResourceID * BYTES_PER_RESOURCE);
}

DictionaryState::DictionaryState(const Dictionary::Options& options) :
    m_resourceIDWidth(options.resourceIDWidth),
    m_maxResourceID(checkMaxResourceID(options)),
    m_memoryManager(options.memoryBudgetBytes, options.useHugePages),
    m_nextResourceID(FIRST_RESOURCE_ID),
    m_resourceData(m_memoryManager),
    m_resourceDatatypeIDs(m_memoryManager),
    m_dataPool(m_memoryManager),
    m_familiesByID(),
    m_snapshotBeforeTransaction(Dictionary::EVERYTHING) {
    const std::vector<const DictionaryFamily*> families = DictionaryFamily::getFamilies();
    for (const DictionaryFamily* family : BUILT_IN_FAMILIES)
        if (std::find(families.begin(), families.end(), family) == families.end())
            Errors::throwFamiliesNotReady();
    m_resourceData.initialize(m_maxResourceID);
    m_resourceDatatypeIDs.initialize(m_maxResourceID);
    m_dataPool.initialize(getMaximumDataPoolSize(m_maxResourceID));
    m_families.reserve(families.size()); // so that they never move
    for (const DictionaryFamily* family : families)
        addFamily(*family);
}

void DictionaryState::addFamily(const DictionaryFamily& family) {
    std::unique_ptr<DictionaryDatatype> dictionaryDatatype = family.getFactory().createDictionaryDatatype(
        m_resourceIDWidth == ResourceIDWidth::BITS_32, m_memoryManager, m_nextResourceID, m_resourceData,
        m_resourceDatatypeIDs, m_dataPool);
    assert(dynamic_cast<DictionaryDatatypeBatches*>(dictionaryDatatype.get()) != nullptr);
    dictionaryDatatype->initialize(m_maxResourceID, 0);
    auto& batches = static_cast<DictionaryDatatypeBatches&>(*dictionaryDatatype); // every factory makes one
    m_families.push_back(Family{family.getFactory(), family.getInspector(), std::move(dictionaryDatatype), batches});
    for (const auto& [datatypeID, datatypeIRI] : family.getFactory().getDatatypeIDsAndIRIs())
        m_familiesByID[datatypeID] = &m_families.back();
}

DictionaryState::~DictionaryState() = default;

const DictionaryState::Family& DictionaryState::getFamily(uint8_t datatypeID) const {
    const Family* const family = m_familiesByID[datatypeID];
    if (family == nullptr)
        Errors::throwUnknownDatatypeID(datatypeID);
    return *family;
}

uint64_t DictionaryState::doResolve(DictionaryUsageContext* context, std::string_view lexicalForm, uint8_t datatypeID) {
    const Family& family = getFamily(datatypeID);
    ThreadSlots::ensureSlot();
    return family.m_dictionary->resolveResource(context, lexicalForm.data(), lexicalForm.size(), datatypeID);
}

uint64_t DictionaryState::doResolve(DictionaryUsageContext* context, const ResourceValue& value) {
    const Family& family = getFamily(value.datatypeID);
    family.m_inspector.checkBinaryValue(value);
    ThreadSlots::ensureSlot();
    return family.m_dictionary->resolveResource(context, value);
}

uint8_t DictionaryState::tryGetResourceDatatypeID(uint64_t resourceID) const noexcept {
    if (resourceID >= m_resourceDatatypeIDs.getEnd())
        return D_NONE;
    // Acquire. Pairs with the release by which a resource is published: a thread that observes its datatype also
    // observes its data word. An ID that was allocated but never used, or not yet used, has no datatype.
    return m_resourceDatatypeIDs[resourceID].load(std::memory_order_acquire);
}

uint8_t DictionaryState::getResourceDatatypeID(uint64_t resourceID) const {
    const uint8_t datatypeID = tryGetResourceDatatypeID(resourceID);
    if (datatypeID == D_NONE)
        Errors::throwUnknownResourceID(resourceID);
    return datatypeID;
}

void DictionaryState::enterSingle() {
    constexpr unsigned MAX_TIMES_TO_GIVE_WAY = 64;
    SpinWait wait;
    for (unsigned attempts = 0; !m_writerGate.tryEnterSingle(attempts < MAX_TIMES_TO_GIVE_WAY); ++attempts) {
        if (m_writerGate.isInTransaction())
            Errors::throwTransactionRuns();
        wait.step(); // ends when the thread that closed the gate for a moment, or waits to close it, has done so
    }
}

bool DictionaryState::tryCloseGate() const noexcept {
    m_writerGate.beginWaitingToClose();
    SpinWait wait;
    bool isClosed = m_writerGate.tryClose();
    while (!isClosed && !m_writerGate.isInTransaction()) {
        wait.step(); // ends when the single values in progress have been entered
        isClosed = m_writerGate.tryClose();
    }
    m_writerGate.endWaitingToClose();
    return isClosed;
}

Snapshot DictionaryState::getCounters() const noexcept {
    // Relaxed: no thread enters values while the gate is closed.
    return Snapshot{m_nextResourceID.load(std::memory_order_relaxed), m_dataPool.getEnd()};
}

Snapshot DictionaryState::takeSnapshot() const noexcept {
    if (!tryCloseGate()) {
        const std::lock_guard<SpinLock> lock(m_snapshotLock);
        return m_snapshotBeforeTransaction;
    }
    const Snapshot snapshot = getCounters();
    m_writerGate.open();
    return snapshot;
}

uint64_t DictionaryState::beginTransaction() {
    ThreadSlots::ensureSlot();
    if (!tryCloseGate())
        Errors::throwTransactionRuns();
    const Snapshot snapshot = getCounters();
    {
        const std::lock_guard<SpinLock> lock(m_snapshotLock);
        m_snapshotBeforeTransaction = snapshot;
    }
    m_writerGate.beginTransaction();
    return snapshot.resourceIDEnd;
}

void DictionaryState::endTransaction() noexcept {
    m_writerGate.open();
}

void DictionaryState::removeEverything() {
    // A compaction that keeps nothing needs no memory, so this cannot fail.
    const DictionaryCompactionState nothing(m_memoryManager, 0);
    for (const Family& family : m_families)
        family.m_dictionary->finishCompact(nothing);
    m_resourceData.truncate(0);
    m_resourceDatatypeIDs.truncate(0);
    m_dataPool.clear();
    m_nextResourceID.store(FIRST_RESOURCE_ID, std::memory_order_relaxed); // relaxed: no other thread is inside
}

void DictionaryState::deleteResourcesFrom(uint64_t firstResourceID) {
    ThreadSlots::ensureSlot();
    const Snapshot snapshot = getCounters();
    const uint64_t end = std::min<uint64_t>(snapshot.resourceIDEnd, m_resourceDatatypeIDs.getEnd());
    for (uint64_t resourceID = firstResourceID; resourceID < end; ++resourceID) {
        const uint8_t datatypeID = tryGetResourceDatatypeID(resourceID);
        if (datatypeID != D_NONE) {
            getFamily(datatypeID)
                .m_dictionary->deleteUncommittedResourceID(snapshot.toVisibility(), resourceID, datatypeID);
            // Relaxed: no snapshot covers this resource. Without a datatype it does not exist for any thread.
            m_resourceDatatypeIDs[resourceID].store(D_NONE, std::memory_order_relaxed);
        }
    }
}

StoreContents DictionaryState::getContents() const noexcept {
    const Snapshot counters = getCounters();
    const uint64_t end =
        std::min<uint64_t>({counters.resourceIDEnd, m_resourceData.getEnd(), m_resourceDatatypeIDs.getEnd()});
    return StoreContents{
        m_resourceIDWidth == ResourceIDWidth::BITS_32,
        end,
        m_resourceData.getData(),
        m_resourceDatatypeIDs.getData(),
        m_dataPool.getBase(),
        counters.dataPoolEnd};
}

}
