#pragma once

#include "core/platform/collections/ParallelHashTable.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/system/SpinWait.h"
#include "core/platform/system/Unmovable.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <pthread.h>
#include <string_view>
#include <utility>

namespace kavix {

/// A stay inside the table through the calling thread's slot, which ends with the scope.
template<typename Policy>
class ParallelHashTable<Policy>::Visit : private Unmovable {

public:

    /// Enters, and helps a resize in progress.
    explicit Visit(ParallelHashTable& table) noexcept :
        Visit(table, table.getOwnContext()) { }

    /// Completes the entry of a thread after ThreadContext::beginEntering(), and helps a resize in progress.
    /// @param isInside  the value that beginEntering() returned
    Visit(ParallelHashTable& table, ThreadContext& own, bool isInside) noexcept :
        m_context(own) {
        if (!isInside)
            m_context.waitUntilHandedOver();
        assert(table.getNumberOfBuckets() != 0 && "the table was never initialised");
        // Acquire. Pairs with the release store that ends a resize: we see the new array.
        const int64_t state = table.m_resizeState.load(std::memory_order_acquire);
        if (state != NO_RESIZE)
            table.handleResize(m_context, static_cast<size_t>(state));
    }

    /// Continues the stay of a thread that is inside.
    explicit Visit(ThreadContext& own) noexcept :
        m_context(own) { }

    ~Visit() { m_context.leave(); }

private:

    Visit(ParallelHashTable& table, ThreadContext& own) noexcept :
        Visit(table, own, own.beginEntering()) { }

    ThreadContext& m_context;
};

/// A bucket that this thread has claimed by tryClaim(): empty again at the end of the scope, unless it is kept.
template<typename Policy>
class ParallelHashTable<Policy>::Claim : private Unmovable {

public:

    explicit Claim(Bucket& bucket) noexcept :
        m_bucket(bucket),
        m_isKept(false) { }

    ~Claim() {
        // Release, as every store of a key word; a thread that observes an empty bucket reads nothing else of it.
        if (!m_isKept)
            Policy::getKeyWord(m_bucket).store(EMPTY, std::memory_order_release);
    }

    void keep() noexcept { m_isKept = true; }

private:

