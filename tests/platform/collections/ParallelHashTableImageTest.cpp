#include "core/platform/stream/MemoryInputStream.h"
#include "platform/collections/TableFixtures.h"
#include "support/Bytes.h"
#include "support/ExpectError.h"
#include "support/ShortReadInputStream.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <string>

namespace kavix {

using test::AllTableFixtures;
using test::TableFixtureNames;

template<typename Fixture>
class ParallelHashTableImageTest : public test::TableTest<Fixture> { };

TYPED_TEST_SUITE(ParallelHashTableImageTest, AllTableFixtures, TableFixtureNames);

namespace {

constexpr size_t HEADER_SIZE = 8 + 17;
constexpr size_t FIELDS_SIZE = 4 * 8 + 256 * 4;

/// The fields of an image, written here from the description of the format and not by the code under test.
struct ImageFields {

    uint64_t headerLength = 17;
    std::string header = "ParallelHashTable";
    uint64_t numberOfBuckets = 1024;
    uint64_t resizeThreshold = 716;
    uint64_t usedCount = 0;
    uint64_t deletedCount = 0;
    std::array<uint32_t, 256> freeReservations{};
    uint64_t maximumNumberOfItems = 1024;
    uint64_t end = 1024;
    std::string buckets;

    std::string getBytes() const {
        test::ByteWriter output;
        output.put(headerLength)
            .putText(header)
            .put(numberOfBuckets)
            .put(resizeThreshold)
            .put(usedCount)
            .put(deletedCount);
        for (const uint32_t freeReservation : freeReservations)
            output.put(freeReservation);
        output.put(maximumNumberOfItems);
        if (maximumNumberOfItems != 0)
            output.put(end).putText(buckets);
        return output.getBytes();
    }
};

/// The bucket of an entry as bytes: the key word, padding, and for integers the value.
template<typename Fixture>
std::string getBucketBytes(typename Fixture::KeyWord keyWord, const typename Fixture::Key& key) {
    std::string result(Fixture::BUCKET_SIZE, '\0');
    std::memcpy(result.data(), &keyWord, sizeof(keyWord));
    if constexpr (Fixture::BUCKET_SIZE == 16)
        std::memcpy(result.data() + 8, &key, 8);
    return result;
}

template<typename Fixture>
std::string save(const Fixture& fixture) {
    return test::saveToBytes(fixture.m_table);
}

template<typename Fixture>
void load(Fixture& fixture, const std::string& image) {
    MemoryInputStream input(image);
    fixture.m_table.load(input);
}

void expectWrongHeader(const std::function<void()>& action) {
    test::expectError(
        "Engine/core/platform/collections/ParallelHashTableImpl", 472,
        "Invalid input file: cannot load ParallelHashTable.", action);
}

}

TYPED_TEST(ParallelHashTableImageTest, IsTheHeaderTheCountsTheReservationsAndTheBuckets) {
    TypeParam fixture;
    ImageFields fields;
    fields.buckets = std::string(1024 * TypeParam::BUCKET_SIZE, '\0');
    EXPECT_EQ(save(fixture), fields.getBytes());

    const auto liveKey = fixture.getKeyWithHash(3);
    const auto deletedKey = fixture.getKeyWithHash(1023);
    const auto live = fixture.insert(liveKey, 0x01020304);
    const auto deleted = fixture.insert(deletedKey, 6);
    fixture.m_table.markDeleted(deletedKey, deleted.m_keyWord);
    fields.usedCount = 100;
    fields.deletedCount = 1;
    fields.freeReservations[s_currentThreadContextIndex] = 98;
    fields.buckets.replace(
        3 * TypeParam::BUCKET_SIZE, TypeParam::BUCKET_SIZE, getBucketBytes<TypeParam>(live.m_keyWord, liveKey));
    fields.buckets.replace(
        1023 * TypeParam::BUCKET_SIZE, TypeParam::BUCKET_SIZE,
        getBucketBytes<TypeParam>(TypeParam::Table::DELETED, deletedKey));
    EXPECT_EQ(save(fixture), fields.getBytes());
}

TYPED_TEST(ParallelHashTableImageTest, LoadsWhatIsWrittenByHand) {
    TypeParam fixture;
    const auto keyInPlace = fixture.getKeyWithHash(9);
    const auto keyAfterDeleted = fixture.getKeyWithHash(9 + 2048);
    const auto keyWrapped = fixture.getKeyWithHash(2047);
    ImageFields fields;
    fields.numberOfBuckets = fields.maximumNumberOfItems = fields.end = 2048;
    fields.resizeThreshold = 1433;
    fields.usedCount = 300;
    fields.deletedCount = 1;
    fields.freeReservations[0] = 95;
    fields.freeReservations[17] = 100;
    fields.freeReservations[255] = 99;
    const std::string deletedBucket = getBucketBytes<TypeParam>(TypeParam::Table::DELETED, fixture.getKeyWithHash(0));
    fields.buckets = std::string(2048 * TypeParam::BUCKET_SIZE, '\0');
    const auto setBucket = [&](size_t index, const std::string& bytes) {
        fields.buckets.replace(index * TypeParam::BUCKET_SIZE, TypeParam::BUCKET_SIZE, bytes);
    };
    setBucket(9, getBucketBytes<TypeParam>(fixture.createKeyWord(keyInPlace, 1), keyInPlace));
    setBucket(10, deletedBucket);
    setBucket(11, getBucketBytes<TypeParam>(fixture.createKeyWord(keyAfterDeleted, 2), keyAfterDeleted));
    setBucket(
        2047, getBucketBytes<TypeParam>(
                  fixture.createKeyWord(fixture.getKeyWithHash(4095), 3), fixture.getKeyWithHash(4095)));
    setBucket(0, getBucketBytes<TypeParam>(fixture.createKeyWord(keyWrapped, 4), keyWrapped));
    fields.usedCount = 4 + 1 + 95 + 100 + 99;

    for (const size_t maximumPerRead : {size_t(1), size_t(1000), std::numeric_limits<size_t>::max()}) {
        SCOPED_TRACE(maximumPerRead);
        const std::string bytes = fields.getBytes() + "rest";
        test::ShortReadInputStream input(bytes, maximumPerRead);
        fixture.m_table.load(input);
        EXPECT_EQ(input.getRemainingBytes(), 4u);
        fixture.expectConsistent();
        EXPECT_EQ(fixture.m_numberOfLiveBuckets, 4u);
        EXPECT_EQ(fixture.m_table.getDeletedCount(), 1u);
        EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 5u);
        EXPECT_EQ(fixture.find(keyInPlace), 1u);
        EXPECT_EQ(fixture.find(keyAfterDeleted), 2u);
        EXPECT_EQ(fixture.find(fixture.getKeyWithHash(4095)), 3u);
        EXPECT_EQ(fixture.find(keyWrapped), 4u);
        EXPECT_EQ(fixture.find(fixture.getKeyWithHash(10)), 0u);
        EXPECT_EQ(save(fixture), fields.getBytes());
    }
}

