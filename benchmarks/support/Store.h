#pragma once

#include "core/data-store/dictionary/DataPool.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/system/MemoryManager.h"
#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

namespace kavix::benchmarks {

/// How many values a session gets in one call; contestants without batches process them one at a time.
inline constexpr size_t BATCH_SIZE = 1024;

/// The shared part of a store: the counter of resource IDs and the arrays that map an ID to its value. Every contestant
/// has one and fills it in the same way, so that only the maps differ.
struct Store : private Unmovable {

    /// @param maximumNumberOfValues  address space; a block of IDs for each of a few threads is added
    explicit Store(size_t maximumNumberOfValues) :
        m_memoryManager(uint64_t(1) << 40, true),
        m_resourceData(m_memoryManager),
        m_resourceDatatypeIDs(m_memoryManager),
        m_dataPool(m_memoryManager),
        m_capacity(maximumNumberOfValues + 64 * DictionaryDatatype::RESOURCE_ID_BLOCK_SIZE) {
        ThreadSlots::ensureSlot();
        m_resourceData.initialize(m_capacity);
        m_resourceDatatypeIDs.initialize(m_capacity);
        m_dataPool.initialize(m_capacity * 17 + 64 * NumericDatatype<unsigned long>::DATA_POOL_CHUNK_SIZE);
    }

    MemoryManager m_memoryManager;
    std::atomic<uint64_t> m_nextResourceID{1};
    MemoryRegion<uint64_t> m_resourceData;
    MemoryRegion<std::atomic<uint8_t>> m_resourceDatatypeIDs;
    DataPool m_dataPool;
    const size_t m_capacity;
};

/// The IDs of one thread of a peer: blocks from the store's counter, and the entries of its arrays, as in the
/// dictionary. Of a decimal the array keeps only the unscaled value; the other field would need the pool, so the peers
/// save a write.
class ResourceIDs {

public:

    explicit ResourceIDs(Store& store) noexcept :
        m_store(store) { }

    /// The ID that take() returns next.
    uint32_t peek() {
        if (m_next == m_end) [[unlikely]] {
            m_next = m_store.m_nextResourceID.fetch_add(
                DictionaryDatatype::RESOURCE_ID_BLOCK_SIZE, std::memory_order_relaxed);
            m_end = m_next + DictionaryDatatype::RESOURCE_ID_BLOCK_SIZE;
            m_store.m_resourceData.ensureEndAtLeast(m_end);
            m_store.m_resourceDatatypeIDs.ensureEndAtLeast(m_end);
        }
        return static_cast<uint32_t>(m_next);
    }

    template<typename Key>
    uint32_t take(const Key& key) {
        const uint32_t resourceID = peek();
        ++m_next;
        std::memcpy(&m_store.m_resourceData[resourceID], &key, sizeof(uint64_t));
        // Release, as in the dictionary: a thread that observes the datatype ID also observes the data word.
        m_store.m_resourceDatatypeIDs[resourceID].store(
            std::is_same_v<Key, int64_t> ? D_XSD_INTEGER : D_XSD_DECIMAL, std::memory_order_release);
        return resourceID;
    }

private:

    Store& m_store;
    uint64_t m_next = 0;
    uint64_t m_end = 0;
};

/// How values are passed to the dictionary: one at a time, one at a time by the virtual operation with a ResourceValue,
/// or in batches.
enum class Manner { SINGLE, VIRTUAL, BATCHED };

template<typename Key, typename ResourceID, Manner MANNER>
class KavixMap : private Unmovable {

public:

    static constexpr bool ONE_THREAD_ONLY = false;
    static constexpr bool IS_INTEGER = std::is_same_v<Key, int64_t>;
    static constexpr uint8_t DATATYPE_ID = IS_INTEGER ? D_XSD_INTEGER : D_XSD_DECIMAL;

    /// @param expectedNumberOfValues  the initial size of the table; 0 lets it grow
    KavixMap(size_t maximumNumberOfValues, size_t expectedNumberOfValues) :
        m_store(maximumNumberOfValues),
        m_dictionary(
            m_store.m_memoryManager, m_store.m_nextResourceID, m_store.m_resourceData, m_store.m_resourceDatatypeIDs,
            m_store.m_dataPool) {
        m_dictionary.initialize(m_store.m_capacity, 0);
        if (expectedNumberOfValues > 0) {
            std::vector<uint64_t> counts(D_XSD_UNSIGNED_BYTE + 1, 0);
            counts[DATATYPE_ID] = expectedNumberOfValues;
            m_dictionary.restoreEmpty(counts);
        }
    }

    class Session {

    public:

        explicit Session(KavixMap& map) :
            m_map(map) {
            ThreadSlots::ensureSlot();
        }

        void resolve(std::span<const Key> keys, uint64_t* resourceIDs) {
            if constexpr (MANNER == Manner::SINGLE)
                for (const Key& key : keys)
                    *resourceIDs++ = resolveSingle(key);
            else if constexpr (MANNER == Manner::VIRTUAL)
                for (const Key& key : keys)
                    *resourceIDs++ = m_map.getInterface().resolveResource(&m_context, makeValue(key));
            else if constexpr (IS_INTEGER)
                m_map.m_dictionary.resolveResources(&m_context, DATATYPE_ID, keys, resourceIDs);
            else
                m_map.m_dictionary.resolveResources(&m_context, keys, resourceIDs);
        }

        void tryResolve(std::span<const Key> keys, uint64_t* resourceIDs) {
            if constexpr (MANNER == Manner::SINGLE)
                for (const Key& key : keys)
                    *resourceIDs++ = tryResolveSingle(key);
            else if constexpr (MANNER == Manner::VIRTUAL)
                for (const Key& key : keys)
                    *resourceIDs++ = m_map.getInterface().tryResolveResource(ALL_VISIBLE, makeValue(key));
            else if constexpr (IS_INTEGER)
                m_map.m_dictionary.tryResolveResources(ALL_VISIBLE, DATATYPE_ID, keys, resourceIDs);
            else
                m_map.m_dictionary.tryResolveResources(ALL_VISIBLE, keys, resourceIDs);
        }

    private:

        static constexpr std::pair<uint64_t, uint64_t> ALL_VISIBLE{UINT64_MAX, UINT64_MAX};

        uint64_t resolveSingle(const Key& key) {
            if constexpr (IS_INTEGER)
                return m_map.m_dictionary.resolveResource(&m_context, DATATYPE_ID, key);
            else
                return m_map.m_dictionary.resolveResource(&m_context, key);
        }

        uint64_t tryResolveSingle(const Key& key) const {
            if constexpr (IS_INTEGER)
                return m_map.m_dictionary.tryResolveResource(ALL_VISIBLE, DATATYPE_ID, key);
            else
                return m_map.m_dictionary.tryResolveResource(ALL_VISIBLE, key);
        }

        static ResourceValue makeValue(const Key& key) noexcept {
            ResourceValue value;
            value.setBinaryValue(DATATYPE_ID, key);
            return value;
        }

        KavixMap& m_map;
        DictionaryUsageContext m_context;
    };

    DictionaryDatatype& getInterface() noexcept { return m_dictionary; }

    Store m_store;
    NumericDatatype<ResourceID> m_dictionary;
};

template<typename Key>
using KavixSingle = KavixMap<Key, unsigned int, Manner::SINGLE>;

template<typename Key>
using KavixVirtual = KavixMap<Key, unsigned int, Manner::VIRTUAL>;

template<typename Key>
using KavixBatched = KavixMap<Key, unsigned int, Manner::BATCHED>;

}
