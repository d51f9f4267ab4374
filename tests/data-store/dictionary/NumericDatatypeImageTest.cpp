#include "core/data-store/dictionary/NumericDatatype.h"

#include "core/platform/stream/MemoryInputStream.h"
#include "support/ExpectError.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"
#include "support/ShortReadInputStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace kavix::test {

namespace {

constexpr size_t TABLE_HEADER_SIZE = 8 + 17;
constexpr size_t TABLE_FIELDS_SIZE = TABLE_HEADER_SIZE + 4 * 8 + 256 * 4 + 2 * 8; // up to the first bucket
constexpr size_t DICTIONARY_FIELDS_SIZE = 8 + 15 + 2 * 8;

size_t getTableOffset(size_t tableIndex) {
    return DICTIONARY_FIELDS_SIZE + tableIndex * TABLE_FIELDS_SIZE +
           (tableIndex == 0 ? 0 : 1024 * 8 + (tableIndex - 1) * 1024 * 16);
}

template<typename ResourceID>
class NumericDatatypeImageTest : public ::testing::Test {
protected:
    using Store = NumericStore<ResourceID>;

    void expectLoadFails(
        const std::string& bytes, const std::string& sourceFile, long line, const std::string& message,
        size_t expectedPosition) {
        const std::unique_ptr<DictionaryDatatype> dictionary = m_store.makeDictionary();
        MemoryInputStream input(bytes);
        expectError(sourceFile, line, message, [&] { dictionary->load(input); });
        EXPECT_EQ(bytes.size() - input.getRemainingBytes(), expectedPosition);
    }

