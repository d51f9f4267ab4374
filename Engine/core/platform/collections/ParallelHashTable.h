#pragma once

#include "core/platform/collections/LinearProbing.h"
#include "core/platform/collections/TableImageFormat.h"
#include "core/platform/collections/ThreadContext.h"
#include "core/platform/system/MemoryRegion.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <pthread.h>
#include <span>

namespace kavix {

/// A hash table with linear probing that many threads search and extend while it grows.
///
///   bucket:  empty --claim--> busy --publish--> live --delete--> deleted
///              ^----give up----'        (the key word alone determines the state)
///
///   key word   0 empty; all ones busy: a writer fills the bucket; all ones but the lowest deleted; otherwise live
///
/// The resize state decides what a thread that enters does first:
///
///   value                meaning                                        changed by               to
///   -1                   no resize runs                                 a leader, by exchange    -2
///   -2                   a leader stops the others and allocates        the leader               0; -1 on failure
///   0 .. chunks - 1      the next chunk of old buckets to be moved      any thread, by exchange  the next number
///   chunks or more       all claimed, some are still being moved        the last to finish       -1
///
/// Invariants
///  - The key and value of a live bucket never change; only deletion overwrites the key.
///  - The used count covers live, deleted and reserved buckets and stays at or below the threshold, so every probe
///    meets an empty bucket and ends.
///  - Outside a resize there is one array; during one, no thread looks up or inserts.
///  - The array, its mask, size and end, the threshold and the chunk count change only while every slot is stopped, or
///    while no other thread is inside; only threads that hold a slot read them.
/// Callers   find, findOrInsert, markDeleted: any thread that has a slot to itself; statistics: any thread. The rest,
///           construction and destruction: one thread, with no other thread inside.
/// Orders    Keys: published by release, read by acquire; a thread that observes a key also observes its value.
///           Slots: acquire on entry, release on leaving; a thread that stops a slot observes everything its owner did.
///           Used and deleted counts: relaxed; they ration and count buckets and publish nothing.
///           Resize state: acquire and release; the -1 of the last to finish publishes the moved array to the threads
///           that wait inside.
/// Progress  Lookups take no lock but wait for a busy bucket and for a resize: not wait-free.
/// Failures  No memory to grow: the table is unchanged, the caller gets the error, other threads continue.
///           Creating an entry throws: its bucket is empty again, the reservation is kept.
/// Cost      Expected constant probes up to load 0.7; growth moves an entry once per doubling. The shared used count is
///           touched once per 100 insertions of a thread. A lookup costs one cache miss and a few instructions, and the
///           processor overlaps the misses of as many lookups as fit its window: so find() and findOrInsert() have a
///           fast path that calls nothing; every obstacle sends them to a slow path, a separate function, which starts
///           over or continues at the bucket that was reached.
///
/// Policy says what a bucket is:
///   Bucket, KeyWord, Key                             the types; an empty bucket is all zero bytes
///   getKeyWord(bucket) -> std::atomic<KeyWord>&      and the same of a const bucket
///   getHash(key), getEntryHash(bucket, keyWord)      the same for an entry and its key
///   isEqual(bucket, keyWord, key)                    whether a live bucket holds the key
///   setValue(bucket, key), copyValue(from, to)       everything of a bucket but the key word
///   getResourceID(bucket, keyWord)                   of a live bucket; never 0
///   ENTRY_IS_IN_BUCKET, prefetchEntry(keyWord)       whether isEqual() reads only the bucket; prefetches the rest
/// Buckets are saved as raw bytes: their layout, the hash and the markers are part of the image format.
///
/// The slots lie at the beginning, where reaching one takes the fewest instructions. For that reason this class, unlike
/// others, is not derived from Unmovable: slots are, and an object and its first member may not share an empty base.
template<typename Policy>
class ParallelHashTable {

public:

    using Bucket = typename Policy::Bucket;
    using KeyWord = typename Policy::KeyWord;
    using Key = typename Policy::Key;

    static constexpr KeyWord EMPTY = 0;
    static constexpr KeyWord BUSY = std::numeric_limits<KeyWord>::max();
    static constexpr KeyWord DELETED = BUSY - 1;

    static constexpr size_t MINIMUM_NUMBER_OF_BUCKETS = TableImageFormat::MINIMUM_NUMBER_OF_BUCKETS;
    static constexpr size_t CHUNK_SIZE = 1024; // buckets
    static constexpr uint32_t RESERVATION_BATCH = 100;
    static constexpr double LOAD_FACTOR = TableImageFormat::LOAD_FACTOR;

