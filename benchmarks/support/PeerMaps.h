#pragma once

#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/system/SpinLock.h"
#include "support/Store.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <type_traits>
#include <unordered_map>

#ifdef KAVIX_HAS_ABSEIL
#include <absl/container/flat_hash_map.h>
#endif
#ifdef KAVIX_HAS_BOOST_FLAT_MAP
#include <boost/unordered/unordered_flat_map.hpp>
#endif
#ifdef KAVIX_HAS_TBB
#include <oneapi/tbb/concurrent_hash_map.h>
#endif
#ifdef KAVIX_HAS_LIBCUCKOO
#include <libcuckoo/cuckoohash_map.hh>
#endif
#ifdef KAVIX_HAS_XENIUM
#include <xenium/reclamation/generic_epoch_based.hpp>
#include <xenium/vyukov_hash_map.hpp>
#endif

/// The maps to compare with, doing the dictionary's work: the same IDs, arrays and interface. Integers are hashed with
/// the default of each map unless stated otherwise, decimals with std::hash.
namespace kavix::benchmarks {

/// The common part of the peers. Map defines how a value is found and inserted:
///   find(key) -> ID or 0             findOrInsert(key, resourceIDs) -> ID, taken from resourceIDs if the key is new
template<typename Map>
class PeerSession {

public:

    explicit PeerSession(Map& map) :
        m_map(map),
        m_resourceIDs(map.m_store) { }

    template<typename Key>
    void resolve(std::span<const Key> keys, uint64_t* resourceIDs) {
        for (const Key& key : keys)
            *resourceIDs++ = m_map.findOrInsert(key, m_resourceIDs);
    }

    template<typename Key>
    void tryResolve(std::span<const Key> keys, uint64_t* resourceIDs) {
        for (const Key& key : keys)
            *resourceIDs++ = m_map.find(key);
    }

private:

    Map& m_map;
    ResourceIDs m_resourceIDs;
};

/// A map without locks, for one thread.
template<typename Key, template<typename, typename> typename Hashed>
class AloneMap : private Unmovable {

public:

    static constexpr bool ONE_THREAD_ONLY = true;
    using Session = PeerSession<AloneMap>;

    AloneMap(size_t maximumNumberOfValues, size_t expectedNumberOfValues) :
        m_store(maximumNumberOfValues) {
        m_map.reserve(expectedNumberOfValues);
    }

    uint32_t find(const Key& key) const {
        const auto position = m_map.find(key);
        return position == m_map.end() ? 0 : position->second;
    }

    uint32_t findOrInsert(const Key& key, ResourceIDs& resourceIDs) {
        const auto [position, isNew] = m_map.try_emplace(key, 0u);
        if (isNew)
            position->second = resourceIDs.take(key);
        return position->second;
    }

    Store m_store;

private:

    Hashed<Key, uint32_t> m_map;
};

/// A map divided into shards by the hash, each with a lock.
template<typename Key, template<typename, typename> typename Hashed, typename Lock, size_t NUMBER_OF_SHARDS>
class LockedMap : private Unmovable {

public:

    static constexpr bool ONE_THREAD_ONLY = false;
    using Session = PeerSession<LockedMap>;

    LockedMap(size_t maximumNumberOfValues, size_t expectedNumberOfValues) :
        m_store(maximumNumberOfValues),
        m_shards(std::make_unique<std::array<Shard, NUMBER_OF_SHARDS>>()) {
        for (Shard& shard : *m_shards)
            shard.m_map.reserve(expectedNumberOfValues / NUMBER_OF_SHARDS * 17 / 16); // shards fill unevenly
    }

    uint32_t find(const Key& key) {
        Shard& shard = getShard(key);
        const std::lock_guard<Lock> guard(shard.m_lock);
        const auto position = shard.m_map.find(key);
        return position == shard.m_map.end() ? 0 : position->second;
    }

    uint32_t findOrInsert(const Key& key, ResourceIDs& resourceIDs) {
        Shard& shard = getShard(key);
        const std::lock_guard<Lock> guard(shard.m_lock);
        const auto [position, isNew] = shard.m_map.try_emplace(key, 0u);
        if (isNew)
            position->second = resourceIDs.take(key);
        return position->second;
    }

    Store m_store;

private:

    struct alignas(128) Shard {
        Lock m_lock;
        Hashed<Key, uint32_t> m_map;
    };

    Shard& getShard(const Key& key) noexcept {
        uint64_t word;
        std::memcpy(&word, &key, sizeof(word));
        return (*m_shards)[(word * 0x9e3779b97f4a7c15u >> 32) * NUMBER_OF_SHARDS >> 32];
    }

