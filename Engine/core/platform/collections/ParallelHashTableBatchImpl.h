#pragma once

#include "core/platform/collections/ParallelHashTableImpl.h"
#include "core/platform/system/Prefetch.h"
#include "core/platform/system/Unmovable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kavix {

/// Lookups of many keys whose cache misses overlap: several dozen are in flight at any time. A lookup that needs a
/// cache line that may be absent prefetches it and yields to the others; when its turn comes again the line is present.
template<typename Policy>
class ParallelHashTable<Policy>::Lookups : private Unmovable {

public:

    /// @param resourceIDs   gets the resource ID of each key, or 0
    /// @param emptyBuckets  gets, for each absent key, the empty bucket that ended its search; may be null
    Lookups(ParallelHashTable& table, std::span<const Key> keys, uint64_t* resourceIDs, Bucket** emptyBuckets) noexcept
        :
        m_table(table),
        m_keys(keys),
        m_resourceIDs(resourceIDs),
        m_emptyBuckets(emptyBuckets) { }

    template<typename IsVisible>
    void run(IsVisible isVisible) noexcept {
        size_t next = 0;
        size_t numberUnderWay = 0;
        while (next < m_keys.size() && numberUnderWay < MAX_UNDER_WAY)
            start(m_underWay[numberUnderWay++], next++);
        while (numberUnderWay != 0)
            for (size_t position = 0; position < numberUnderWay;) {
                Lookup& lookup = m_underWay[position];
                if (!advance(lookup, isVisible))
                    ++position;
                else if (next < m_keys.size())
                    start(m_underWay[position++], next++);
                else
                    lookup = m_underWay[--numberUnderWay];
            }
    }

private:

    static constexpr size_t LINE_SIZE =
        64; // bytes; arrays begin at a page and are whole lines, so they end where one begins
    static constexpr size_t MAX_UNDER_WAY = 32; // about as many fetches as a processor keeps in flight

    struct Lookup {
        Bucket* m_bucket; // the next to examine
        uint32_t m_keyNumber;
        bool m_isEntryFetched; // of that bucket
    };

    void start(Lookup& lookup, size_t keyNumber) noexcept {
        lookup.m_keyNumber = static_cast<uint32_t>(keyNumber);
        if constexpr (!Policy::ENTRY_IS_IN_BUCKET)
            lookup.m_isEntryFetched = false;
        goTo(lookup, &m_table.getFirst(m_table.m_policy.getHash(m_keys[keyNumber])));
    }

    static void goTo(Lookup& lookup, Bucket* bucket) noexcept {
        lookup.m_bucket = bucket;
        fetchAhead(bucket);
    }

    void finishPresent(const Lookup& lookup, uint64_t resourceID) noexcept {
        m_resourceIDs[lookup.m_keyNumber] = resourceID;
    }

    void finishAbsent(const Lookup& lookup, Bucket* bucket) noexcept {
        m_resourceIDs[lookup.m_keyNumber] = 0;
        if (m_emptyBuckets != nullptr)
            m_emptyBuckets[lookup.m_keyNumber] = bucket;
    }

    /// Continues until it would have to wait; returns whether the lookup is done.
    template<typename IsVisible>
    bool advance(Lookup& lookup, IsVisible& isVisible) noexcept {
        const Key& key = m_keys[lookup.m_keyNumber];
        for (Bucket* bucket = lookup.m_bucket;;) {
            const KeyWord keyWord = peekKeyWord(*bucket);
            if (isLive(keyWord)) [[likely]] {
                if (isVisible(keyWord)) {
                    if constexpr (!Policy::ENTRY_IS_IN_BUCKET) {
                        lookup.m_isEntryFetched = !lookup.m_isEntryFetched;
                        if (lookup.m_isEntryFetched) {
                            m_table.m_policy.prefetchEntry(keyWord);
                            lookup.m_bucket = bucket;
                            return false;
                        }
                    }
                    if (m_table.m_policy.isEqual(*bucket, keyWord, key)) {
                        finishPresent(lookup, m_table.m_policy.getResourceID(*bucket, keyWord));
                        return true;
                    }
                }
            }
            else if (keyWord == EMPTY) {
                finishAbsent(lookup, bucket);
                return true;
            }
            else if (keyWord == BUSY) {
                waitWhileBusy(*bucket);
                continue;
            }
            ++bucket;
            if (reinterpret_cast<uintptr_t>(bucket) % LINE_SIZE == 0) {
                goTo(lookup, bucket != m_table.m_array.m_afterLast ? bucket : m_table.getBuckets());
                return false;
            }
        }
    }

    ParallelHashTable& m_table;
    const std::span<const Key> m_keys;
    uint64_t* const m_resourceIDs;
    Bucket** const m_emptyBuckets;
    std::array<Lookup, MAX_UNDER_WAY> m_underWay;
};

template<typename Policy>
template<typename IsVisible>
void ParallelHashTable<Policy>::findAll(
    std::span<const Key> keys, uint64_t* resourceIDs, IsVisible isVisible) noexcept {
    for (size_t first = 0; first < keys.size(); first += BATCH_SIZE) {
        const Visit visit(*this);
        Lookups(*this, keys.subspan(first, std::min(keys.size() - first, BATCH_SIZE)), resourceIDs + first, nullptr)
            .run(isVisible);
    }
}

template<typename Policy>
template<typename CreateEntry>
void ParallelHashTable<Policy>::findOrInsertAll(
    std::span<const Key> keys, uint64_t* resourceIDs, CreateEntry createEntry) {
    Bucket* emptyBuckets[BATCH_SIZE];
    for (size_t first = 0; first < keys.size(); first += BATCH_SIZE) {
        const std::span<const Key> batch = keys.subspan(first, std::min(keys.size() - first, BATCH_SIZE));
        ThreadContext& own = getOwnContext();
        const Visit visit(*this);
        std::fill_n(emptyBuckets, batch.size(), nullptr); // for entries with ID 0, which unchecked images may have
        Lookups(*this, batch, resourceIDs + first, emptyBuckets).run([](KeyWord) { return true; });
        // In order, so that IDs are the same as one at a time. The lines are in the cache now. A key that another
        // thread, or an earlier element of this batch, has inserted in between is found.
        bool isResized = false;
        for (size_t index = 0; index < batch.size(); ++index)
            if (resourceIDs[first + index] == 0) {
                if (own.getFreeReservation() == 0) [[unlikely]]
                    isResized |= ensureReservation(own); // the empty buckets were those of the old array
                // No bucket before this one has the key; usually this one is still empty.
                Bucket& bucket = isResized || emptyBuckets[index] == nullptr ? getFirst(m_policy.getHash(batch[index]))
                                                                             : *emptyBuckets[index];
                resourceIDs[first + index] =
                    tryClaim(bucket) ? fillClaimed(own, bucket, batch[index], createEntry, first + index)
                                     : findOrInsertInside(own, batch[index], &bucket, createEntry, first + index);
            }
    }
}

}
