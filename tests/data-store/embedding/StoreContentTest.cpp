// Stores whose checksums are right and whose content is not: what the structure check refuses in any case, and what
// verify() finds, each kind of damage with exactly its problems.

#include "core/data-store/embedding/Dictionary.h"

#include "core/data-store/inspection/DictionaryDatatypeInspector.h"
#include "support/ExpectError.h"
#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;
using test::getRefusal;
using test::ImageTable;
using test::makeRefusal;
using test::openStore;
using test::SampleStore;

namespace {

using Damage = std::function<void(SampleStore&)>;

struct StructureRow {
    const char* name;
    Damage damage;
    std::string section;
    std::string reason;
};

std::vector<StructureRow> getImpossibleTables() {
    const auto damageTable = [](std::function<void(ImageTable&)> damage) {
        return [damage](SampleStore& store) { damage(store.m_image[D_XSD_INT]); };
    };
    const auto withBuckets = [&](uint64_t numberOfBuckets) {
        return damageTable([numberOfBuckets](ImageTable& table) { table.m_numberOfBuckets = numberOfBuckets; });
    };
    const auto withCounts = [&](uint64_t usedCount, uint64_t deletedCount, uint32_t lastReservation) {
        return damageTable([=](ImageTable& table) {
            table.m_usedCount = usedCount;
            table.m_deletedCount = deletedCount;
            table.m_freeReservations[255] = lastReservation;
        });
    };
    const auto counts = [](const std::string& used, const std::string& deleted, const std::string& reserved) {
        return "table of xsd:int: the counts of used (" + used + "), deleted (" + deleted + ") and reserved buckets (" +
               reserved + ") are not possible";
    };
    const auto region = [](const std::string& end, const std::string& maximum) {
        return "table of xsd:int: its region of " + end + " of at most " + maximum +
               " buckets does not hold 1024 buckets";
    };
    const std::string image = "dictionary-22";
    return {
        {"no bucket", withBuckets(0), image, "table of xsd:int: 0 buckets are not possible"},
        {"one bucket", withBuckets(1), image, "table of xsd:int: 1 buckets are not possible"},
        {"too few buckets", withBuckets(512), image, "table of xsd:int: 512 buckets are not possible"},
        {"no power of two, one less", withBuckets(1023), image, "table of xsd:int: 1023 buckets are not possible"},
        {"no power of two, one more", withBuckets(1025), image, "table of xsd:int: 1025 buckets are not possible"},
        {"2^41 buckets", withBuckets(1ULL << 41), image, "table of xsd:int: 2199023255552 buckets are not possible"},
        {"2^63 buckets", withBuckets(1ULL << 63), image,
         "table of xsd:int: 9223372036854775808 buckets are not possible"},
        {"2^64 - 1 buckets", withBuckets(UINT64_MAX), image,
         "table of xsd:int: 18446744073709551615 buckets are not possible"},
        {"threshold of the number of buckets", damageTable([](ImageTable& table) { table.m_resizeThreshold = 1024; }),
         image, "table of xsd:int: the threshold 1024 does not belong to 1024 buckets"},
        {"threshold one too low", damageTable([](ImageTable& table) { table.m_resizeThreshold = 715; }), image,
         "table of xsd:int: the threshold 715 does not belong to 1024 buckets"},
        {"more used than the threshold allows", withCounts(717, 1, 0), image, counts("717", "1", "0")},
        {"all used", withCounts(UINT64_MAX, 1, 0), image, counts("18446744073709551615", "1", "0")},
        {"more deleted than used", withCounts(2, 3, 0), image, counts("2", "3", "0")},
        {"more reserved than used", withCounts(2, 1, 2), image, counts("2", "1", "2")},
        {"reservations that would fill the table", withCounts(5002, 1, 5000), image, counts("5002", "1", "5000")},
        {"reservations beyond 32 bits",
         [](SampleStore& store) { store.m_image[D_XSD_INT].m_freeReservations.fill(UINT32_MAX); }, image,
         counts("2", "1", "1099511627520")},
        {"no region", damageTable([](ImageTable& table) { table.m_maximum = 0; }), image, region("0", "0")},
        {"region smaller than its end", damageTable([](ImageTable& table) { table.m_maximum = 1023; }), image,
         region("1024", "1023")},
        {"region smaller than the table", damageTable([](ImageTable& table) { table.m_buckets.resize(1023); }), image,
         region("1023", "1024")},
        {"region larger than any", damageTable([](ImageTable& table) { table.m_maximum = 1ULL << 41; }), image,
         region("1024", "2199023255552")},
        {"region whose bytes wrap", damageTable([](ImageTable& table) { table.m_maximum = 1ULL << 60; }), image,
         region("1024", "1152921504606846976")},
        {"header of a table", damageTable([](ImageTable& table) { table.m_header = "ParallelHashTablf"; }), image,
         "the image has no header 'ParallelHashTable' where it should"},
        {"longer header of a table", damageTable([](ImageTable& table) { table.m_header = "ParallelHashTables"; }),
         image, "the image has no header 'ParallelHashTable' where it should"},
        {"header of the image", [](SampleStore& store) { store.m_image.m_header = "LiteralDatatype"; }, image,
         "the image has no header 'NumericDatatype' where it should"},
        {"empty header of the image", [](SampleStore& store) { store.m_image.m_header = ""; }, image,
         "the image has no header 'NumericDatatype' where it should"},
        {"other bound of IDs", [](SampleStore& store) { store.m_image.m_maxResourceID = 4097; }, image,
         "the image's bounds of resource IDs, 4097 and 3072, do not agree with the store's, 4096"},
        {"other bound of blocks", [](SampleStore& store) { store.m_image.m_maxResourceIDForBlocks = 3073; }, image,
         "the image's bounds of resource IDs, 4096 and 3073, do not agree with the store's, 4096"},
    };
}

std::vector<StructureRow> getImpossibleCounters() {
    return {
        {"next ID 0", [](SampleStore& store) { store.m_nextResourceID = 0; }, "counters",
         "the next resource ID, 0, is not possible"},
        {"next ID beyond the bound", [](SampleStore& store) { store.m_nextResourceID = 4097; }, "counters",
         "the next resource ID, 4097, is not possible"},
        {"next ID 2^64 - 1", [](SampleStore& store) { store.m_nextResourceID = UINT64_MAX; }, "counters",
         "the next resource ID, 18446744073709551615, is not possible"},
        {"next ID beyond the arrays", [](SampleStore& store) { store.m_nextResourceID = 8; }, "datatypes",
         "it has 7 bytes instead of 8"},
        {"next ID within the arrays", [](SampleStore& store) { store.m_nextResourceID = 6; }, "datatypes",
         "it has 7 bytes instead of 6"},
        {"bound of IDs too low", [](SampleStore& store) { store.m_maxResourceID = 2047; }, "counters",
         "its bound of resource IDs, 2047, is not possible"},
        {"bound of IDs 0", [](SampleStore& store) { store.m_maxResourceID = 0; }, "counters",
         "its bound of resource IDs, 0, is not possible"},
        {"bound of IDs 2^64 - 1", [](SampleStore& store) { store.m_maxResourceID = UINT64_MAX; }, "counters",
         "its bound of resource IDs, 18446744073709551615, is not possible"},
        {"pool end inside the reserved offsets", [](SampleStore& store) { store.m_poolEnd = 63; }, "counters",
         "the end of the data pool, 63, is not possible"},
        {"pool end 2^64 - 1", [](SampleStore& store) { store.m_poolEnd = UINT64_MAX; }, "counters",
         "the end of the data pool, 18446744073709551615, is not possible"},
        {"pool end at the pool's size",
         [](SampleStore& store) {
             store.m_poolEnd = (1ULL << 30) + 4096 * 40;
             store.m_pool.clear();
         },
         "pool", "it has 0 bytes instead of 1073905600"},
        {"pool end one beyond the pool's size",
         [](SampleStore& store) { store.m_poolEnd = (1ULL << 30) + 4096 * 40 + 1; }, "counters",
         "the end of the data pool, 1073905665, is not possible"},
    };
}

void expectRefusals(const std::vector<StructureRow>& rows) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const StructureRow& row : rows)
            for (const bool checkEveryValue : {true, false}) {
                SCOPED_TRACE(row.name);
                SampleStore store(width);
                row.damage(store);
                EXPECT_EQ(getRefusal(store.toBytes(), checkEveryValue), makeRefusal(row.section, row.reason));
            }
}