    Store m_store;
};

TYPED_TEST_SUITE(NumericDatatypeImageTest, ResourceIDTypes);

// An image with two integers, a deleted one and a decimal, field by field as a store with these contents has it.
template<typename ResourceID>
NumericImage makeKnownImage() {
    NumericImage image;
    image.m_maxResourceID = 5000;
    image.m_maxResourceIDForBlocks = 5000 - 1024;
    ImageTable& integers = image[D_XSD_INT];
    integers.m_usedCount = 100;
    integers.m_deletedCount = 1;
    integers.m_freeReservations[7] = 40;
    integers.m_freeReservations[255] = 57;
    integers.m_buckets[(3 * 0x9e3779b1ULL) & 1023] = {11, 3};
    integers.m_buckets[(static_cast<uint64_t>(-3) * 0x9e3779b1ULL) & 1023] = {12, -3};
    integers.m_buckets[(9 * 0x9e3779b1ULL) & 1023] = {static_cast<ResourceID>(-2), 9};
    ImageTable& decimals = image[D_XSD_DECIMAL];
    decimals.m_usedCount = 100;
    decimals.m_freeReservations[0] = 99;
    const uint64_t hash = (((25ULL ^ 0xcbf29ce484222325ULL) * 0x100000001b3ULL) ^ 1) * 0x100000001b3ULL;
    decimals.m_buckets[hash & 1023].m_word = DataPool::FIRST_OFFSET;
    return image;
}

TYPED_TEST(NumericDatatypeImageTest, AHandWrittenImageAnswersAndAcceptsValues) {
    // The record and the array entries are the store's, restored beside the image.
    uint64_t end;
    const uint64_t offset = this->m_store.m_dataPool.allocate(TestFixture::Store::RECORD_SIZE, end);
    const std::string record = this->m_store.makeRecordBytes(13, 25, 1);
    std::memcpy(this->m_store.m_dataPool.getBase() + offset, record.data(), record.size());
    this->m_store.m_nextResourceID = 14;
    DictionaryDatatype& dictionary = *this->m_store.m_dictionary;

    loadFromBytes(dictionary, makeKnownImage<TypeParam>().toBytes());

    EXPECT_EQ(this->m_store.tryResolve("3", D_XSD_INT), 11u);
    EXPECT_EQ(this->m_store.tryResolve("-3", D_XSD_INT), 12u);
    EXPECT_EQ(this->m_store.tryResolve("9", D_XSD_INT), 0u);
    EXPECT_EQ(this->m_store.tryResolve("2.5", D_XSD_DECIMAL), 13u);
    EXPECT_EQ(this->m_store.tryResolve("3", D_XSD_LONG), 0u);
    EXPECT_EQ(saveToBytes(dictionary), makeKnownImage<TypeParam>().toBytes()); // byte for byte
    EXPECT_EQ(this->m_store.resolve("9", D_XSD_INT), 14u); // not the deleted one
    EXPECT_EQ(this->m_store.resolve("2.6", D_XSD_DECIMAL), 15u);
    this->m_store.m_nextResourceID = 5000;
    expectError(
        "Engine/core/data-store/dictionary/DictionaryDatatype", 133,
        "The capacity of Kavix for the number of resources has been exceeded.",
        [&] { this->m_store.resolve("10", D_XSD_INT); });
    this->m_store.m_nextResourceID = 5000 - 1024;
    DictionaryUsageContext context;
    expectError(
        "Engine/core/data-store/dictionary/DictionaryDatatype", 144,
        "The capacity of Kavix for the number of resources has been exceeded.",
        [&] { this->m_store.resolve("10", D_XSD_INT, &context); });
    checkTables<TypeParam>(saveToImage(dictionary));
}

TYPED_TEST(NumericDatatypeImageTest, AFreshDictionaryIsSavedAsFourteenEmptyTables) {
    this->m_store.initialize(4321);
    NumericImage expected;
    expected.m_maxResourceID = 4321;
    expected.m_maxResourceIDForBlocks = 4321 - 1024;
    const std::string bytes = saveToBytes(*this->m_store.m_dictionary);
    EXPECT_EQ(bytes, expected.toBytes());
    EXPECT_EQ(bytes.size(), getTableOffset(14));
}

TYPED_TEST(NumericDatatypeImageTest, KnownContentsAreSavedByteForByte) {
    this->m_store.initialize(9000);
    this->m_store.resolve("3", D_XSD_INT); // ID 1
    this->m_store.resolve("-3", D_XSD_INT); // ID 2
    this->m_store.resolve("9", D_XSD_INT); // ID 3
    this->m_store.resolve("2.5", D_XSD_DECIMAL); // ID 4, at the first offset
    this->m_store.resolve("255", D_XSD_UNSIGNED_BYTE); // ID 5
    this->m_store.m_dictionary->deleteUncommittedResourceID(Visibility(0, 0), 3, D_XSD_INT);

    NumericImage expected;
    expected.m_maxResourceID = 9000;
    expected.m_maxResourceIDForBlocks = 9000 - 1024;
    const auto enter = [&expected](uint8_t datatypeID, uint64_t word, int64_t value, uint64_t hash) {
        ImageTable& table = expected[datatypeID];
        table.m_buckets[hash & 1023] = {word, value};
        table.m_usedCount = 100;
        uint32_t& freeReservation = table.m_freeReservations[s_currentThreadContextIndex];
        freeReservation = (freeReservation == 0 ? 100 : freeReservation) - 1;
    };
    enter(D_XSD_INT, 1, 3, 3 * 0x9e3779b1ULL);
    enter(D_XSD_INT, 2, -3, static_cast<uint64_t>(-3) * 0x9e3779b1ULL);
    enter(D_XSD_INT, static_cast<TypeParam>(-2), 9, 9 * 0x9e3779b1ULL);
    expected[D_XSD_INT].m_deletedCount = 1;
    enter(
        D_XSD_DECIMAL, DataPool::FIRST_OFFSET, 0,
        (((25ULL ^ 0xcbf29ce484222325ULL) * 0x100000001b3ULL) ^ 1) * 0x100000001b3ULL);
    enter(D_XSD_UNSIGNED_BYTE, 5, 255, 255 * 0x9e3779b1ULL);
    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), expected.toBytes());
}

