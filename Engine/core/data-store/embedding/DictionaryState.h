#pragma once

#include "core/data-store/dictionary/DataPool.h"
#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/WriterGate.h"
#include "core/data-store/inspection/DictionaryDatatypeInspector.h"
#include "core/platform/system/MemoryManager.h"
#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/SpinLock.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace kavix {

class DictionaryDatatypeBatches;
class DictionaryDatatypeFactory;
class StoreReader;

namespace StoreFormat {

struct Counters;

}

/// What a Dictionary is made of, for Dictionary, Transaction and Restoration alone. It owns what the dictionaries of the
/// datatype families share (the memory budget, the counter of resource IDs, the two arrays indexed by resource ID, the
/// data pool) and the dictionaries themselves, which it makes through the registered factories and knows only by their
/// interface. It checks what they leave to their caller.
/// Threads   as Dictionary says; operations that need the gate closed or the dictionary to themselves say so.
class DictionaryState : private Unmovable {

public:

    using Snapshot = kavix::Snapshot;

    /// A family of datatypes in this dictionary.
    struct Family {
        const DictionaryDatatypeFactory& m_factory;
        const DictionaryDatatypeInspector& m_inspector;
        std::unique_ptr<DictionaryDatatype> m_dictionary;
        DictionaryDatatypeBatches& m_batches; // the same object
    };

    /// Resource ID 0 means "none".
    static constexpr uint64_t FIRST_RESOURCE_ID = 1;

    static uint64_t getMaximumDataPoolSize(uint64_t maxResourceID) noexcept;

    StoreContents getContents() const noexcept;

    void loadSections(StoreReader& reader, const StoreFormat::Counters& counters);

    uint64_t doResolve(DictionaryUsageContext* context, std::string_view lexicalForm, uint8_t datatypeID);

    uint64_t doResolve(DictionaryUsageContext* context, const ResourceValue& value);

    void doResolve(DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs);

    size_t doResolve(
        DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept;

    template<typename GetDatatypeID, typename Operation>
    void forEachRun(size_t size, GetDatatypeID getDatatypeIDOf, Operation operation) const;

    template<typename Operation>
    void forEachValidRun(std::span<const ResourceValue> values, Operation operation) const;

    template<typename Operation>
    size_t resolveRuns(std::span<const Literal> literals, Resolution* resolutions, Operation operation) const noexcept;

    const Family& getFamily(uint8_t datatypeID) const;

    uint8_t getResourceDatatypeID(uint64_t resourceID) const;

    /// Takes the gate for single values; throws if a transaction runs.
    void enterSingle();

    /// Closes the gate, once single values have been entered; returns false if a transaction runs.
    bool tryCloseGate() const noexcept;

    Snapshot getCounters() const noexcept;

    /// Returns the first resource ID of the transaction.
    uint64_t beginTransaction();

    void endTransaction() noexcept;

    /// Makes the dictionary empty, whose tables have buckets; nobody else is inside. The calling thread has a slot.
    void removeEverything();

    /// Takes back every resource from an ID on.
    void deleteResourcesFrom(uint64_t firstResourceID);

    Snapshot takeSnapshot() const noexcept;

    uint8_t tryGetResourceDatatypeID(uint64_t resourceID) const noexcept;

    explicit DictionaryState(const Dictionary::Options& options);

    ~DictionaryState();

    const ResourceIDWidth m_resourceIDWidth;
    const uint64_t m_maxResourceID;
    MemoryManager m_memoryManager;
    alignas(64) std::atomic<uint64_t> m_nextResourceID;
    MemoryRegion<uint64_t> m_resourceData;
    MemoryRegion<std::atomic<uint8_t>> m_resourceDatatypeIDs;
    DataPool m_dataPool;
    std::vector<Family> m_families; // fixed after construction, in the order of their smallest datatype IDs
    std::array<const Family*, 256> m_familiesByID; // by datatype ID; null for none
    mutable WriterGate m_writerGate;
    mutable SpinLock m_snapshotLock;
    Snapshot m_snapshotBeforeTransaction; // guarded by the lock; the one that readers get while a transaction runs

private:

    void addFamily(const DictionaryDatatypeFactory& factory);
};

}
