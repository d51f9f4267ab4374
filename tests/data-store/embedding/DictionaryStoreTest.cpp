// A store holds what the dictionary held, byte for byte the same each time, and a store that is not one is refused.

#include "core/data-store/embedding/Dictionary.h"

#include "core/data-store/embedding/Transaction.h"
#include "core/platform/stream/FileInputStream.h"
#include "core/platform/stream/FileOutputStream.h"
#include "core/platform/system/VMPageSize.h"
#include "support/ExpectError.h"
#include "support/SampleStore.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;
using test::getRefusal;
using test::makeRefusal;
using test::openStore;
using test::SampleStore;
using test::saveStore;
using test::StoreImage;

namespace {

Dictionary::Options makeOptions(ResourceIDWidth width) {
    Dictionary::Options options;
    options.resourceIDWidth = width;
    options.maxResourceID = 1 << 20;
    return options;
}

void enter(Dictionary& dictionary, int first, int last, const char* suffix, uint8_t datatypeID) {
    Transaction transaction(dictionary);
    for (int i = first; i < last; ++i)
        transaction.resolve(std::to_string(i) + suffix, datatypeID);
    transaction.commit();
}

struct Content {
    const char* name;
    std::function<void(Dictionary&)> fill;
};

const Content CONTENTS[] = {
    {"empty", [](Dictionary&) {}},
    {"one integer by itself", [](Dictionary& dictionary) { dictionary.resolve("-9223372036854775808", D_XSD_LONG); }},
    {"one decimal by itself",
     [](Dictionary& dictionary) { dictionary.resolve("-0.9223372036854775808", D_XSD_DECIMAL); }},
    {"only integers", [](Dictionary& dictionary) { enter(dictionary, -1500, 1500, "", D_XSD_INTEGER); }},
    {"only decimals", [](Dictionary& dictionary) { enter(dictionary, 0, 3000, ".5", D_XSD_DECIMAL); }},
    {"every datatype",
     [](Dictionary& dictionary) {
         Transaction transaction(dictionary);
         for (uint8_t datatypeID = D_XSD_DECIMAL; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
             for (int magnitude = 1; magnitude < 20; ++magnitude)
                 transaction.resolve(
                     (datatypeID == D_XSD_NON_POSITIVE_INTEGER || datatypeID == D_XSD_NEGATIVE_INTEGER ? "-" : "") +
                         std::to_string(magnitude),
                     datatypeID);
         transaction.commit();
     }},
    {"deleted values and lost IDs",
     [](Dictionary& dictionary) {
         enter(dictionary, 0, 100, ".25", D_XSD_DECIMAL);
         {
             Transaction transaction(dictionary);
             for (int i = 0; i < 900; ++i) {
                 transaction.resolve(std::to_string(i), D_XSD_INT);
                 transaction.resolve(std::to_string(i) + ".25", D_XSD_DECIMAL);
             }
         } // rolled back
         enter(dictionary, 50, 60, "", D_XSD_INT);
     }},
};

}

TEST(DictionaryStore, OpeningRestoresWhatWasSaved) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const Content& row : CONTENTS) {
            SCOPED_TRACE(row.name + std::string(width == ResourceIDWidth::BITS_32 ? ", 32" : ", 64"));
            Dictionary saved(makeOptions(width));
            row.fill(saved);
            const std::string bytes = saveStore(saved);
            EXPECT_EQ(saveStore(saved), bytes) << "saved twice";
            for (const bool checkEveryValue : {true, false}) {
                const std::unique_ptr<Dictionary> opened = openStore(bytes, checkEveryValue);
                test::expectEqual(saved, *opened);
                // An empty dictionary has no array yet; a store always has the entry of ID 0, in a page of each array.
                EXPECT_EQ(
                    opened->getUsedBytes(),
                    saved.getUsedBytes() + (saved.takeSnapshot().resourceIDEnd == 1 ? 2 * getVMPageSize() : 0));
                EXPECT_EQ(saveStore(*opened), bytes) << "opened and saved";
            }
        }
}