TYPED_TEST(NumericDatatypeImageTest, ALoadedDictionaryContinuesLikeTheSavedOne) {
    this->m_store.initialize();
    DictionaryUsageContext context;
    for (int i = 0; i < 2500; ++i) {
        this->m_store.resolve(std::to_string(i), D_XSD_INT, &context);
        this->m_store.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL, &context);
    }
    this->m_store.m_dictionary->deleteUncommittedResourceID(Visibility(0, 0), 1, D_XSD_INT);
    const std::string bytes = saveToBytes(*this->m_store.m_dictionary);
    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), bytes); // saving changes nothing
    const std::unique_ptr<DictionaryDatatype> original = std::move(this->m_store.m_dictionary);
    this->m_store.m_dictionary = this->m_store.makeDictionary();
    loadFromBytes(*this->m_store.m_dictionary, bytes);
    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), bytes);
    for (int i = 0; i < 2600; ++i) {
        const ResourceValue values[] = {makeInteger(D_XSD_INT, i), makeDecimal(std::to_string(i) + ".5")};
        for (const ResourceValue& value : values)
            ASSERT_EQ(this->m_store.tryResolve(value), std::as_const(*original).tryResolveResource(ALL_VISIBLE, value));
    }
    // The same next insertions: bucket for bucket, resizes included.
    const DictionaryUsageContext savedContext = context;
    const uint64_t savedNextResourceID = this->m_store.m_nextResourceID.load();
    const auto insertMore = [&](DictionaryDatatype& dictionary) {
        context = savedContext;
        this->m_store.m_nextResourceID = savedNextResourceID;
        for (int i = 0; i < 2000; ++i)
            dictionary.resolveResource(&context, makeInteger(D_XSD_INT, 10000 + i));
        return saveToBytes(dictionary);
    };
    EXPECT_EQ(insertMore(*this->m_store.m_dictionary), insertMore(*original));
}

TYPED_TEST(NumericDatatypeImageTest, LoadingReplacesWhatWasThereAndReturnsItsMemory) {
    this->m_store.initialize();
    const std::string empty = saveToBytes(*this->m_store.m_dictionary);
    const uint64_t emptyBytes = this->m_store.m_memoryManager.getChargedBytes();
    for (int i = 0; i < 3000; ++i)
        this->m_store.resolve(std::to_string(i), D_XSD_INT);
    const uint64_t sharedBytes =
        this->m_store.m_resourceData.getCommittedBytes() + this->m_store.m_resourceDatatypeIDs.getCommittedBytes();
    loadFromBytes(*this->m_store.m_dictionary, empty);
    EXPECT_EQ(this->m_store.m_memoryManager.getChargedBytes(), emptyBytes + sharedBytes);
    EXPECT_EQ(this->m_store.tryResolve("1", D_XSD_INT), 0u);
    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), empty);
}

TYPED_TEST(NumericDatatypeImageTest, AStreamMayDeliverByteByByte) {
    const std::string bytes = makeKnownImage<TypeParam>().toBytes();
    ShortReadInputStream input(bytes, 1);
    this->m_store.m_dictionary->load(input);
    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), bytes);
}

