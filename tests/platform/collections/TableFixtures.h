#pragma once

#include "core/platform/collections/ParallelHashTableImpl.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/system/MemoryRegionImpl.h"
#include "core/platform/system/VMPageSize.h"
#include "support/Inverse.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

// Tables of both kinds of buckets with one interface, for tests that hold for all of them. The policies are the tests'
// own: a table knows nothing of datatypes.

namespace kavix::test {

inline constexpr uint64_t AMPLE_BUDGET = uint64_t(1) << 40;

/// What an insertion did.
template<typename KeyWord>
struct Insertion {
    uint64_t m_resourceID;
    KeyWord m_keyWord; // of the entry that this insertion created; 0 if the key was present
};

/// Entries that are whole in their bucket: the key word is the resource ID, the key lies beside it.
template<typename R>
class EntriesInBuckets {

public:

    using Key = int64_t;

    static constexpr size_t BUCKET_SIZE = 16;
    static constexpr uint64_t MULTIPLIER = 0xd6e8feb86659fd93;

    struct Policy {

        using Key = int64_t;
        using KeyWord = R;

        static constexpr bool ENTRY_IS_IN_BUCKET = true;

        struct Bucket {
            std::atomic<R> m_keyWord;
            int64_t m_key;
        };

        static std::atomic<R>& getKeyWord(Bucket& bucket) noexcept { return bucket.m_keyWord; }
        static const std::atomic<R>& getKeyWord(const Bucket& bucket) noexcept { return bucket.m_keyWord; }
        static uint64_t getHash(Key key) noexcept { return static_cast<uint64_t>(key) * MULTIPLIER; }
        static uint64_t getEntryHash(const Bucket& bucket, R) noexcept { return getHash(bucket.m_key); }
        static bool isEqual(const Bucket& bucket, R, Key key) noexcept { return bucket.m_key == key; }
        static void prefetchEntry(R) noexcept { }
        static void setValue(Bucket& bucket, Key key) noexcept { bucket.m_key = key; }
        static void copyValue(const Bucket& from, Bucket& to) noexcept { to.m_key = from.m_key; }
        static uint64_t getResourceID(const Bucket&, R keyWord) noexcept { return keyWord; }
    };

    static std::string getName() { return sizeof(R) == 4 ? "InBuckets32" : "InBuckets64"; }

    Policy getPolicy() const { return Policy(); }

    static Key getKeyWithHash(uint64_t hash) { return static_cast<Key>(hash * getInverse(MULTIPLIER)); }

    R createKeyWord(Key, uint64_t resourceID) { return static_cast<R>(resourceID); }
};

/// Entries of which the bucket has the number of a record, where the key of two words and the resource ID are.
class EntriesInRecords {

public:

    struct Key {
        int64_t m_first;
        uint64_t m_second;
        bool operator==(const Key& other) const = default;
    };

    struct Record {
        Key m_key;
        uint64_t m_resourceID;
    };

    static constexpr size_t BUCKET_SIZE = 8;
    static constexpr uint64_t MULTIPLIER = 0xff51afd7ed558ccd;

    struct Policy {

        using Key = EntriesInRecords::Key;
        using KeyWord = uint64_t;

        static constexpr bool ENTRY_IS_IN_BUCKET = false;

        struct Bucket {
            std::atomic<uint64_t> m_recordNumber;
        };

        const MemoryRegion<Record>& m_records;

        static std::atomic<uint64_t>& getKeyWord(Bucket& bucket) noexcept { return bucket.m_recordNumber; }
        static const std::atomic<uint64_t>& getKeyWord(const Bucket& bucket) noexcept { return bucket.m_recordNumber; }
        static uint64_t getHash(const Key& key) noexcept {
            return static_cast<uint64_t>(key.m_first) * MULTIPLIER + key.m_second;
        }
        uint64_t getEntryHash(const Bucket&, uint64_t keyWord) const noexcept {
            return getHash(m_records[keyWord].m_key);
        }
        bool isEqual(const Bucket&, uint64_t keyWord, const Key& key) const noexcept {
            return m_records[keyWord].m_key == key;
        }
        void prefetchEntry(uint64_t) const noexcept { }
        static void setValue(Bucket&, const Key&) noexcept { }
        static void copyValue(const Bucket&, Bucket&) noexcept { }
        uint64_t getResourceID(const Bucket&, uint64_t keyWord) const noexcept {
            return m_records[keyWord].m_resourceID;
        }
    };

    EntriesInRecords() :
        m_memoryManager(AMPLE_BUDGET),
        m_records(m_memoryManager) {
        m_records.initialize(size_t(1) << 22);
    }