TYPED_TEST(ParallelHashTableImageTest, ALoadedTableContinuesExactlyLikeTheSavedOne) {
    TypeParam saved;
    for (uint64_t id = 1; id <= 1234; ++id) {
        const auto insertion = saved.insert(saved.getKeyWithHash(id * 0x9e3779b97f4a7c15), id);
        if (id % 10 == 0)
            saved.m_table.markDeleted(saved.getKeyWithHash(id * 0x9e3779b97f4a7c15), insertion.m_keyWord);
    }
    // A second table beside the first, since records belong to the pool.
    typename TypeParam::Table loaded(saved.m_memoryManager, saved.getPolicy());
    const std::string image = save(saved);
    MemoryInputStream input(image);
    loaded.load(input);
    for (uint64_t id = 1; id <= 3000; ++id) {
        const auto key = saved.getKeyWithHash(id * 0x9e3779b97f4a7c15);
        const auto keyWord = saved.createKeyWord(key, id);
        const auto createEntry = [&](const auto&) { return typename TypeParam::Table::Entry{keyWord, id}; };
        ASSERT_EQ(loaded.findOrInsert(key, createEntry), saved.m_table.findOrInsert(key, createEntry));
        ASSERT_EQ(loaded.getNumberOfBuckets(), saved.m_table.getNumberOfBuckets());
        ASSERT_EQ(loaded.getDeletedCount(), saved.m_table.getDeletedCount());
    }
    EXPECT_EQ(test::saveToBytes(loaded), save(saved));
}

TYPED_TEST(ParallelHashTableImageTest, ATableThatWasShrunkIsSavedWithItsOldCapacity) {
    TypeParam fixture;
    fixture.m_table.initialize(4096);
    fixture.insert(fixture.getKeyWithHash(4000), 1);
    fixture.m_table.shrinkToFit(1024);
    const std::string image = save(fixture);
    EXPECT_EQ(image.size(), HEADER_SIZE + FIELDS_SIZE + 16 + 1024 * TypeParam::BUCKET_SIZE);
    uint64_t maximumNumberOfItems;
    std::memcpy(&maximumNumberOfItems, image.data() + HEADER_SIZE + FIELDS_SIZE, 8);
    EXPECT_EQ(maximumNumberOfItems, 4096u);
    load(fixture, image);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(4000)), 1u);
    EXPECT_EQ(save(fixture), image);
}