TYPED_TEST(NumericDatatypeImageTest, WrongHeadersAreRefusedWhereTheyAre) {
    const std::string source = "Engine/core/data-store/dictionary/NumericDatatype";
    const std::string message = "Invalid input file: cannot load NumericDatatype.";
    const std::string good = makeKnownImage<TypeParam>().toBytes();
    for (size_t byte = 0; byte < 8; ++byte) {
        std::string bytes = good;
        bytes[byte] = static_cast<char>(bytes[byte] ^ 16);
        this->expectLoadFails(bytes, source, 521, message, 8); // only the length was consumed
    }
    for (size_t byte = 8; byte < 23; ++byte) {
        std::string bytes = good;
        bytes[byte] = static_cast<char>(bytes[byte] ^ 1);
        this->expectLoadFails(bytes, source, 521, message, 23);
    }
    const std::string tableSource = "Engine/core/platform/collections/ParallelHashTableImpl";
    const std::string tableMessage = "Invalid input file: cannot load ParallelHashTable.";
    for (size_t tableIndex = 0; tableIndex < 14; ++tableIndex) {
        SCOPED_TRACE("table " + std::to_string(tableIndex));
        std::string bytes = good;
        bytes[getTableOffset(tableIndex)] = 18;
        this->expectLoadFails(bytes, tableSource, 472, tableMessage, getTableOffset(tableIndex) + 8);
        bytes = good;
        bytes[getTableOffset(tableIndex) + TABLE_HEADER_SIZE - 1] = 'E';
        this->expectLoadFails(bytes, tableSource, 472, tableMessage, getTableOffset(tableIndex) + TABLE_HEADER_SIZE);
    }
}

TYPED_TEST(NumericDatatypeImageTest, TheTablesBeforeAWrongHeaderAreReplaced) {
    NumericImage image = makeKnownImage<TypeParam>();
    image[D_XSD_INTEGER].m_buckets[(3 * 0x9e3779b1ULL) & 1023] = {77, 3};
    image.m_tables[4].m_header.back() = 'x'; // the fifth
    this->m_store.initialize();
    this->m_store.resolve("100", D_XSD_INTEGER);
    this->m_store.resolve("100", D_XSD_POSITIVE_INTEGER);
    const std::string bytes = image.toBytes();
    MemoryInputStream input(bytes);
    expectError(
        "Engine/core/platform/collections/ParallelHashTableImpl", 472,
        "Invalid input file: cannot load ParallelHashTable.", [&] { this->m_store.m_dictionary->load(input); });
    EXPECT_EQ(this->m_store.tryResolve("3", D_XSD_INTEGER), 77u);
    EXPECT_EQ(this->m_store.tryResolve("100", D_XSD_INTEGER), 0u);
    EXPECT_NE(this->m_store.tryResolve("100", D_XSD_POSITIVE_INTEGER), 0u); // the sixth table is unchanged
}

TYPED_TEST(NumericDatatypeImageTest, AnImageCutAnywhereEndsPrematurely) {
    const std::string bytes = makeKnownImage<TypeParam>().toBytes();
    const std::unique_ptr<DictionaryDatatype> dictionary = this->m_store.makeDictionary();
    const auto expectPremature = [&](size_t length) {
        SCOPED_TRACE("cut at " + std::to_string(length));
        MemoryInputStream input(bytes.data(), length);
        expectError(
            "Engine/core/platform/stream/InputStream", 23, "Premature end of file.", [&] { dictionary->load(input); });
    };
    // Every byte of the head and of the first two tables' fields; of the buckets and the rest, a stride without a
    // pattern.
    for (size_t length = 0; length < getTableOffset(0) + TABLE_FIELDS_SIZE + 40; ++length)
        expectPremature(length);
    for (size_t length = getTableOffset(1) - 20; length < getTableOffset(1) + TABLE_FIELDS_SIZE + 40; ++length)
        expectPremature(length);
    for (size_t length = getTableOffset(1); length < bytes.size(); length += 997)
        expectPremature(length);
    for (size_t length = bytes.size() - 40; length < bytes.size(); ++length)
        expectPremature(length);
    loadFromBytes(*dictionary, bytes); // and then it still can
    EXPECT_EQ(saveToBytes(*dictionary), bytes);
}