TEST(DictionaryStore, AnOpenedStoreContinuesWithTheNextID) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary saved(makeOptions(width));
        saved.resolve("1", D_XSD_INT);
        {
            Transaction transaction(saved);
            EXPECT_EQ(transaction.resolve("1.5", D_XSD_DECIMAL), 2u);
            transaction.commit();
        }
        const std::unique_ptr<Dictionary> opened = openStore(saveStore(saved));
        for (Dictionary* dictionary : {&saved, opened.get()}) {
            EXPECT_EQ(dictionary->resolve("1", D_XSD_INT), 1u);
            EXPECT_EQ(dictionary->resolve("2", D_XSD_INT), 1026u) << "after the block of the transaction";
            EXPECT_EQ(dictionary->resolve("2.5", D_XSD_DECIMAL), 1027u);
            Transaction transaction(*dictionary);
            for (int i = 0; i < 3000; ++i)
                EXPECT_EQ(
                    transaction.resolve(std::to_string(i) + ".75", D_XSD_DECIMAL), 1028u + static_cast<uint64_t>(i));
            transaction.commit();
        }
        test::expectEqual(saved, *opened);
    }
}

TEST(DictionaryStore, TheBoundOfIDsHoldsInAnOpenedStore) {
    Dictionary::Options options;
    options.maxResourceID = Dictionary::MIN_MAX_RESOURCE_ID;
    Dictionary saved(options);
    const std::unique_ptr<Dictionary> opened = openStore(saveStore(saved));
    for (int i = 1; i < 2048; ++i)
        ASSERT_EQ(opened->resolve(std::to_string(i), D_XSD_INT), static_cast<uint64_t>(i));
    EXPECT_THROW(opened->resolve("5000", D_XSD_INT), KavixException);
    test::expectEqual(*opened, *openStore(saveStore(*opened)));
}

TEST(DictionaryStore, TheBudgetThatHeldADictionaryHoldsItAgain) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary saved(makeOptions(width));
        Transaction transaction(saved);
        for (int i = 0; i < 5000; ++i)
            transaction.resolve(std::to_string(i), D_XSD_INT);
        transaction.commit();
        const std::string bytes = saveStore(saved);
        const std::unique_ptr<Dictionary> opened = openStore(bytes, true, saved.getUsedBytes());
        EXPECT_EQ(opened->getUsedBytes(), saved.getUsedBytes());
        for (uint64_t budget = 0; budget < saved.getUsedBytes(); budget += 4096 * 5) {
            SCOPED_TRACE(budget);
            EXPECT_THROW(openStore(bytes, true, budget), KavixException);
        }
        EXPECT_THROW(openStore(bytes, true, saved.getUsedBytes() - 1), KavixException);
    }
}

TEST(DictionaryStore, AStoreOutlivesItsFile) {
    const test::TemporaryFolder folder;
    const std::string fileName = folder / "store";
    Dictionary saved(makeOptions(ResourceIDWidth::BITS_64));
    {
        Transaction transaction(saved);
        for (int i = 0; i < 9000; ++i)
            transaction.resolve(std::to_string(i) + ".125", D_XSD_DECIMAL);
        transaction.commit();
        FileOutputStream output(fileName);
        saved.saveStore(output);
        output.close();
    }
    for (const bool checkEveryValue : {true, false}) {
        FileInputStream input(fileName);
        Dictionary::OpenOptions options;
        options.checkEveryValue = checkEveryValue;
        test::expectEqual(saved, *Dictionary::openStore(input, options));
    }
}