TYPED_TEST(ParallelHashTableImageTest, ACapacityOfZeroEndsTheImageAndLeavesNoBuckets) {
    TypeParam fixture;
    ImageFields fields;
    fields.numberOfBuckets = fields.resizeThreshold = fields.maximumNumberOfItems = 0;
    const std::string bytes = fields.getBytes() + "rest";
    MemoryInputStream input(bytes);
    fixture.m_table.load(input);
    EXPECT_EQ(bytes.size() - input.getRemainingBytes(), HEADER_SIZE + FIELDS_SIZE + 8);
    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 0u);
    EXPECT_EQ(fixture.m_table.getCommittedBytes(), 0u);
    EXPECT_EQ(fixture.m_memoryManager.getChargedBytes(), 0u);

    const typename TypeParam::Table neverInitialised(fixture.m_memoryManager, fixture.getPolicy());
    EXPECT_EQ(test::saveToBytes(neverInitialised), fields.getBytes());
}

TYPED_TEST(ParallelHashTableImageTest, AnImageCutAnywhereEndsTooEarly) {
    TypeParam fixture;
    for (uint64_t id = 1; id <= 50; ++id)
        fixture.insert(fixture.getKeyWithHash(id), id);
    const std::string image = save(fixture);
    TypeParam target;
    for (size_t length = 0; length < image.size();
         length += length < HEADER_SIZE + FIELDS_SIZE + 100 || length + 50 > image.size() ? 1 : 97) {
        SCOPED_TRACE(length);
        test::expectError("Engine/core/platform/stream/InputStream", 23, "Premature end of file.", [&] {
            load(target, image.substr(0, length));
        });
        ASSERT_EQ(target.m_memoryManager.getChargedBytes(), target.m_table.getCommittedBytes());
    }
    target.m_table.initialize(1024); // what a failure leaves can be initialised again
    target.expectConsistent();
    EXPECT_EQ(target.m_table.getNumberOfUsedBuckets(), 0u);
}

TYPED_TEST(ParallelHashTableImageTest, AWrongLengthOfTheHeaderIsRefusedAfterEightBytes) {
    TypeParam fixture;
    fixture.insert(fixture.getKeyWithHash(1), 1);
    for (const uint64_t length :
         {uint64_t(0), uint64_t(15), uint64_t(16), uint64_t(18), (uint64_t(1) << 32) + 17,
          std::numeric_limits<uint64_t>::max()}) {
        SCOPED_TRACE(length);
        ImageFields fields;
        fields.headerLength = length;
        const std::string bytes = fields.getBytes();
        MemoryInputStream input(bytes);
        expectWrongHeader([&] { fixture.m_table.load(input); });
        EXPECT_EQ(bytes.size() - input.getRemainingBytes(), 8u);
        EXPECT_EQ(fixture.find(fixture.getKeyWithHash(1)), 1u); // the table is as before
    }
}

TYPED_TEST(ParallelHashTableImageTest, AHeaderThatDiffersInOneByteIsRefused) {
    TypeParam fixture;
    for (size_t position = 0; position < 17; ++position) {
        SCOPED_TRACE(position);
        ImageFields fields;
        fields.header[position] = static_cast<char>(fields.header[position] ^ 1);
        const std::string bytes = fields.getBytes();
        MemoryInputStream input(bytes);
        expectWrongHeader([&] { fixture.m_table.load(input); });
        EXPECT_EQ(bytes.size() - input.getRemainingBytes(), HEADER_SIZE);
    }
}

TYPED_TEST(ParallelHashTableImageTest, MoreBucketsThanTheBudgetHoldsAreRefused) {
    const size_t bytes = 2048 * TypeParam::BUCKET_SIZE;
    TypeParam fixture(bytes - 1);
    ImageFields fields;
    fields.numberOfBuckets = fields.maximumNumberOfItems = fields.end = 2048;
    fields.buckets = std::string(bytes, '\0');
    test::expectOutOfMemory(bytes - 1, bytes - 1, bytes, [&] { load(fixture, fields.getBytes()); });
    EXPECT_EQ(fixture.m_memoryManager.getChargedBytes(), 0u);
}

TYPED_TEST(ParallelHashTableImageTest, ReservationsOfEverySlotAreLoaded) {
    TypeParam fixture;
    ImageFields fields;
    for (uint32_t slot = 0; slot < 256; ++slot) {
        fields.freeReservations[slot] = slot;
        fields.usedCount += slot;
    }
    fields.buckets = std::string(1024 * TypeParam::BUCKET_SIZE, '\0');
    load(fixture, fields.getBytes());
    EXPECT_EQ(fixture.m_table.getNumberOfUsedBuckets(), 0u);
    EXPECT_EQ(save(fixture), fields.getBytes());
}

}
