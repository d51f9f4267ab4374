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
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace kavix {

class DictionaryDatatypeBatches;
class DictionaryDatatypeFactory;
class DictionaryFamily;
class StoreReader;

namespace StoreFormat {

struct Counters;

}

/// The parts of a Dictionary, for Dictionary, Transaction and Restoration only. It owns what the dictionaries of the
/// datatype families share (the memory budget, the counter of resource IDs, the two arrays indexed by resource ID, the
/// data pool) and the dictionaries themselves, which it creates through the registered factories and uses only through
/// their interface. It makes the checks that they leave to their caller.
/// Threads   as in Dictionary; operations that require the gate closed or exclusive use of the dictionary say so.
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

    /// Enters the gate for a single value; throws if a transaction is running.
    void enterSingle();

    /// Closes the gate, once single values in progress have been entered; returns false if a transaction is running.
    bool tryCloseGate() const noexcept;

    Snapshot getCounters() const noexcept;

    /// Returns the first resource ID of the transaction.
    uint64_t beginTransaction();

    void endTransaction() noexcept;

    /// Empties the dictionary, whose tables must have buckets; no other thread may be inside. The calling thread has a
    /// slot.
    void removeEverything();

    /// Rolls back every resource from an ID on.
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
    std::array<const Family*, 256> m_familiesByID; // by datatype ID; null if there is none
    mutable WriterGate m_writerGate;
    mutable SpinLock m_snapshotLock;
    Snapshot m_snapshotBeforeTransaction; // guarded by the lock; what readers get while a transaction is running

private:

    void addFamily(const DictionaryFamily& family);
};

}