TEST(DictionaryStore, AStoreWrittenByHandOpens) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const std::string bytes = SampleStore(width).toBytes();
        const std::unique_ptr<Dictionary> dictionary = openStore(bytes);
        EXPECT_EQ(dictionary->getResourceIDWidth(), width);
        EXPECT_EQ(
            dictionary->takeSnapshot(),
            (Dictionary::Snapshot{7, uint64_t(64 + 2 * (width == ResourceIDWidth::BITS_32 ? 13 : 17))}));
        EXPECT_EQ(
            test::listResources(*dictionary, 4096),
            (std::vector<std::string>{"1 0.5", "2 -2", "4 \"7\"^^xsd:int", "5 -12.25"}));
        EXPECT_EQ(dictionary->tryResolve("8", D_XSD_INT), 0u) << "rolled back";
        EXPECT_EQ(saveStore(*dictionary), bytes);
        EXPECT_EQ(dictionary->resolve("8", D_XSD_INT), 7u);
    }
}

TEST(DictionaryStore, WhatIsSavedIsTheStoreWrittenByHand) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary::Options options;
        options.resourceIDWidth = width;
        options.maxResourceID = SampleStore::MAX_RESOURCE_ID;
        Dictionary dictionary(options);
        dictionary.resolve("0.5", D_XSD_DECIMAL);
        dictionary.resolve("-2", D_XSD_INTEGER);
        StoreImage image = StoreImage::fromBytes(saveStore(dictionary));
        EXPECT_EQ(image.m_magic, std::string("\x8bKAVI\r\n\x1a", 8));
        EXPECT_EQ(image.m_formatVersion, 1u);
        EXPECT_EQ(image.m_byteOrderMark, 0x01020304u);
        EXPECT_EQ(image.m_libraryVersion, 0x000100u);
        EXPECT_EQ(image.m_resourceIDWidth, width == ResourceIDWidth::BITS_32 ? 32u : 64u);
        EXPECT_EQ(image.m_pageSize, static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)));
        ASSERT_EQ(image.m_sections.size(), 5u);

        SampleStore expected(width);
        test::ByteWriter counters, datatypes, data;
        counters.put(uint64_t(3)).put(uint64_t(4096)).put(uint64_t(64 + expected.m_recordSize)).put(uint64_t(2));
        datatypes.put(D_NONE).put(D_XSD_DECIMAL).put(D_XSD_INTEGER);
        data.put(uint64_t(0)).put(uint64_t(64)).put(int64_t(-2));
        EXPECT_EQ(image["counters"].m_bytes, counters.getBytes());
        EXPECT_EQ(image["datatypes"].m_bytes, datatypes.getBytes());
        EXPECT_EQ(image["data"].m_bytes, data.getBytes());
        EXPECT_EQ(image["pool"].m_bytes, expected.m_pool.substr(0, expected.m_recordSize));
        const test::NumericImage tables = test::NumericImage::fromBytes(image["dictionary-22"].m_bytes);
        EXPECT_EQ(tables[D_XSD_INTEGER].m_buckets, expected.m_image[D_XSD_INTEGER].m_buckets);
        EXPECT_EQ(tables[D_XSD_INTEGER].m_usedCount, 100u);
    }
}