    Bucket& m_bucket;
    bool m_isKept;
};

template<typename Policy>
ParallelHashTable<Policy>::ParallelHashTable(MemoryManager& memoryManager, const Policy& policy) :
    m_policy(policy),
    m_resizeState(NO_RESIZE),
    m_array(memoryManager),
    m_usedCount(0),
    m_deletedCount(0),
    m_oldBuckets(memoryManager),
    m_chunkCount(0),
    m_chunksRemaining(0) { }

template<typename Policy>
ParallelHashTable<Policy>::~ParallelHashTable() {
    ::pthread_cond_destroy(&m_condition);
    ::pthread_mutex_destroy(&m_mutex);
}

template<typename Policy>
void ParallelHashTable<Policy>::initialize(size_t numberOfBuckets) {
    assert(std::has_single_bit(numberOfBuckets) && numberOfBuckets >= MINIMUM_NUMBER_OF_BUCKETS);
    // Relaxed, in this operation: no other thread is inside.
    m_array.m_numberOfBuckets.store(0, std::memory_order_relaxed);
    m_array.m_region.initialize(numberOfBuckets);
    m_array.m_region.ensureEndAtLeast(numberOfBuckets);
    m_array.use(numberOfBuckets);
    resetFreeReservations();
    m_usedCount.store(0, std::memory_order_relaxed);
    m_deletedCount.store(0, std::memory_order_relaxed);
    endResize();
}

template<typename Policy>
typename ParallelHashTable<Policy>::KeyWord ParallelHashTable<Policy>::loadKeyWord(Bucket& bucket) noexcept {
    const KeyWord keyWord = peekKeyWord(bucket);
    return keyWord == BUSY ? waitWhileBusy(bucket) : keyWord;
}

template<typename Policy>
typename ParallelHashTable<Policy>::KeyWord ParallelHashTable<Policy>::waitWhileBusy(const Bucket& bucket) noexcept {
    // Ends when the thread that claimed the bucket publishes it or gives it up; that thread never waits for us in
    // between.
    SpinWait wait;
    KeyWord keyWord;
    while ((keyWord = peekKeyWord(bucket)) == BUSY)
        wait.step();
    return keyWord;
}

template<typename Policy>
template<typename IsVisible>
uint64_t ParallelHashTable<Policy>::findSlowly(
    bool isInside, Key key, IsVisible isVisible, uint64_t resourceIDEnd) noexcept {
    const Visit visit(*this, getOwnContext(), isInside);
    for (Bucket* bucket = &getFirst(m_policy.getHash(key));; bucket = getNext(bucket)) {
        const KeyWord keyWord = loadKeyWord(*bucket);
        if (keyWord == EMPTY)
            return 0;
        if (keyWord != DELETED && isVisible(keyWord) && m_policy.isEqual(*bucket, keyWord, key)) {
            const uint64_t resourceID = m_policy.getResourceID(*bucket, keyWord);
            return resourceID < resourceIDEnd ? resourceID : 0;
        }
    }
}

template<typename Policy>
template<typename CreateEntry, typename... Arguments>
uint64_t ParallelHashTable<Policy>::findOrInsertSlowly(
    bool isInside, Key key, CreateEntry createEntry, Arguments... arguments) {
    ThreadContext& own = getOwnContext();
    const Visit visit(*this, own, isInside);
    // Before probing, never while a bucket is claimed: a leader would wait for readers that wait for that bucket.
    ensureReservation(own);
    return findOrInsertInside(own, key, &getFirst(m_policy.getHash(key)), createEntry, arguments...);
}

template<typename Policy>
template<typename CreateEntry, typename... Arguments>
uint64_t ParallelHashTable<Policy>::continueAndLeave(
    Bucket& bucket, Key key, CreateEntry createEntry, Arguments... arguments) {
    ThreadContext& own = getOwnContext();
    const Visit visit(own);
    return findOrInsertInside(own, key, &bucket, createEntry, arguments...);
}

template<typename Policy>
template<typename CreateEntry, typename... Arguments>
uint64_t ParallelHashTable<Policy>::fillAndLeave(
    Bucket& bucket, Key key, CreateEntry createEntry, Arguments... arguments) {
    ThreadContext& own = getOwnContext();
    const Visit visit(own);
    return fillClaimed(own, bucket, key, createEntry, arguments...);
}

template<typename Policy>
template<typename CreateEntry, typename... Arguments>
uint64_t ParallelHashTable<Policy>::fillClaimed(
    ThreadContext& own, Bucket& bucket, const Key& key, CreateEntry& createEntry, const Arguments&... arguments) {
    Claim claim(bucket);
    const Entry entry = createEntry(key, arguments...);
    claim.keep();
    return publish(own, bucket, key, entry);
}

template<typename Policy>
template<typename CreateEntry, typename... Arguments>
uint64_t ParallelHashTable<Policy>::findOrInsertInside(
    ThreadContext& own, const Key& key, Bucket* bucket, CreateEntry& createEntry, const Arguments&... arguments) {
    for (;;) {
        const KeyWord keyWord = loadKeyWord(*bucket);
        if (keyWord == EMPTY) {
            if (tryClaim(*bucket))
                return fillClaimed(own, *bucket, key, createEntry, arguments...);
            continue; // another thread took the bucket, maybe for this key
        }
        if (keyWord != DELETED && m_policy.isEqual(*bucket, keyWord, key))
            return m_policy.getResourceID(*bucket, keyWord);
        bucket = getNext(bucket);
    }
}

template<typename Policy>
void ParallelHashTable<Policy>::markDeleted(const Key& key, KeyWord keyWord) noexcept {
    const Visit visit(*this);
    for (Bucket* bucket = &getFirst(m_policy.getHash(key));; bucket = getNext(bucket)) {
        const KeyWord bucketKeyWord = loadKeyWord(*bucket);
        if (bucketKeyWord == EMPTY)
            return;
        if (bucketKeyWord == keyWord) {
            // Relaxed, both: deletion publishes nothing. No reader can see the entry: its ID is beyond every snapshot.
            Policy::getKeyWord(*bucket).store(DELETED, std::memory_order_relaxed);
            m_deletedCount.fetch_add(1, std::memory_order_relaxed);
            return;
        }
    }
}

template<typename Policy>
bool ParallelHashTable<Policy>::ensureReservation(ThreadContext& own) {
    bool isResized = false;
    while (own.getFreeReservation() == 0) {
        // Relaxed: this only rations buckets. The threshold changes only while every other slot is stopped, and
        // entering our slot made its present value visible.
        uint64_t usedCount = m_usedCount.load(std::memory_order_relaxed);
        if (usedCount + RESERVATION_BATCH <= getResizeThreshold()) {
            if (m_usedCount.compare_exchange_weak(usedCount, usedCount + RESERVATION_BATCH, std::memory_order_relaxed))
                own.setFreeReservation(RESERVATION_BATCH);
        }
        else {
            startHandleResize(own);
            isResized = true;
        }
    }
    return isResized;
}

template<typename Policy>
uint64_t ParallelHashTable<Policy>::sumFreeReservations() const noexcept {
    uint64_t result = 0;
    for (const ThreadContext& context : m_threadContexts)
        result += context.getFreeReservation();
    return result;
}

template<typename Policy>
void ParallelHashTable<Policy>::resetFreeReservations() noexcept {
    for (ThreadContext& context : m_threadContexts)
        context.setFreeReservation(0);
}

template<typename Policy>
uint64_t ParallelHashTable<Policy>::getNumberOfUsedBuckets() const noexcept {
    return m_usedCount.load(std::memory_order_relaxed) - sumFreeReservations();
}

template<typename Policy>
void ParallelHashTable<Policy>::endResize() noexcept {
    m_oldBuckets.deinitialize();
    m_chunkCount = 0;
    // Relaxed, both: no other thread is inside.
    m_chunksRemaining.store(0, std::memory_order_relaxed);
    m_resizeState.store(NO_RESIZE, std::memory_order_relaxed);
}

template<typename Policy>
template<typename Operation>
void ParallelHashTable<Policy>::runInside(Operation&& operation) {
    const Visit visit(*this);
    std::forward<Operation>(operation)();
}

template<typename Policy>
void ParallelHashTable<Policy>::clear() noexcept {
    if (getNumberOfUsedBuckets() == 0)
        return; // only unspent reservations, which remain
    resetFreeReservations();
    std::memset(static_cast<void*>(getBuckets()), 0, m_array.m_region.getEnd() * sizeof(Bucket));
    // Relaxed, both: no other thread is inside.
    m_usedCount.store(0, std::memory_order_relaxed);
    m_deletedCount.store(0, std::memory_order_relaxed);
    m_chunkCount = 0;
    m_chunksRemaining.store(0, std::memory_order_relaxed);
    m_resizeState.store(NO_RESIZE, std::memory_order_relaxed);
}

template<typename Policy>
template<typename IsSame>
void ParallelHashTable<Policy>::reinsert(const Key& key, KeyWord newKeyWord, IsSame isSame) noexcept {
    Bucket* bucket = &getFirst(m_policy.getHash(key));
    for (KeyWord keyWord = loadKeyWord(*bucket); keyWord != EMPTY && !isSame(*bucket, keyWord);
         keyWord = loadKeyWord(*bucket))
        bucket = getNext(bucket);
    Policy::setValue(*bucket, key);
    // Release. Pairs with the acquire in peekKeyWord().
    Policy::getKeyWord(*bucket).store(newKeyWord, std::memory_order_release);
    ThreadContext& own = getOwnContext();
    if (own.getFreeReservation() == 0) {
        m_usedCount.fetch_add(RESERVATION_BATCH, std::memory_order_relaxed);
        own.setFreeReservation(RESERVATION_BATCH);
    }
    spendReservation(own);
}

template<typename Policy>
void ParallelHashTable<Policy>::placeEntry(size_t start, size_t mask, KeyWord keyWord, const Bucket& from) noexcept {
    for (size_t index = LinearProbing::getFirst(start, mask);; index = LinearProbing::getNext(index, mask)) {
        Bucket& bucket = getBuckets()[index];
        std::atomic<KeyWord>& target = Policy::getKeyWord(bucket);
        KeyWord expected = target.load(std::memory_order_relaxed); // a first look only; the claim decides
        // Release on success, relaxed on failure: the claim publishes nothing and another mover's entry is not read.
        if (expected == EMPTY &&
            target.compare_exchange_strong(expected, BUSY, std::memory_order_release, std::memory_order_relaxed)) {
            Policy::copyValue(from, bucket);
            // Release. Pairs with the acquire in peekKeyWord(): a thread that observes the key word also observes the
            // value.
            target.store(keyWord, std::memory_order_release);
            return;
        }
    }
}

template<typename Policy>
void ParallelHashTable<Policy>::shrinkToFit(size_t minimumNumberOfBuckets) noexcept {
    assert(std::has_single_bit(minimumNumberOfBuckets) && minimumNumberOfBuckets >= MINIMUM_NUMBER_OF_BUCKETS);
    // Relaxed, in this operation: no other thread is inside.
    const uint64_t usedCount = getNumberOfUsedBuckets();
    m_usedCount.store(usedCount, std::memory_order_relaxed);
    resetFreeReservations();
    const size_t neededNumberOfBuckets = static_cast<size_t>(static_cast<double>(usedCount) / LOAD_FACTOR) + 1;
    const size_t newNumberOfBuckets = std::max(minimumNumberOfBuckets, std::bit_ceil(neededNumberOfBuckets));
    const size_t oldNumberOfBuckets = getNumberOfBuckets();
    if (oldNumberOfBuckets <= newNumberOfBuckets)
        return;
    // An entry of the tail is placed starting from its old index in the smaller table. That keeps it reachable: its
    // hash modulo the smaller size comes at or before that index, wrapped clusters included, and no bucket in between
    // becomes empty. Deleted markers move like entries, so the deleted count stays correct.
    Bucket* const buckets = getBuckets();
    for (size_t index = newNumberOfBuckets; index < oldNumberOfBuckets; ++index) {
        const KeyWord keyWord = loadKeyWord(buckets[index]);
        if (keyWord != EMPTY)
            placeEntry(index, newNumberOfBuckets - 1, keyWord, buckets[index]);
    }
    m_array.m_region.truncate(newNumberOfBuckets);
    m_array.use(newNumberOfBuckets);
}

/// The scope in which a leader prepares a resize: every other slot is stopped, and the state says so. At the end of the
/// scope the outcome is stored in the state, the threads that wait for it are woken, and the slots are released.
template<typename Policy>
class ParallelHashTable<Policy>::ResizePreparation : private Unmovable {

public:

