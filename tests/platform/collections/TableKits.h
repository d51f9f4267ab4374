#pragma once

#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/platform/collections/ParallelHashTableImpl.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/system/VMPageSize.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

// Tables of both policies in both widths behind one face, for tests that hold for all four.

namespace kavix::test {

/// The inverse of an odd number modulo 2^64: hashes are products, so tests can ask for the key of a hash.
constexpr uint64_t getInverse(uint64_t number) {
    uint64_t result = number; // right in the lowest 3 bits; each step doubles that
    for (int step = 0; step < 5; ++step)
        result *= 2 - number * result;
    return result;
}

inline constexpr uint64_t AMPLE_BUDGET = uint64_t(1) << 40;

/// What an insertion did.
template<typename KeyWord>
struct Insertion {
    uint64_t m_resourceID;
    KeyWord m_keyWord; // of the entry that this insertion created; 0 if the key was present
};

template<typename R>
class IntegerEntries {

public:

    using Policy = typename NumericDatatype<R>::IntegerPolicy;
    using Key = int64_t;

    static constexpr size_t BUCKET_SIZE = 16;

    Policy getPolicy() const { return Policy(); }

    static Key getKeyWithHash(uint64_t hash) { return static_cast<int64_t>(hash * getInverse(0x9e3779b1)); }

    R createKeyWord(Key, uint64_t resourceID) { return static_cast<R>(resourceID); }

    uint64_t readResourceID(uint64_t keyWord) const { return keyWord; }
};

template<typename R>
class DecimalEntries {

public:

    using Policy = typename NumericDatatype<R>::DecimalPolicy;
    using Key = XSDDecimal;
    static constexpr DecimalRecord RECORD = NumericDatatype<R>::RECORD;

    static constexpr size_t BUCKET_SIZE = 8;

    DecimalEntries() :
        m_memoryManager(AMPLE_BUDGET),
        m_dataPool(m_memoryManager) {
        m_dataPool.initialize(uint64_t(1) << 28);
    }

    Policy getPolicy() const { return Policy{m_dataPool}; }

    static Key getKeyWithHash(uint64_t hash) {
        constexpr uint64_t INVERSE = getInverse(0x100000001b3);
        return XSDDecimal::fromNormalisedFields(
            static_cast<int64_t>((hash * INVERSE * INVERSE) ^ 0xcbf29ce484222325), 0);
    }

    uint64_t createKeyWord(const Key& key, uint64_t resourceID) {
        uint64_t end;
        const uint64_t offset = m_dataPool.allocate(RECORD.getSize(), end);
        RECORD.write(m_dataPool.getBase() + offset, static_cast<R>(resourceID), key);
        return offset;
    }

    uint64_t readResourceID(uint64_t keyWord) const { return RECORD.readResourceID(m_dataPool.getBase() + keyWord); }

private:

    MemoryManager m_memoryManager; // not the budget of the table: tests count that one
    DataPool m_dataPool;
};

/// A table with what it needs, of 1024 buckets at first.
template<typename Entries>
class TableKit : public Entries {

public:

    using typename Entries::Key;
    using typename Entries::Policy;
    using Table = ParallelHashTable<Policy>;
    using KeyWord = typename Table::KeyWord;

    explicit TableKit(uint64_t budget = AMPLE_BUDGET) :
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

    /// Checks, on one thread, what holds of every table that nobody is inside of.
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

using AllTableKits = testing::Types<
    TableKit<IntegerEntries<unsigned int>>, TableKit<IntegerEntries<unsigned long>>,
    TableKit<DecimalEntries<unsigned int>>, TableKit<DecimalEntries<unsigned long>>>;

struct TableKitNames {
    template<typename Kit>
    static std::string GetName(int) {
        const std::string name = Kit::BUCKET_SIZE == 16 ? "Integer" : "Decimal";
        if constexpr (Kit::BUCKET_SIZE == 16)
            return name + (sizeof(typename Kit::KeyWord) == 4 ? "32" : "64");
        else
            return name + (std::is_same_v<Kit, TableKit<DecimalEntries<unsigned int>>> ? "32" : "64");
    }
};

/// A test on one thread, which has a slot.
template<typename Kit>
class TableTest : public testing::Test {

protected:

    TableTest() { ThreadSlots::ensureSlot(); }
};

}