/// A table of the sample, its bucket with a resource's word, and how messages name it.
std::string at(uint8_t datatypeID, size_t index) {
    return std::string(
               datatypeID == D_XSD_DECIMAL   ? "table of xsd:decimal"
               : datatypeID == D_XSD_INTEGER ? "table of xsd:integer"
                                             : "table of xsd:int") +
           ", bucket " + std::to_string(index) + ": ";
}

struct ContentRow {
    const char* name;
    std::function<std::vector<std::string>(SampleStore&)> damage; // returns the problems
};

std::vector<ContentRow> getWrongBuckets() {
    return {
        {"ID beyond the counter",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_INT].findWord(4);
             store.m_image[D_XSD_INT].m_buckets[index].m_word = 7;
             return {
                 at(D_XSD_INT, index) + "resource 7 was never given out",
                 "resource 4 of xsd:int: no bucket has it, so its value is not found"};
         }},
        {"highest ID",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_INT].findWord(4);
             const uint64_t word = store.getDeletedWord(D_XSD_INT) - 1;
             store.m_image[D_XSD_INT].m_buckets[index].m_word = word;
             return {
                 at(D_XSD_INT, index) + "resource " + std::to_string(word) + " was never given out",
                 "resource 4 of xsd:int: no bucket has it, so its value is not found"};
         }},
        {"busy integer",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_INT].findWord(4);
             store.m_image[D_XSD_INT].m_buckets[index].m_word = store.getBusyWord(D_XSD_INT);
             return {
                 at(D_XSD_INT, index) + "it is marked as being written",
                 "table of xsd:int: it has 1 live and deleted buckets and counts 2",
                 "resource 4 of xsd:int: no bucket has it, so its value is not found"};
         }},
        {"busy decimal",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.m_image[D_XSD_DECIMAL].m_buckets[index].m_word = UINT64_MAX;
             return {
                 at(D_XSD_DECIMAL, index) + "it is marked as being written",
                 "table of xsd:decimal: it has 1 live and deleted buckets and counts 2",
                 "resource 1 of xsd:decimal: no bucket has it, so its value is not found"};
         }},
        {"empty",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INT].m_buckets[store.m_image[D_XSD_INT].findWord(4)].m_word = 0;
             return {
                 "table of xsd:int: it has 1 live and deleted buckets and counts 2",
                 "resource 4 of xsd:int: no bucket has it, so its value is not found"};
         }},
        {"deleted",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INTEGER].m_buckets[store.m_image[D_XSD_INTEGER].findWord(2)].m_word =
                 store.getDeletedWord(D_XSD_INTEGER);
             return {
                 "table of xsd:integer: it has 1 deleted buckets and counts 0",
                 "resource 2 of xsd:integer: no bucket has it, so its value is not found"};
         }},
        {"offset behind the pool",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.m_image[D_XSD_DECIMAL].m_buckets[index].m_word = 1ULL << 40;
             return {
                 at(D_XSD_DECIMAL, index) + "its record at offset 1099511627776 is outside the data pool",
                 "resource 1 of xsd:decimal: no bucket has it, so its value is not found"};
         }},
        {"offset of which one byte is behind the pool",
         [](SampleStore& store) -> std::vector<std::string> {
             const uint64_t offset = 64 + store.m_pool.size() - store.m_recordSize + 1;
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.m_image[D_XSD_DECIMAL].m_buckets[index].m_word = offset;
             return {
                 at(D_XSD_DECIMAL, index) + "its record at offset " + std::to_string(offset) +
                     " is outside the data pool",
                 "resource 1 of xsd:decimal: no bucket has it, so its value is not found"};
         }},
        {"offset before the pool",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.m_image[D_XSD_DECIMAL].m_buckets[index].m_word = 63;
             return {
                 at(D_XSD_DECIMAL, index) + "its record at offset 63 is outside the data pool",
                 "resource 1 of xsd:decimal: no bucket has it, so its value is not found"};
         }},
        {"unreachable",
         [](SampleStore& store) -> std::vector<std::string> {
             std::vector<test::ImageBucket>& buckets = store.m_image[D_XSD_INT].m_buckets;
             const size_t index = store.m_image[D_XSD_INT].findWord(4);
             const size_t home = 7 * 0x9e3779b1ULL % 1024;
             std::swap(buckets[index], buckets[(home + 5) % 1024]);
             return {
                 at(D_XSD_INT, (home + 5) % 1024) + "its value is not found, since bucket " + std::to_string(home) +
                 " before it is empty"};
         }},
        {"one value twice",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t first = store.m_image[D_XSD_INT].findWord(4);
             const size_t second = store.placeInteger(D_XSD_INT, 3, 7);
             store.setResource(3, D_XSD_INT, 7);
             store.m_numberOfResources = 5;
             return {at(D_XSD_INT, second) + "bucket " + std::to_string(first) + " has the same value"};
         }},
        {"one resource twice",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t second = store.placeInteger(D_XSD_INT, 4, 9);
             const size_t first = 7 * 0x9e3779b1ULL % 1024;
             const std::string twice = "resource 4 is in another bucket too",
                               otherValue = "resource 4 has another value in the array of data words";
             if (second > first)
                 return {at(D_XSD_INT, second) + otherValue, at(D_XSD_INT, second) + twice};
             return {at(D_XSD_INT, second) + otherValue, at(D_XSD_INT, first) + twice};
         }},
        {"resource of another table",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t first = store.m_image[D_XSD_INT].findWord(4);
             const size_t index = store.m_image[D_XSD_INTEGER].findWord(2);
             store.m_image[D_XSD_INTEGER].m_buckets[index].m_word = 4;
             return {
                 at(D_XSD_INTEGER, index) + "resource 4 has datatype ID 29 in the array of datatype IDs",
                 at(D_XSD_INT, first) + "resource 4 is in another bucket too",
                 "resource 2 of xsd:integer: no bucket has it, so its value is not found"};
         }},
        {"resource taken back",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_INT].findWord(store.getDeletedWord(D_XSD_INT));
             store.m_image[D_XSD_INT].m_buckets[index].m_word = 6;
             store.m_image[D_XSD_INT].m_deletedCount = 0;
             return {at(D_XSD_INT, index) + "resource 6 has datatype ID 0 in the array of datatype IDs"};
         }},
        {"deleted count",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INT].m_deletedCount = 0;
             return {"table of xsd:int: it has 1 deleted buckets and counts 0"};
         }},
        {"used count",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INT].m_usedCount = 3;
             return {"table of xsd:int: it has 2 live and deleted buckets and counts 3"};
         }},
        {"reservations",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INT].m_freeReservations[7] = 1;
             return {"table of xsd:int: it has 2 live and deleted buckets and counts 1"};
         }},
        {"a full table of deleted buckets",
         [](SampleStore& store) -> std::vector<std::string> {
             for (test::ImageBucket& bucket : store.m_image[D_XSD_INTEGER].m_buckets)
                 bucket.m_word = store.getDeletedWord(D_XSD_INTEGER);
             return {
                 "table of xsd:integer: it has 1024 deleted buckets and counts 0",
                 "table of xsd:integer: it has 1024 live and deleted buckets and counts 1",
                 "table of xsd:integer: no bucket is empty, so searches would not end",
                 "resource 2 of xsd:integer: no bucket has it, so its value is not found"};
         }},
    };
}