    /// A new entry: what is published in its bucket, and its resource ID.
    struct Entry {
        KeyWord m_keyWord;
        uint64_t m_resourceID;
    };

    /// A table without buckets: initialize() or load() comes before any other use.
    ParallelHashTable(MemoryManager& memoryManager, const Policy& policy);

    ParallelHashTable(const ParallelHashTable&) = delete;
    ParallelHashTable& operator=(const ParallelHashTable&) = delete;

    ~ParallelHashTable();

    /// Makes the table empty.
    /// @param numberOfBuckets  a power of two, at least 1024
    /// @throws as MemoryRegion; the table then has no buckets
    void initialize(size_t numberOfBuckets);

    /// Returns the resource ID of a key, or 0 if it is absent or its ID is not below the end. Live buckets whose key
    /// word isVisible(keyWord) rejects are skipped.
    template<typename IsVisible>
    [[gnu::always_inline]] inline uint64_t find(
        const Key& key, IsVisible isVisible, uint64_t resourceIDEnd = std::numeric_limits<uint64_t>::max()) noexcept;

    /// Returns the resource ID of a key; if it is absent, inserts what createEntry(key, arguments...) returns. The key
    /// word of that entry is none of the three markers, and everything a reader needs to use it was written before
    /// createEntry() returned. Unlike the captures of createEntry, the arguments can stay in registers: at most three
    /// words together with a key of one word, two with a key of two. If createEntry.tryAtOnce(key, arguments...)
    /// exists, it is called first. It does not throw, is short because callers inline it, and returns the entry, or
    /// nothing if it has done nothing.
    /// @throws as MemoryRegion if the table must grow and cannot, and whatever createEntry() throws: the key is absent
    template<typename CreateEntry, typename... Arguments>
    [[gnu::always_inline]] inline uint64_t findOrInsert(
        const Key& key, CreateEntry createEntry, Arguments... arguments);

    /// find() for many keys: resourceIDs[i] becomes what find(keys[i]) returns. Prefetches, so that cache misses
    /// overlap; enters the table once for BATCH_SIZE keys.
    template<typename IsVisible>
    void findAll(std::span<const Key> keys, uint64_t* resourceIDs, IsVisible isVisible) noexcept;

    /// findOrInsert() for many keys, in order: keys are looked up together, and then the absent ones are inserted one
    /// after the other. createEntry(keys[i], i) makes an entry.
    /// @throws as findOrInsert() at the first key that fails: the keys before it have their IDs; the contents of
    ///         resourceIDs from that index on are unspecified, and no key from that index on was inserted
    template<typename CreateEntry>
    void findOrInsertAll(std::span<const Key> keys, uint64_t* resourceIDs, CreateEntry createEntry);

    /// How many keys a thread looks up before it lets a pending resize proceed.
    static constexpr size_t BATCH_SIZE = 1024;

    /// Marks the entry of a key deleted if it has the given key word; otherwise changes nothing. The bucket stays
    /// occupied until the table is rebuilt.
    void markDeleted(const Key& key, KeyWord keyWord) noexcept;

    /// Removes every entry and keeps the size.
    void clear() noexcept;

    /// Inserts a key in the course of a rebuild, without regard to the threshold: the table held the key before. A
    /// bucket for which isSame(bucket, keyWord) holds is overwritten.
    template<typename IsSame>
    void reinsert(const Key& key, KeyWord newKeyWord, IsSame isSame) noexcept;

    /// Makes the table as small as its contents allow.
    /// @param minimumNumberOfBuckets  a power of two, at least 1024
    void shrinkToFit(size_t minimumNumberOfBuckets) noexcept;

    /// Writes the table as raw memory.
    void save(OutputStream& output) const;

    /// Replaces the table by what save() wrote. Only the header is checked.
    /// @throws KavixException  "Invalid input file: cannot load ParallelHashTable.", "Premature end of file.", or as
    ///                         MemoryRegion: the table must then be discarded or initialised again
    void load(InputStream& input);

    /// Runs an operation while this thread is inside the table, after any resize in progress.
    template<typename Operation>
    void runInside(Operation&& operation);

    size_t getNumberOfBuckets() const noexcept { return m_array.m_numberOfBuckets.load(std::memory_order_relaxed); }

