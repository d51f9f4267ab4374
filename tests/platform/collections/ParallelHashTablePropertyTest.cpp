#include "core/platform/stream/MemoryInputStream.h"
#include "platform/collections/TableFixtures.h"
#include "support/Bytes.h"
#include "support/Scale.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace kavix {

using test::AllTableFixtures;
using test::TableFixtureNames;

template<typename Fixture>
class ParallelHashTableTest : public test::TableTest<Fixture> { };

TYPED_TEST_SUITE(ParallelHashTableTest, AllTableFixtures, TableFixtureNames);

namespace {

/// What a table is to one thread: a map, and the counts that decide its size.
template<typename KeyWord>
struct Model {

    struct Entry {
        uint64_t m_resourceID;
        KeyWord m_keyWord;
    };

    std::unordered_map<uint64_t, Entry> m_entries; // by the index of the key
    size_t m_numberOfBuckets = 1024;
    uint64_t m_handedOut = 0; // live, deleted, reserved
    uint64_t m_reservation = 0; // of the one thread
    uint64_t m_deleted = 0;

    uint64_t getThreshold() const { return m_numberOfBuckets * 7 / 10; }

    void reserve() {
        while (m_reservation == 0)
            if (m_handedOut + 100 <= getThreshold()) {
                m_handedOut += 100;
                m_reservation = 100;
            }
            else {
                if (m_deleted <= m_numberOfBuckets / 2)
                    m_numberOfBuckets *= 2;
                m_reservation = m_deleted;
                m_deleted = 0;
            }
    }

    void clear() {
        if (m_handedOut == m_reservation)
            return;
        m_entries.clear();
        m_handedOut = m_reservation = m_deleted = 0;
    }

    void shrinkToFit() {
        m_handedOut -= m_reservation;
        m_reservation = 0;
        size_t needed = 1024;
        while (needed * 7 < m_handedOut * 10) // never equal: 7 * 2^k is not a multiple of 10
            needed *= 2;
        m_numberOfBuckets = std::min(m_numberOfBuckets, needed);
    }
};

template<typename Fixture>
void expectCounts(Fixture& fixture, const Model<typename Fixture::KeyWord>& model) {
    ASSERT_EQ(fixture.m_table.getNumberOfBuckets(), model.m_numberOfBuckets);
    ASSERT_EQ(fixture.m_table.getResizeThreshold(), model.getThreshold());
    ASSERT_EQ(fixture.m_table.getDeletedCount(), model.m_deleted);
    ASSERT_EQ(fixture.m_table.getNumberOfUsedBuckets(), model.m_handedOut - model.m_reservation);
    ASSERT_EQ(fixture.m_table.getNumberOfUsedBuckets(), model.m_entries.size() + model.m_deleted);
    ASSERT_EQ(fixture.m_memoryManager.getChargedBytes(), fixture.m_table.getCommittedBytes());
}

template<typename Fixture>
void expectContent(
    Fixture& fixture, const Model<typename Fixture::KeyWord>& model, const std::vector<typename Fixture::Key>& keys) {
    fixture.expectConsistent();
    ASSERT_EQ(fixture.m_numberOfLiveBuckets, model.m_entries.size());
    for (size_t keyIndex = 0; keyIndex < keys.size(); ++keyIndex) {
        const auto entry = model.m_entries.find(keyIndex);
        ASSERT_EQ(fixture.find(keys[keyIndex]), entry == model.m_entries.end() ? 0 : entry->second.m_resourceID);
    }
}

uint64_t getSeed(uint64_t seed) {
    const char* const replay = std::getenv("KAVIX_TEST_SEED"); // one variable to replay a failure
    return replay != nullptr ? std::strtoull(replay, nullptr, 10) : seed;
}

}

TYPED_TEST(ParallelHashTableTest, BehavesLikeAMapUnderRandomOperations) {
    using Fixture = TypeParam;
    using ModelType = Model<typename Fixture::KeyWord>;
    for (uint64_t round = 1; round <= 6; ++round) {
        const uint64_t seed = getSeed(round);
        SCOPED_TRACE("KAVIX_TEST_SEED=" + std::to_string(seed));
        std::mt19937_64 random(seed);
        Fixture fixture;
        ModelType model;
        // Half of the keys crowd at a few start buckets, at the ends of arrays of all sizes among them.
        std::vector<typename Fixture::Key> keys;
        for (size_t index = 0; index < 2500; ++index)
            keys.push_back(
                fixture.getKeyWithHash(index % 2 == 0 ? random() : (random() << 11) + 1020 + random() % 4 * 256));
        uint64_t nextID = 2;
        const unsigned deletions = static_cast<unsigned>(round % 3) * 20; // rounds that grow, and rounds that churn
        const size_t steps = 8000 / test::STRESS_DIVISOR;
        for (size_t step = 0; step < steps; ++step) {
            const uint64_t index = random() % keys.size();
            const auto& key = keys[index];
            const auto found = model.m_entries.find(index);
            const uint64_t expectedID = found == model.m_entries.end() ? 0 : found->second.m_resourceID;
            const unsigned choice = static_cast<unsigned>(random() % 1000);
            if (choice < 10 * deletions) {
                if (found != model.m_entries.end()) {
                    fixture.m_table.markDeleted(key, found->second.m_keyWord);
                    model.m_entries.erase(found);
                    ++model.m_deleted;
                }
                else
                    fixture.m_table.markDeleted(key, 1); // a key word that no entry has
            }
            else if (choice < 990) {
                model.reserve();
                const auto insertion = fixture.insert(key, nextID);
                if (expectedID != 0) {
                    ASSERT_EQ(insertion.m_resourceID, expectedID);
                    ASSERT_EQ(insertion.m_keyWord, 0u);
                }
                else {
                    ASSERT_EQ(insertion.m_resourceID, nextID);
                    model.m_entries[index] = {nextID, insertion.m_keyWord};
                    ++nextID;
                    --model.m_reservation;
                }
            }
            else if (choice < 992) {
                fixture.m_table.clear();
                model.clear();
            }
            else if (choice < 996) {
                fixture.m_table.shrinkToFit(1024);
                model.shrinkToFit();
            }
            else {
                const std::string image = test::saveToBytes(fixture.m_table);
                MemoryInputStream input(image);
                fixture.m_table.load(input);
            }

            ASSERT_NO_FATAL_FAILURE(expectCounts(fixture, model));
            const uint64_t other = random() % keys.size();
            const auto otherEntry = model.m_entries.find(other);
            ASSERT_EQ(
                fixture.find(keys[other]), otherEntry == model.m_entries.end() ? 0 : otherEntry->second.m_resourceID);
            if (step % 32 == 0 || choice >= 990) {
                expectContent(fixture, model, keys);
                if (testing::Test::HasFailure())
                    return;
            }
        }
    }
}

}