std::vector<ContentRow> getWrongResources() {
    return {
        {"a resource without a bucket",
         [](SampleStore& store) -> std::vector<std::string> {
             store.setResource(3, D_XSD_INT, 9);
             store.m_numberOfResources = 5;
             return {"resource 3 of xsd:int: no bucket has it, so its value is not found"};
         }},
        {"datatype of another table",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_datatypeIDs[4] = D_XSD_SHORT;
             return {
                 at(D_XSD_INT, store.m_image[D_XSD_INT].findWord(4)) +
                 "resource 4 has datatype ID 30 in the array of datatype IDs"};
         }},
        {"an integer that is said to be a decimal",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_datatypeIDs[4] = D_XSD_DECIMAL;
             return {
                 at(D_XSD_INT, store.m_image[D_XSD_INT].findWord(4)) +
                     "resource 4 has datatype ID 22 in the array of datatype IDs",
                 "resource 4 of xsd:decimal: its record at offset 7 is outside the data pool"};
         }},
        {"no datatype",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_datatypeIDs[4] = D_NONE;
             store.m_numberOfResources = 3;
             return {
                 at(D_XSD_INT, store.m_image[D_XSD_INT].findWord(4)) +
                 "resource 4 has datatype ID 0 in the array of datatype IDs"};
         }},
        {"a datatype that nobody has",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_datatypeIDs[3] = 36;
             store.m_numberOfResources = 5;
             return {"resource 3 has the unknown datatype ID 36"};
         }},
        {"a datatype for ID 0",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_datatypeIDs[0] = D_XSD_INT;
             return {"resource ID 0, which means none, has a datatype"};
         }},
        {"another data word",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_data[4] = 8;
             return {
                 at(D_XSD_INT, store.m_image[D_XSD_INT].findWord(4)) +
                 "resource 4 has another value in the array of data words"};
         }},
        {"data word 0 of a decimal",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_data[1] = 0;
             return {
                 at(D_XSD_DECIMAL, store.m_image[D_XSD_DECIMAL].findWord(64)) +
                     "resource 1 has another value in the array of data words",
                 "resource 1 of xsd:decimal: its record at offset 0 is outside the data pool"};
         }},
        {"value out of range",
         [](SampleStore& store) -> std::vector<std::string> {
             store.addInteger(D_XSD_INT, 3, 2147483648);
             store.m_numberOfResources = 5;
             return {"resource 3 of xsd:int: its value 2147483648 is not in the range of the datatype"};
         }},
        {"record of another resource",
         [](SampleStore& store) -> std::vector<std::string> {
             store.patchRecord(0, 0, uint8_t(3));
             return {
                 at(D_XSD_DECIMAL, store.m_image[D_XSD_DECIMAL].findWord(64)) +
                     "resource 3 has datatype ID 0 in the array of datatype IDs",
                 "resource 1 of xsd:decimal: its record is that of resource 3",
                 "resource 1 of xsd:decimal: no bucket has it, so its value is not found"};
         }},
        {"a decimal with a trailing zero",
         [](SampleStore& store) -> std::vector<std::string> {
             store.addDecimal(3, 50, 1);
             store.m_numberOfResources = 5;
             return {"resource 3 of xsd:decimal: its decimal is not normalised, or has more than 19 fraction digits"};
         }},
        {"a decimal with 20 fraction digits",
         [](SampleStore& store) -> std::vector<std::string> {
             store.addDecimal(3, 1, 20);
             store.m_numberOfResources = 5;
             return {"resource 3 of xsd:decimal: its decimal is not normalised, or has more than 19 fraction digits"};
         }},
        {"a decimal with 255 fraction digits",
         [](SampleStore& store) -> std::vector<std::string> {
             store.addDecimal(3, INT64_MIN, 255);
             store.m_numberOfResources = 5;
             return {"resource 3 of xsd:decimal: its decimal is not normalised, or has more than 19 fraction digits"};
         }},
        {"zero with a fraction digit",
         [](SampleStore& store) -> std::vector<std::string> {
             store.addDecimal(3, 0, 1);
             store.m_numberOfResources = 5;
             return {"resource 3 of xsd:decimal: its decimal is not normalised, or has more than 19 fraction digits"};
         }},
        {"a record that was changed",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.patchRecord(0, store.getUnscaledValueOffset(), int64_t(7));
             const uint64_t hash = ((7ULL ^ 0xcbf29ce484222325ULL) * 0x100000001b3ULL ^ 1) * 0x100000001b3ULL;
             return {
                 at(D_XSD_DECIMAL, index) + "its value is not found, since bucket " + std::to_string(hash % 1024) +
                 " before it is empty"};
         }},
    };
}