    size_t getCommittedBytes() const noexcept { return m_array.m_region.getCommittedBytes(); }

    uint64_t getDeletedCount() const noexcept { return m_deletedCount.load(std::memory_order_relaxed); }

    /// The used count less all free reservations: live and deleted entries. Read without stopping any thread: while
    /// others insert it may be off by what they are reserving, and may even wrap.
    uint64_t getNumberOfUsedBuckets() const noexcept;

    /// The sum of all free reservations; off by what other threads are reserving or spending.
    uint64_t getNumberOfReservedBuckets() const noexcept { return sumFreeReservations(); }

    const Policy& getPolicy() const noexcept { return m_policy; }

    uint64_t getResizeThreshold() const noexcept { return m_array.m_resizeThreshold; }

    Bucket* getBuckets() noexcept { return m_array.m_region.getData(); }

    const Bucket* getBuckets() const noexcept { return m_array.m_region.getData(); }

private:

    static constexpr int64_t NO_RESIZE = -1;
    static constexpr int64_t RESIZE_PREPARATION = -2;

    class Visit;
    class Claim;
    class ResizePreparation;
    class Lookups;

    ThreadContext& getOwnContext() noexcept {
        assert(s_currentThreadContextIndex < NUMBER_OF_THREAD_SLOTS && "the thread has no slot");
        return m_threadContexts[s_currentThreadContextIndex];
    }

    /// Loads the key word of a bucket, busy or not.
    static KeyWord peekKeyWord(const Bucket& bucket) noexcept {
        // Acquire. Pairs with the release in publish(), placeEntry() and reinsert(): a thread that observes a live key
        // word also observes the value.
        return Policy::getKeyWord(bucket).load(std::memory_order_acquire);
    }

    static bool isLive(KeyWord keyWord) noexcept { return static_cast<KeyWord>(keyWord - 1) < DELETED - 1; }

    bool isResizing() const noexcept {
        assert(getNumberOfBuckets() != 0 && "the table was never initialised");
        // Acquire. Pairs with the release store that ends a resize: we see the new array.
        return m_resizeState.load(std::memory_order_acquire) != NO_RESIZE;
    }

    // These are called from where the fast paths are inlined, which may be another program: hence "used".

    /// The slow path of find() and findOrInsert(), from the beginning, for a thread that met an obstacle after
    /// ThreadContext::beginEntering().
    /// @param isInside  the value that beginEntering() returned
    template<typename IsVisible>
    [[gnu::noinline, gnu::used]] uint64_t findSlowly(
        bool isInside, Key key, IsVisible isVisible, uint64_t resourceIDEnd) noexcept;

    template<typename CreateEntry, typename... Arguments>
    [[gnu::noinline, gnu::used]] uint64_t findOrInsertSlowly(
        bool isInside, Key key, CreateEntry createEntry, Arguments... arguments);

    /// The last step of findOrInsert() for a thread that has found a bucket empty; leaves the table.
    template<typename CreateEntry, typename... Arguments>
    [[gnu::always_inline]] inline uint64_t insertAndLeave(
        ThreadContext& own, Bucket& bucket, const Key& key, CreateEntry createEntry, Arguments... arguments);

    /// The rest of insertAndLeave() for a thread that lost the claim race: another thread has claimed the bucket, maybe
    /// for this key.
    template<typename CreateEntry, typename... Arguments>
    [[gnu::noinline, gnu::used]] uint64_t continueAndLeave(
        Bucket& bucket, Key key, CreateEntry createEntry, Arguments... arguments);

    /// The rest of insertAndLeave() for a thread that has claimed the bucket but cannot create an entry at once.
    template<typename CreateEntry, typename... Arguments>
    [[gnu::noinline, gnu::used]] uint64_t fillAndLeave(
        Bucket& bucket, Key key, CreateEntry createEntry, Arguments... arguments);

    /// Makes an empty bucket busy; returns whether it was empty.
    static bool tryClaim(Bucket& bucket) noexcept;

    /// Publishes the entry of a claimed bucket; returns its resource ID.
    static uint64_t publish(ThreadContext& own, Bucket& bucket, const Key& key, const Entry& entry) noexcept;

    /// Creates and publishes the entry of a claimed bucket; on failure the bucket becomes empty again.
    template<typename CreateEntry, typename... Arguments>
    uint64_t fillClaimed(
        ThreadContext& own, Bucket& bucket, const Key& key, CreateEntry& createEntry, const Arguments&... arguments);