namespace {

struct WrongHeader {
    const char* name;
    std::function<void(StoreImage&)> damage;
    std::string section;
    std::string reason;
};

const WrongHeader WRONG_HEADERS[] = {
    {"magic", [](StoreImage& image) { image.m_magic[0] = 'K'; }, "header", "not a Kavix store"},
    {"magic spoilt by a copy as text", [](StoreImage& image) { image.m_magic = std::string("\x8bKAVI\n\x1a\x01", 8); },
     "header", "not a Kavix store"},
    {"other byte order",
     [](StoreImage& image) {
         image.m_byteOrderMark = 0x04030201;
         image.m_formatVersion = 0x01000000;
     },
     "header", "written on a machine with a different byte order"},
    {"newer version", [](StoreImage& image) { image.m_formatVersion = 2; }, "header",
     "format version 2 is not supported (this program reads version 1); use the program that wrote the store, or a "
     "newer one"},
    {"version 0", [](StoreImage& image) { image.m_formatVersion = 0; }, "header",
     "format version 0 is not supported (this program reads version 1); use the program that wrote the store, or a "
     "newer one"},
    {"width 0", [](StoreImage& image) { image.m_resourceIDWidth = 0; }, "header",
     "unsupported resource ID width of 0 bits"},
    {"width 33", [](StoreImage& image) { image.m_resourceIDWidth = 33; }, "header",
     "unsupported resource ID width of 33 bits"},
    {"width 2^31", [](StoreImage& image) { image.m_resourceIDWidth = 1u << 31; }, "header",
     "unsupported resource ID width of 2147483648 bits"},
    {"too many sections", [](StoreImage& image) { image.m_numberOfSections = 65; }, "header",
     "invalid number of sections, 65"},
    {"2^64 - 1 sections", [](StoreImage& image) { image.m_numberOfSections = UINT64_MAX; }, "header",
     "invalid number of sections, 18446744073709551615"},
    {"header checksum", [](StoreImage& image) { image.m_headerChecksum = 1; }, "header",
     "wrong checksum: the file is damaged"},
    {"no section", [](StoreImage& image) { image.m_sections.clear(); }, "counters", "the section is missing"},
    {"a section is missing", [](StoreImage& image) { image.m_sections.pop_back(); }, "header",
     "it has 4 sections instead of 5"},
    {"a section too many",
     [](StoreImage& image) {
         image.m_sections.push_back({"more", "x"});
     },
     "header", "it has 6 sections instead of 5"},
    {"a section is renamed", [](StoreImage& image) { image["pool"].m_name = "puddle"; }, "pool",
     "the section is missing"},
    {"a name in capitals", [](StoreImage& image) { image["counters"].m_name = "Counters"; }, "counters",
     "the section is missing"},
    {"a longer name", [](StoreImage& image) { image["data"].m_name = "data-and-more-16"; }, "data",
     "the section is missing"},
    {"dictionary of another family", [](StoreImage& image) { image["dictionary-22"].m_name = "dictionary-20"; },
     "dictionary-22", "the section is missing"},
    {"offset one too high", [](StoreImage& image) { image["data"].m_offset = 40 + 5 * 40 + 8 + 32 + 7 + 1; }, "data",
     "wrong offset in the section table"},
    {"offset 0", [](StoreImage& image) { image["counters"].m_offset = 0; }, "counters",
     "wrong offset in the section table"},
    {"length beyond 64 bits", [](StoreImage& image) { image["dictionary-22"].m_length = UINT64_MAX; }, "dictionary-22",
     "wrong offset in the section table"},
    {"counters too short", [](StoreImage& image) { image["counters"].m_bytes.pop_back(); }, "counters",
     "it has 31 bytes instead of 32"},
    {"counters too long", [](StoreImage& image) { image["counters"].m_bytes += 'x'; }, "counters",
     "it has 33 bytes instead of 32"},
    {"datatypes too short", [](StoreImage& image) { image["datatypes"].m_bytes.pop_back(); }, "datatypes",
     "it has 6 bytes instead of 7"},
    {"data too long", [](StoreImage& image) { image["data"].m_bytes += 'x'; }, "data", "it has 57 bytes instead of 56"},
    {"pool too short", [](StoreImage& image) { image["pool"].m_bytes.pop_back(); }, "pool",
     "it has 25 bytes instead of 26"},
    {"the image is too long", [](StoreImage& image) { image["dictionary-22"].m_bytes += 'x'; }, "dictionary-22",
     "the image is longer than its tables"},
    {"the image ends in a table", [](StoreImage& image) { image["dictionary-22"].m_bytes.pop_back(); }, "dictionary-22",
     "table of xsd:unsignedByte: its buckets take more bytes than the image has"},
    {"the image ends in a header", [](StoreImage& image) { image["dictionary-22"].m_bytes.resize(50); },
     "dictionary-22", "the image is shorter than its tables"},
    {"the image is empty", [](StoreImage& image) { image["dictionary-22"].m_bytes.clear(); }, "dictionary-22",
     "the image is shorter than its tables"},
    {"checksum of counters", [](StoreImage& image) { image["counters"].m_checksum = 0; }, "counters",
     "wrong checksum: the file is damaged"},
    {"checksum of datatypes", [](StoreImage& image) { image["datatypes"].m_checksum = 0; }, "datatypes",
     "wrong checksum: the file is damaged"},
    {"checksum of data", [](StoreImage& image) { image["data"].m_checksum = 0; }, "data",
     "wrong checksum: the file is damaged"},
    {"checksum of the pool", [](StoreImage& image) { image["pool"].m_checksum = 0; }, "pool",
     "wrong checksum: the file is damaged"},
    {"checksum of the image", [](StoreImage& image) { image["dictionary-22"].m_checksum = 0; }, "dictionary-22",
     "wrong checksum: the file is damaged"},
    {"a byte after the end", [](StoreImage& image) { image.m_tail = std::string(1, '\0'); }, "header",
     "there is data after the last section"},
};

}