void expectProblems(const std::vector<ContentRow>& rows) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const ContentRow& row : rows) {
            SCOPED_TRACE(row.name + std::string(width == ResourceIDWidth::BITS_32 ? ", 32" : ", 64"));
            SampleStore store(width);
            const std::vector<std::string> problems = row.damage(store);
            const std::string bytes = store.toBytes();
            EXPECT_EQ(test::findProblems(*openStore(bytes, false)), problems);
            EXPECT_EQ(getRefusal(bytes), makeRefusal("content", problems.front()));
        }
}

}

TEST(StoreContent, TablesThatCannotBeAreRefusedEvenInTrustedStores) {
    expectRefusals(getImpossibleTables());
}

TEST(StoreContent, CountersThatCannotBeAreRefusedEvenInTrustedStores) {
    expectRefusals(getImpossibleCounters());
}

TEST(StoreContent, TheBoundOfIDsDependsOnTheWidth) {
    SampleStore narrow(ResourceIDWidth::BITS_32);
    narrow.m_maxResourceID = 0xffffffff;
    EXPECT_EQ(
        getRefusal(narrow.toBytes()),
        makeRefusal("counters", "its bound of resource IDs, 4294967295, is not possible"));
    SampleStore wide(ResourceIDWidth::BITS_64);
    wide.m_maxResourceID = (1ULL << 40) + 1;
    EXPECT_EQ(
        getRefusal(wide.toBytes()),
        makeRefusal("counters", "its bound of resource IDs, 1099511627777, is not possible"));
    wide.m_maxResourceID = wide.m_image.m_maxResourceID = 0xffffffff;
    wide.m_image.m_maxResourceIDForBlocks = 0xffffffff - 1024;
    EXPECT_NO_THROW(openStore(wide.toBytes()));
}