    /// findOrInsert() for a thread that is inside and has a reservation.
    /// @param bucket  where to start probing: the bucket that the hash of the key leads to, or one that an earlier
    ///                probe for this key found empty, since the buckets before it still do not hold the key
    template<typename CreateEntry, typename... Arguments>
    uint64_t findOrInsertInside(
        ThreadContext& own, const Key& key, Bucket* bucket, CreateEntry& createEntry, const Arguments&... arguments);

    /// Loads the key word of a bucket once it is not busy.
    static KeyWord loadKeyWord(Bucket& bucket) noexcept;

    [[gnu::noinline]] static KeyWord waitWhileBusy(const Bucket& bucket) noexcept;

    /// The buckets and what depends on their number. Changed only while no other thread is inside, and only as a whole.
    struct BucketArray {

        size_t m_mask; // the number of buckets less 1
        Bucket* m_afterLast; // the end of the buckets
        MemoryRegion<Bucket> m_region;
        std::atomic<size_t> m_numberOfBuckets; // atomic for the statistics
        uint64_t m_resizeThreshold; // the used count must not exceed it

        explicit BucketArray(MemoryManager& memoryManager) :
            m_mask(0),
            m_afterLast(nullptr),
            m_region(memoryManager),
            m_numberOfBuckets(0),
            m_resizeThreshold(0) { }

        /// Makes the first buckets of the region the table.
        /// @param numberOfBuckets  a power of two, unless it comes from an unchecked image
        void use(size_t numberOfBuckets, uint64_t resizeThreshold) noexcept {
            m_mask = numberOfBuckets - 1;
            m_afterLast = m_region.getData() + std::min(numberOfBuckets, m_region.getEnd());
            m_numberOfBuckets.store(numberOfBuckets, std::memory_order_relaxed); // relaxed: no other thread is inside
            m_resizeThreshold = resizeThreshold;
        }

        void use(size_t numberOfBuckets) noexcept {
            use(numberOfBuckets, TableImageFormat::getResizeThreshold(numberOfBuckets));
        }
    };

    /// The bucket that a hash leads to.
    Bucket& getFirst(uint64_t hash) noexcept {
        return m_array.m_region.getData()[LinearProbing::getFirst(hash, m_array.m_mask)];
    }

    /// The next bucket in probing order.
    Bucket* getNext(Bucket* bucket) noexcept {
        return ++bucket != m_array.m_afterLast ? bucket : m_array.m_region.getData();
    }

    /// Returns whether the table was resized during the call.
    bool ensureReservation(ThreadContext& own);

    static void spendReservation(ThreadContext& own) noexcept { own.setFreeReservation(own.getFreeReservation() - 1); }

    uint64_t sumFreeReservations() const noexcept;

    void resetFreeReservations() noexcept;

    void endResize() noexcept;

    /// Starts a resize, or joins the one that another thread started; returns when it is over.
    /// @throws as MemoryRegion if the new array cannot be allocated: the table is unchanged
    void startHandleResize(ThreadContext& own);

    /// Takes part in the resize during which the state was read; returns when the state is -1.
    void handleResize(ThreadContext& own, size_t state) noexcept;

    void prepareResize();

    /// Maps the pages of the new array that a chunk's entries will mostly go to.
    void touchTargets(size_t chunk) noexcept;

    void moveChunk(ThreadContext& own, size_t chunk) noexcept;

    /// Puts an entry into the first empty bucket from start on, in the array of mask + 1 buckets.
    void placeEntry(size_t start, size_t mask, KeyWord keyWord, const Bucket& from) noexcept;

    // Each owned by one thread, or by a leader.
    ThreadContext m_threadContexts[NUMBER_OF_THREAD_SLOTS];

    // Fixed after construction.
    const Policy m_policy;

    // Atomic and shared.
    std::atomic<int64_t> m_resizeState;

    // Changed only while no other thread is inside.
    BucketArray m_array;

    // Atomic and shared, on a cache line of their own: every thread writes the used count from time to time.
    alignas(128) std::atomic<uint64_t> m_usedCount; // buckets handed out: live, deleted, and unspent reservations
    std::atomic<uint64_t> m_deletedCount;

    // Changed only while no other thread is inside.
    alignas(128) MemoryRegion<Bucket> m_oldBuckets; // empty except during a resize
    size_t m_chunkCount;