TYPED_TEST(NumericDatatypeImageTest, ATableWithoutARegionIsReadAsItsMaximumAlone) {
    NumericImage image = makeKnownImage<TypeParam>();
    ImageTable& table = image[D_XSD_LONG];
    table.m_numberOfBuckets = table.m_resizeThreshold = table.m_maximum = 0;
    table.m_buckets.clear();
    this->m_store.initialize();
    const uint64_t chargedBytes = this->m_store.m_memoryManager.getChargedBytes();
    loadFromBytes(*this->m_store.m_dictionary, image.toBytes());
    EXPECT_EQ(this->m_store.m_memoryManager.getChargedBytes(), chargedBytes - 16384);
    EXPECT_EQ(this->m_store.tryResolve("3", D_XSD_INT), 11u);
    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), image.toBytes());
}

TYPED_TEST(NumericDatatypeImageTest, ARegionMayReserveMoreThanItHolds) {
    NumericImage image = makeKnownImage<TypeParam>();
    image[D_XSD_INT].m_maximum = 1 << 20;
    loadFromBytes(*this->m_store.m_dictionary, image.toBytes());
    EXPECT_EQ(this->m_store.tryResolve("3", D_XSD_INT), 11u);
    EXPECT_EQ(saveToBytes(*this->m_store.m_dictionary), image.toBytes());
}

TYPED_TEST(NumericDatatypeImageTest, ImpossibleSizesAreRefusedByMemoryAndAddressSpace) {
    NumericImage image = makeKnownImage<TypeParam>();
    std::string bytes = image.toBytes();
    const size_t maximumOffset = getTableOffset(0) + TABLE_FIELDS_SIZE - 16;
    const uint64_t wrapping = (uint64_t(1) << 61) + 1; // times 8 it is 8
    std::memcpy(bytes.data() + maximumOffset, &wrapping, 8);
    MemoryInputStream input(bytes);
    expectSystemCallError(
        "Engine/core/platform/system/MemoryRegion", 212, "mmap", ENOMEM,
        "An error occurred while reserving 18446744073709551615 bytes of address space.",
        [&] { this->m_store.m_dictionary->load(input); });
    bytes = image.toBytes();
    const uint64_t end = 1025;
    std::memcpy(bytes.data() + maximumOffset + 8, &end, 8);
    MemoryInputStream secondInput(bytes);
    expectError(
        "Engine/core/platform/system/MemoryRegion", 242,
        "Failed to ensure that a memory region could hold 1025 items because it was initialized to hold at most 1024 "
        "items.",
        [&] { this->m_store.m_dictionary->load(secondInput); });
    this->m_store.initialize(); // what a failed load leaves can be initialised
    EXPECT_EQ(this->m_store.resolve("1", D_XSD_INT), 1u);
}

TEST(NumericDatatypeImage, TheWidthsReadEachOthersImages) {
    // Without deleted marks and decimals, which do not fit the other width.
    NumericStore<unsigned int> narrow;
    NumericStore<unsigned long> wide;
    narrow.initialize();
    wide.initialize();
    for (int i = 0; i < 2000; ++i) {
        narrow.resolve(std::to_string(i), D_XSD_INT);
        wide.resolve(std::to_string(-i), D_XSD_LONG);
    }
    const std::string narrowBytes = saveToBytes(*narrow.m_dictionary);
    const std::string wideBytes = saveToBytes(*wide.m_dictionary);
    loadFromBytes(*wide.m_dictionary, narrowBytes);
    loadFromBytes(*narrow.m_dictionary, wideBytes);
    for (int i = 0; i < 2000; ++i) {
        EXPECT_EQ(wide.tryResolve(std::to_string(i), D_XSD_INT), static_cast<uint64_t>(i) + 1);
        EXPECT_EQ(narrow.tryResolve(std::to_string(-i), D_XSD_LONG), static_cast<uint64_t>(i) + 1);
    }
    EXPECT_EQ(saveToBytes(*wide.m_dictionary), narrowBytes);
    EXPECT_EQ(saveToBytes(*narrow.m_dictionary), wideBytes);
}

}

}