TEST(StoreContent, CountsAtTheLimitAreAccepted) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        SampleStore store(width);
        store.m_image[D_XSD_INT].m_usedCount = 716;
        store.m_image[D_XSD_INT].m_freeReservations[0] = 614;
        store.m_image[D_XSD_INT].m_freeReservations[255] = 100;
        const std::unique_ptr<Dictionary> dictionary = openStore(store.toBytes());
        for (int i = 0; i < 2000; ++i)
            dictionary->resolve(std::to_string(i), D_XSD_INT);
        EXPECT_EQ(test::findProblems(*dictionary), std::vector<std::string>());
    }
}

TEST(StoreContent, RegionsMayBeLargerThanTheirTables) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        SampleStore store(width);
        store.m_image[D_XSD_INT].m_maximum = 1 << 20;
        store.m_image[D_XSD_INT].m_buckets.resize(1100);
        const std::unique_ptr<Dictionary> dictionary = openStore(store.toBytes());
        EXPECT_EQ(dictionary->tryResolve("7", D_XSD_INT), 4u);
    }
}

TEST(StoreContent, MoreThanTheBudgetIsRefusedBeforeItIsReserved) {
    SampleStore store(ResourceIDWidth::BITS_32);
    store.m_image[D_XSD_INT].m_buckets.resize(1 << 18);
    store.m_image[D_XSD_INT].m_maximum = 1 << 18;
    const std::string bytes = store.toBytes();
    EXPECT_NO_THROW(openStore(bytes));
    for (const bool checkEveryValue : {true, false})
        try {
            openStore(bytes, checkEveryValue, 1 << 20);
            ADD_FAILURE() << "4 MB were put into a budget of 1 MB";
        }
        catch (const KavixException& exception) {
            EXPECT_EQ(exception.getMessage().rfind("The Kavix instance has run out of memory.", 0), 0u)
                << exception.getMessage();
        }
}