    static std::string getName() { return "InRecords"; }

    Policy getPolicy() const { return Policy{m_records}; }

    static Key getKeyWithHash(uint64_t hash) {
        constexpr uint64_t SECOND = 0x0123456789abcdef;
        return Key{static_cast<int64_t>((hash - SECOND) * getInverse(MULTIPLIER)), SECOND};
    }

    /// From any thread. A record is not read before its number is published.
    uint64_t createKeyWord(const Key& key, uint64_t resourceID) {
        const uint64_t number = m_nextRecordNumber.fetch_add(1, std::memory_order_relaxed);
        m_records.ensureEndAtLeast(number + 1);
        m_records[number] = Record{key, resourceID};
        return number;
    }

private:

    MemoryManager m_memoryManager; // not the budget of the table: tests count that one
    MemoryRegion<Record> m_records;
    std::atomic<uint64_t> m_nextRecordNumber{2}; // no entry has key word 1, as tests need one; relaxed: only rations
};

/// A table with what it needs, of 1024 buckets at first.
template<typename Entries>
class TableFixture : public Entries {

public:

    using typename Entries::Key;
    using typename Entries::Policy;
    using Table = ParallelHashTable<Policy>;
    using KeyWord = typename Table::KeyWord;

    explicit TableFixture(uint64_t budget = AMPLE_BUDGET) :
        m_memoryManager(budget),
        m_table(m_memoryManager, this->getPolicy()) {
        m_table.initialize(Table::MINIMUM_NUMBER_OF_BUCKETS);
    }

    uint64_t find(const Key& key) {
        return m_table.find(key, [](KeyWord) { return true; });
    }

    Insertion<KeyWord> insert(const Key& key, uint64_t resourceID) {
        KeyWord keyWord = 0;
        const uint64_t found = m_table.findOrInsert(key, [&](const auto&) {
            keyWord = this->createKeyWord(key, resourceID);
            return typename Table::Entry{keyWord, resourceID};
        });
        return {found, keyWord};
    }

    /// What is in a bucket: its key word.
    KeyWord getKeyWordAt(size_t index) {
        return Policy::getKeyWord(m_table.getBuckets()[index]).load(std::memory_order_relaxed);
    }

    /// Checks, on one thread, what holds of every table while no thread is inside.
    void expectConsistent() {
        const size_t numberOfBuckets = m_table.getNumberOfBuckets();
        ASSERT_GE(numberOfBuckets, 1024u);
        ASSERT_EQ(numberOfBuckets & (numberOfBuckets - 1), 0u);
        EXPECT_EQ(m_table.getResizeThreshold(), numberOfBuckets * 7 / 10);
        EXPECT_EQ(
            m_table.getCommittedBytes(),
            (numberOfBuckets * Entries::BUCKET_SIZE + getVMPageSize() - 1) / getVMPageSize() * getVMPageSize());
        EXPECT_EQ(m_memoryManager.getChargedBytes(), m_table.getCommittedBytes()); // also: no old array is left
        uint64_t live = 0;
        uint64_t deleted = 0;
        for (size_t index = 0; index < numberOfBuckets; ++index) {
            const KeyWord keyWord = getKeyWordAt(index);
            EXPECT_NE(keyWord, Table::BUSY) << index;
            if (keyWord == Table::DELETED)
                ++deleted;
            else if (keyWord != Table::EMPTY)
                ++live;
            if constexpr (sizeof(KeyWord) == 4) {
                uint32_t padding;
                std::memcpy(
                    &padding, reinterpret_cast<const uint8_t*>(m_table.getBuckets() + index) + 4, sizeof(padding));
                EXPECT_EQ(padding, 0u) << index;
            }
        }
        EXPECT_EQ(m_table.getDeletedCount(), deleted);
        EXPECT_EQ(m_table.getNumberOfUsedBuckets(), live + deleted);
        m_numberOfLiveBuckets = live;
    }

    MemoryManager m_memoryManager;
    Table m_table;
    uint64_t m_numberOfLiveBuckets = 0; // as expectConsistent() counted them
};

using AllTableFixtures = testing::Types<
    TableFixture<EntriesInBuckets<unsigned int>>, TableFixture<EntriesInBuckets<unsigned long>>,
    TableFixture<EntriesInRecords>>;

struct TableFixtureNames {
    template<typename Fixture>
    static std::string GetName(int) {
        return Fixture::getName();
    }
};

/// A test on one thread, which has a slot.
template<typename Fixture>
class TableTest : public testing::Test {

protected:

    TableTest() { ThreadSlots::ensureSlot(); }
};

}