    ResizePreparation(ParallelHashTable& table, ThreadContext& own) noexcept :
        m_table(table),
        m_own(own),
        m_outcome(NO_RESIZE) {
        for (ThreadContext& context : m_table.m_threadContexts)
            if (&context != &m_own)
                context.enter();
    }

    ~ResizePreparation() {
        ::pthread_mutex_lock(&m_table.m_mutex);
        // Release. Pairs with the acquire loads of the state: a thread that observes the outcome also observes the new
        // array.
        m_table.m_resizeState.store(m_outcome, std::memory_order_release);
        ::pthread_cond_broadcast(&m_table.m_condition);
        ::pthread_mutex_unlock(&m_table.m_mutex);
        for (ThreadContext& context : m_table.m_threadContexts)
            if (&context != &m_own)
                context.leave();
    }

    void succeed() noexcept { m_outcome = 0; }

private:

    ParallelHashTable& m_table;
    ThreadContext& m_own;
    int64_t m_outcome;
};

template<typename Policy>
void ParallelHashTable<Policy>::startHandleResize(ThreadContext& own) {
    int64_t state = NO_RESIZE;
    // Acquire and release on success: we continue from the last resize and begin ours. Acquire on failure: we join the
    // resize whose state we see.
    if (m_resizeState.compare_exchange_strong(
            state, RESIZE_PREPARATION, std::memory_order_acq_rel, std::memory_order_acquire)) {
        {
            ResizePreparation preparation(*this, own);
            prepareResize();
            preparation.succeed();
        }
        state = 0;
    }
    handleResize(own, static_cast<size_t>(state));
}

template<typename Policy>
void ParallelHashTable<Policy>::prepareResize() {
    const size_t oldNumberOfBuckets = getNumberOfBuckets();
    // If more than half of the buckets are deleted, a rebuild at the same size makes enough room.
    const size_t newNumberOfBuckets =
        getDeletedCount() <= oldNumberOfBuckets / 2 ? 2 * oldNumberOfBuckets : oldNumberOfBuckets;
    try {
        m_oldBuckets.initialize(newNumberOfBuckets);
        m_oldBuckets.ensureEndAtLeast(newNumberOfBuckets);
    }
    catch (...) {
        m_oldBuckets.deinitialize();
        throw;
    }
    m_chunkCount = oldNumberOfBuckets / CHUNK_SIZE;
    // Release. The decrements in handleResize() continue this release sequence.
    m_chunksRemaining.store(m_chunkCount, std::memory_order_release);
    m_array.m_region.swapContents(m_oldBuckets);
    m_array.use(newNumberOfBuckets);
}

template<typename Policy>
void ParallelHashTable<Policy>::handleResize(ThreadContext& own, size_t state) noexcept {
    // The state is compared as unsigned: as a signed number, "preparing" would look like a chunk to claim.
    constexpr size_t OVER = static_cast<size_t>(NO_RESIZE);
    constexpr size_t PREPARING = static_cast<size_t>(RESIZE_PREPARATION);
    SpinWait wait;
    while (state != OVER) {
        assert((state == PREPARING || m_chunkCount != 0) && "nobody would end this resize");
        if (state == PREPARING) {
            // The leader waits for our slot. Leave it, wait for the outcome, and enter again.
            own.leave();
            ::pthread_mutex_lock(&m_mutex);
            // Ends when the leader stores the outcome and broadcasts, under this mutex. (Relaxed: the mutex
            // synchronises.)
            while (m_resizeState.load(std::memory_order_relaxed) == RESIZE_PREPARATION)
                ::pthread_cond_wait(&m_condition, &m_mutex);
            ::pthread_mutex_unlock(&m_mutex);
            own.enter();
        }
        else if (state < m_chunkCount) {
            int64_t expected = static_cast<int64_t>(state);
            // Acquire and release: a chunk is claimed by one thread. Acquire on failure: we continue from the state we
            // see.
            if (!m_resizeState.compare_exchange_strong(
                    expected, expected + 1, std::memory_order_acq_rel, std::memory_order_acquire)) {
                state = static_cast<size_t>(expected);
                continue;
            }
            moveChunk(own, state);
            // Acquire and release. Release: the last one sees every chunk moved. Acquire: we may be the last one.
            if (m_chunksRemaining.fetch_sub(1, std::memory_order_acq_rel) == 1) {
                m_deletedCount.store(0, std::memory_order_relaxed); // relaxed: a count
                m_oldBuckets.deinitialize();
                // Release. Pairs with every acquire load of the state: a thread that observes the end also observes the
                // whole new array.
                m_resizeState.store(NO_RESIZE, std::memory_order_release);
                return;
            }
        }
        else
            wait.step(); // every chunk is claimed; ends when the thread that finishes the last one stores -1
        // Acquire. Pairs with the release stores of the leader and of the last to finish.
        state = static_cast<size_t>(m_resizeState.load(std::memory_order_acquire));
    }
}

template<typename Policy>
void ParallelHashTable<Policy>::touchTargets(size_t chunk) noexcept {
    // The entries of a chunk go to about the same index, and to that index plus the old size. Reading an untouched page
    // first would map a shared page of zeroes, which the write that follows replaces at great cost; an exchange that
    // changes nothing maps the page for writing at once, whatever other threads do with the bucket at that moment. Each
    // mover touches its own targets, so page faults are distributed like the moving.
    constexpr size_t BUCKETS_PER_PAGE = 4096 / sizeof(Bucket);
    const size_t oldNumberOfBuckets = m_chunkCount * CHUNK_SIZE;
    for (size_t target = chunk * CHUNK_SIZE; target <= m_array.m_mask; target += oldNumberOfBuckets)
        for (size_t offset = 0; offset < CHUNK_SIZE; offset += BUCKETS_PER_PAGE) {
            KeyWord expected = EMPTY; // not an operation such as "or 0", which compilers may replace by a load
            Policy::getKeyWord(getBuckets()[target + offset])
                .compare_exchange_strong(
                    expected, EMPTY, std::memory_order_relaxed, std::memory_order_relaxed); // publishes nothing
        }
}

template<typename Policy>
void ParallelHashTable<Policy>::moveChunk(ThreadContext& own, size_t chunk) noexcept {
    Bucket* const first = m_oldBuckets.getData() + chunk * CHUNK_SIZE;
    touchTargets(chunk);
    if constexpr (!Policy::ENTRY_IS_IN_BUCKET)
        for (const Bucket* bucket = first; bucket != first + CHUNK_SIZE; ++bucket)
            if (const KeyWord keyWord = peekKeyWord(*bucket); isLive(keyWord))
                m_policy.prefetchEntry(keyWord); // for the hash; so the cache misses of all entries overlap
    for (Bucket* bucket = first; bucket != first + CHUNK_SIZE; ++bucket) {
        const KeyWord keyWord = loadKeyWord(*bucket);
        if (keyWord == DELETED)
            own.setFreeReservation(own.getFreeReservation() + 1); // its share of the used count is now ours to spend
        else if (keyWord != EMPTY)
            placeEntry(m_policy.getEntryHash(*bucket, keyWord), m_array.m_mask, keyWord, *bucket);
    }
}

template<typename Policy>
void ParallelHashTable<Policy>::save(OutputStream& output) const {
    const uint64_t headerLength = TableImageFormat::HEADER.size();
    output.write(&headerLength, sizeof(headerLength));
    output.write(TableImageFormat::HEADER.data(), headerLength);
    // Relaxed: no thread changes the table during the call.
    const uint64_t fields[] = {
        getNumberOfBuckets(), getResizeThreshold(), m_usedCount.load(std::memory_order_relaxed), getDeletedCount()};
    for (const uint64_t field : fields)
        output.write(&field, sizeof(field));
    for (const ThreadContext& context : m_threadContexts) {
        const uint32_t freeReservation = context.getFreeReservation();
        output.write(&freeReservation, sizeof(freeReservation));
    }
    m_array.m_region.save(output);
}

template<typename Policy>
void ParallelHashTable<Policy>::load(InputStream& input) {
    const auto readNumber = [&input](auto number) {
        readExactly(input, &number, sizeof(number));
        return number;
    };
    if (readNumber(uint64_t()) != TableImageFormat::HEADER.size())
        Errors::throwCannotLoadParallelHashTable();
    char header[TableImageFormat::HEADER.size()];
    readExactly(input, header, sizeof(header));
    if (TableImageFormat::HEADER != std::string_view(header, sizeof(header)))
        Errors::throwCannotLoadParallelHashTable();
    // Relaxed, in this operation: no other thread is inside.
    const uint64_t numberOfBuckets = readNumber(uint64_t());
    const uint64_t resizeThreshold = readNumber(uint64_t());
    m_usedCount.store(readNumber(uint64_t()), std::memory_order_relaxed);
    m_deletedCount.store(readNumber(uint64_t()), std::memory_order_relaxed);
    for (ThreadContext& context : m_threadContexts)
        context.setFreeReservation(readNumber(uint32_t()));
    m_array.m_region.load(input);
    m_array.use(numberOfBuckets, resizeThreshold);
    endResize();
}

}