    std::unique_ptr<std::array<Shard, NUMBER_OF_SHARDS>> m_shards;
};

template<typename Key, typename Value>
using StandardHashed = std::unordered_map<Key, Value>;

template<typename Key>
using StandardBehindMutex = LockedMap<Key, StandardHashed, std::mutex, 1>;

#ifdef KAVIX_HAS_ABSEIL
template<typename Key, typename Value>
using AbseilHashed = absl::flat_hash_map<
    Key, Value, std::conditional_t<std::is_same_v<Key, XSDDecimal>, std::hash<Key>, absl::Hash<int64_t>>>;

template<typename Key>
using AbseilAlone = AloneMap<Key, AbseilHashed>;

template<typename Key>
using AbseilBehindMutexes = LockedMap<Key, AbseilHashed, std::mutex, 64>;

template<typename Key>
using AbseilBehindSpinLocks = LockedMap<Key, AbseilHashed, SpinLock, 64>;
#endif

#ifdef KAVIX_HAS_BOOST_FLAT_MAP
template<typename Key, typename Value>
using BoostHashed = boost::unordered_flat_map<
    Key, Value, std::conditional_t<std::is_same_v<Key, XSDDecimal>, std::hash<Key>, boost::hash<int64_t>>>;

template<typename Key>
using BoostAlone = AloneMap<Key, BoostHashed>;
#endif

#ifdef KAVIX_HAS_TBB
template<typename Key>
class TBBMap : private Unmovable {

public:

    static constexpr bool ONE_THREAD_ONLY = false;
    using Session = PeerSession<TBBMap>;

    TBBMap(size_t maximumNumberOfValues, size_t expectedNumberOfValues) :
        m_store(maximumNumberOfValues) {
        m_map.rehash(expectedNumberOfValues);
    }

    uint32_t find(const Key& key) const {
        typename Map::const_accessor accessor;
        return m_map.find(accessor, key) ? accessor->second : 0;
    }

    uint32_t findOrInsert(const Key& key, ResourceIDs& resourceIDs) {
        {
            typename Map::const_accessor accessor; // shared, which is sufficient for most calls of an import
            if (m_map.find(accessor, key))
                return accessor->second;
        }
        typename Map::accessor accessor;
        if (m_map.insert(accessor, key))
            accessor->second = resourceIDs.take(key);
        return accessor->second;
    }

    Store m_store;

private:

    struct HashCompare {
        static size_t hash(const Key& key) noexcept { return tbb::tbb_hash_compare<Key>().hash(key); }
        static bool equal(const Key& first, const Key& second) noexcept { return first == second; }
    };

    using Map = tbb::concurrent_hash_map<Key, uint32_t, HashCompare>;

    Map m_map;
};
#endif

#ifdef KAVIX_HAS_LIBCUCKOO
/// The standard library's hash of an integer is the integer itself, with which libcuckoo gives up on regular patterns.
template<typename Key>
struct LibcuckooHash {
    size_t operator()(const Key& key) const noexcept {
        const uint64_t word = static_cast<uint64_t>(std::hash<Key>()(key)) * 0x9e3779b97f4a7c15u;
        return word ^ word >> 32;
    }
};

template<typename Key>
class LibcuckooMap : private Unmovable {

public:

    static constexpr bool ONE_THREAD_ONLY = false;
    using Session = PeerSession<LibcuckooMap>;

    LibcuckooMap(size_t maximumNumberOfValues, size_t expectedNumberOfValues) :
        m_store(maximumNumberOfValues) {
        m_map.reserve(expectedNumberOfValues);
    }

    uint32_t find(const Key& key) const {
        uint32_t resourceID = 0;
        m_map.find(key, resourceID);
        return resourceID;
    }

    uint32_t findOrInsert(const Key& key, ResourceIDs& resourceIDs) {
        // The map requires the new ID in advance; it is used up only if the key was new.
        uint32_t resourceID = resourceIDs.peek();
        if (m_map.upsert(
                key, [&resourceID](uint32_t& present) { resourceID = present; }, resourceID))
            resourceIDs.take(key);
        return resourceID;
    }

    Store m_store;

private:

    libcuckoo::cuckoohash_map<Key, uint32_t, LibcuckooHash<Key>> m_map;
};
#endif

#ifdef KAVIX_HAS_XENIUM
/// Integers only: other keys would be nodes on the heap.
class XeniumMap : private Unmovable {

public:

    static constexpr bool ONE_THREAD_ONLY = false;
    using Session = PeerSession<XeniumMap>;

    XeniumMap(size_t maximumNumberOfValues, size_t expectedNumberOfValues) :
        m_store(maximumNumberOfValues),
        m_map(std::max<size_t>(128, expectedNumberOfValues)) { }

    uint32_t find(const int64_t& key) const {
        Map::accessor accessor;
        return m_map.try_get_value(key, accessor) ? *accessor : 0;
    }

    uint32_t findOrInsert(const int64_t& key, ResourceIDs& resourceIDs) {
        Map::accessor accessor;
        if (m_map.try_get_value(key, accessor))
            return *accessor;
        return *m_map.get_or_emplace_lazy(key, [&] { return resourceIDs.take(key); }).first;
    }

    Store m_store;

private:

    using Map =
        xenium::vyukov_hash_map<int64_t, uint32_t, xenium::policy::reclaimer<xenium::reclamation::epoch_based<>>>;

    Map m_map;
};
#endif

}