TEST(DictionaryStore, AWrongHeaderIsRefusedWithItsReason) {
    for (const WrongHeader& row : WRONG_HEADERS) {
        SCOPED_TRACE(row.name);
        StoreImage image = SampleStore(ResourceIDWidth::BITS_32).toImage();
        row.damage(image);
        for (const bool checkEveryValue : {true, false})
            EXPECT_EQ(getRefusal(image.toBytes(), checkEveryValue), makeRefusal(row.section, row.reason));
    }
}

TEST(DictionaryStore, FilesThatAreNotStoresAreRefused) {
    struct Row {
        const char* name;
        std::string bytes;
        std::string reason;
    };
    const std::string tooShort = "the file ends inside the header: it is truncated or not a Kavix store";
    const Row rows[] = {
        {"empty", "", tooShort},
        {"short text", "5\n", tooShort},
        {"text", std::string(1000, '5'), "not a Kavix store"},
        {"zeroes", std::string(1000, '\0'), "not a Kavix store"},
        {"an image without a frame", SampleStore(ResourceIDWidth::BITS_32).m_image.toBytes(), "not a Kavix store"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(getRefusal(row.bytes), makeRefusal("header", row.reason));
    }
}

TEST(DictionaryStore, AnotherWidthIsRefusedOnRequest) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const ResourceIDWidth otherWidth =
            width == ResourceIDWidth::BITS_32 ? ResourceIDWidth::BITS_64 : ResourceIDWidth::BITS_32;
        const std::string bytes = SampleStore(width).toBytes();
        Dictionary::OpenOptions options;
        options.resourceIDWidth = width;
        MemoryInputStream input(bytes);
        EXPECT_NO_THROW(Dictionary::openStore(input, options));
        input.rewind();
        options.resourceIDWidth = otherWidth;
        test::expectError(
            "Engine/core/data-store/dictionary/StoreReader", 30,
            makeRefusal(
                "header", width == ResourceIDWidth::BITS_32 ? "its resource IDs have 32 bits, not 64"
                                                            : "its resource IDs have 64 bits, not 32"),
            [&] { Dictionary::openStore(input, options); });
    }
}

TEST(DictionaryStore, OtherVersionsOfTheLibraryAndOtherPageSizesAreRead) {
    StoreImage image = SampleStore(ResourceIDWidth::BITS_64).toImage();
    image.m_libraryVersion = 0xffffff;
    image.m_pageSize = 65536;
    EXPECT_NO_THROW(openStore(image.toBytes()));
}

TEST(DictionaryStore, SectionsMayBeInAnyOrder) {
    StoreImage image = SampleStore(ResourceIDWidth::BITS_32).toImage();
    std::reverse(image.m_sections.begin(), image.m_sections.end());
    test::expectEqual(*openStore(image.toBytes()), *openStore(SampleStore(ResourceIDWidth::BITS_32).toBytes()));
}

}