TEST(StoreContent, AnImageIsComparedWithTheBudgetAsAWhole) {
    const std::string image = SampleStore(ResourceIDWidth::BITS_32).m_image.toBytes();
    const DictionaryDatatypeInspector& inspector = *DictionaryDatatypeInspector::tryGetInspector(D_XSD_INT);
    const auto check = [&](uint64_t freeBytes) {
        MemoryInputStream input(image);
        inspector.checkImage(
            input, ImageLimits{image.size(), 4096, freeBytes}, [](std::string&& problem) { ADD_FAILURE() << problem; });
    };
    const uint64_t sizeOfTables = 8 * 1024 + 13 * 16 * 1024;
    EXPECT_NO_THROW(check(sizeOfTables));
    test::expectOutOfMemory(sizeOfTables - 1, 16 * 1024 - 1, 16 * 1024, [&] { check(sizeOfTables - 1); });
}

TEST(StoreContent, ASoundDictionaryHasNoProblems) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        EXPECT_EQ(test::findProblems(*openStore(SampleStore(width).toBytes(), false)), std::vector<std::string>());
}

TEST(StoreContent, EveryWrongBucketIsFound) {
    expectProblems(getWrongBuckets());
}

TEST(StoreContent, EveryWrongResourceIsFound) {
    expectProblems(getWrongResources());
}

TEST(StoreContent, AWrongNumberOfResourcesIsRefused) {
    SampleStore store(ResourceIDWidth::BITS_64);
    store.m_numberOfResources = 5;
    EXPECT_EQ(getRefusal(store.toBytes()), makeRefusal("counters", "it counts 5 resources, and there are 4"));
    EXPECT_EQ(test::findProblems(*openStore(store.toBytes(), false)), std::vector<std::string>());
}

TEST(StoreContent, AReportMayEndTheSearch) {
    SampleStore store(ResourceIDWidth::BITS_32);
    store.m_datatypeIDs[4] = D_NONE;
    store.m_datatypeIDs[0] = D_XSD_INT;
    const std::unique_ptr<Dictionary> dictionary = openStore(store.toBytes(), false);
    int numberOfReports = 0;
    EXPECT_THROW(
        dictionary->verify([&](std::string&&) {
            ++numberOfReports;
            throw 1;
        }),
        int);
    EXPECT_EQ(numberOfReports, 1);
}

}