    std::atomic<size_t> m_chunksRemaining; // not yet completely moved

    // For threads that wait until the resize has been prepared.
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t m_condition = PTHREAD_COND_INITIALIZER;
};

// The fast paths are defined here, to be inlined into their callers; everything else is in the Impl header.

template<typename Policy>
template<typename IsVisible>
uint64_t ParallelHashTable<Policy>::find(const Key& key, IsVisible isVisible, uint64_t resourceIDEnd) noexcept {
    ThreadContext& own = getOwnContext();
    if (!own.beginEntering()) [[unlikely]]
        return findSlowly(false, key, isVisible, resourceIDEnd);
    if (!isResizing()) [[likely]] {
        for (Bucket* bucket = &getFirst(m_policy.getHash(key));; bucket = getNext(bucket)) {
            const KeyWord keyWord = peekKeyWord(*bucket);
            if (isLive(keyWord)) [[likely]] {
                if (isVisible(keyWord) && m_policy.isEqual(*bucket, keyWord, key)) {
                    const uint64_t resourceID = m_policy.getResourceID(*bucket, keyWord);
                    return own.leaveWith(resourceID < resourceIDEnd ? resourceID : 0);
                }
            }
            else if (keyWord == EMPTY)
                return own.leaveWith(0);
            else if (keyWord == BUSY)
                break;
        }
    }
    return findSlowly(true, key, isVisible, resourceIDEnd);
}

template<typename Policy>
template<typename CreateEntry, typename... Arguments>
uint64_t ParallelHashTable<Policy>::findOrInsert(const Key& key, CreateEntry createEntry, Arguments... arguments) {
    ThreadContext& own = getOwnContext();
    if (!own.beginEntering()) [[unlikely]]
        return findOrInsertSlowly(false, key, createEntry, arguments...);
    if (!isResizing() && own.getFreeReservation() != 0) [[likely]] {
        for (Bucket* bucket = &getFirst(m_policy.getHash(key));; bucket = getNext(bucket)) {
            const KeyWord keyWord = peekKeyWord(*bucket);
            if (isLive(keyWord)) [[likely]] {
                if (m_policy.isEqual(*bucket, keyWord, key))
                    return own.leaveWith(m_policy.getResourceID(*bucket, keyWord));
            }
            else if (keyWord == EMPTY)
                return insertAndLeave(own, *bucket, key, createEntry, arguments...);
            else if (keyWord == BUSY)
                break;
        }
    }
    return findOrInsertSlowly(true, key, createEntry, arguments...);
}

template<typename Policy>
inline bool ParallelHashTable<Policy>::tryClaim(Bucket& bucket) noexcept {
    KeyWord expected = EMPTY;
    // Relaxed on failure: the bucket is examined again, and that load acquires. The release on success publishes
    // nothing; the claim only excludes other threads.
    return Policy::getKeyWord(bucket).compare_exchange_strong(
        expected, BUSY, std::memory_order_release, std::memory_order_relaxed);
}

template<typename Policy>
inline uint64_t ParallelHashTable<Policy>::publish(
    ThreadContext& own, Bucket& bucket, const Key& key, const Entry& entry) noexcept {
    assert(entry.m_keyWord != EMPTY && entry.m_keyWord < DELETED);
    Policy::setValue(bucket, key);
    // Release. Pairs with the acquire in peekKeyWord(): a thread that observes the key word also observes the value of
    // the bucket and everything written for the entry before.
    Policy::getKeyWord(bucket).store(entry.m_keyWord, std::memory_order_release);
    spendReservation(own);
    return entry.m_resourceID;
}

template<typename Policy>
template<typename CreateEntry, typename... Arguments>
uint64_t ParallelHashTable<Policy>::insertAndLeave(
    ThreadContext& own, Bucket& bucket, const Key& key, CreateEntry createEntry, Arguments... arguments) {
    if (!tryClaim(bucket)) [[unlikely]]
        return continueAndLeave(bucket, key, createEntry, arguments...);
    if constexpr (requires { createEntry.tryAtOnce(key, arguments...); }) {
        static_assert(noexcept(createEntry.tryAtOnce(key, arguments...)), "nobody would give up the claim");
        if (const std::optional<Entry> entry = createEntry.tryAtOnce(key, arguments...)) [[likely]]
            return own.leaveWith(publish(own, bucket, key, *entry));
    }
    return fillAndLeave(bucket, key, createEntry, arguments...);
}

}
