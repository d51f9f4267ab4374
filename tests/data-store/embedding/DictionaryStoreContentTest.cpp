// Stores whose checksums and structure are right and whose content is not: what verify() finds, each kind of damage
// with exactly its problems.

#include "core/data-store/embedding/Dictionary.h"

#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;
using test::getRefusal;
using test::makeRefusal;
using test::openStore;
using test::SampleStore;

namespace {

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
                 at(D_XSD_INT, index) + "resource 7 was never assigned",
                 "resource 4 of xsd:int: no bucket has it, so its value cannot be found"};
         }},
        {"highest ID",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_INT].findWord(4);
             const uint64_t word = store.getDeletedWord(D_XSD_INT) - 1;
             store.m_image[D_XSD_INT].m_buckets[index].m_word = word;
             return {
                 at(D_XSD_INT, index) + "resource " + std::to_string(word) + " was never assigned",
                 "resource 4 of xsd:int: no bucket has it, so its value cannot be found"};
         }},
        {"busy integer",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_INT].findWord(4);
             store.m_image[D_XSD_INT].m_buckets[index].m_word = store.getBusyWord(D_XSD_INT);
             return {
                 at(D_XSD_INT, index) + "it is marked busy",
                 "table of xsd:int: it has 1 live and deleted buckets but counts 2",
                 "resource 4 of xsd:int: no bucket has it, so its value cannot be found"};
         }},
        {"busy decimal",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.m_image[D_XSD_DECIMAL].m_buckets[index].m_word = UINT64_MAX;
             return {
                 at(D_XSD_DECIMAL, index) + "it is marked busy",
                 "table of xsd:decimal: it has 1 live and deleted buckets but counts 2",
                 "resource 1 of xsd:decimal: no bucket has it, so its value cannot be found"};
         }},
        {"empty",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INT].m_buckets[store.m_image[D_XSD_INT].findWord(4)].m_word = 0;
             return {
                 "table of xsd:int: it has 1 live and deleted buckets but counts 2",
                 "resource 4 of xsd:int: no bucket has it, so its value cannot be found"};
         }},
        {"deleted",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INTEGER].m_buckets[store.m_image[D_XSD_INTEGER].findWord(2)].m_word =
                 store.getDeletedWord(D_XSD_INTEGER);
             return {
                 "table of xsd:integer: it has 1 deleted buckets but counts 0",
                 "resource 2 of xsd:integer: no bucket has it, so its value cannot be found"};
         }},
        {"offset after the pool",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.m_image[D_XSD_DECIMAL].m_buckets[index].m_word = 1ULL << 40;
             return {
                 at(D_XSD_DECIMAL, index) + "its record at offset 1099511627776 is outside the data pool",
                 "resource 1 of xsd:decimal: no bucket has it, so its value cannot be found"};
         }},
        {"offset of a record that ends one byte after the pool",
         [](SampleStore& store) -> std::vector<std::string> {
             const uint64_t offset = 64 + store.m_pool.size() - store.m_recordSize + 1;
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.m_image[D_XSD_DECIMAL].m_buckets[index].m_word = offset;
             return {
                 at(D_XSD_DECIMAL, index) + "its record at offset " + std::to_string(offset) +
                     " is outside the data pool",
                 "resource 1 of xsd:decimal: no bucket has it, so its value cannot be found"};
         }},
        {"offset before the pool",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_DECIMAL].findWord(64);
             store.m_image[D_XSD_DECIMAL].m_buckets[index].m_word = 63;
             return {
                 at(D_XSD_DECIMAL, index) + "its record at offset 63 is outside the data pool",
                 "resource 1 of xsd:decimal: no bucket has it, so its value cannot be found"};
         }},
        {"unreachable",
         [](SampleStore& store) -> std::vector<std::string> {
             std::vector<test::ImageBucket>& buckets = store.m_image[D_XSD_INT].m_buckets;
             const size_t index = store.m_image[D_XSD_INT].findWord(4);
             const size_t home = 7 * 0x9e3779b1ULL % 1024;
             std::swap(buckets[index], buckets[(home + 5) % 1024]);
             return {
                 at(D_XSD_INT, (home + 5) % 1024) + "its value cannot be found, because bucket " +
                 std::to_string(home) + " before it is empty"};
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
             const std::string twice = "resource 4 is also in another bucket",
                               otherValue = "resource 4 has a different value in the array of data words";
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
                 at(D_XSD_INT, first) + "resource 4 is also in another bucket",
                 "resource 2 of xsd:integer: no bucket has it, so its value cannot be found"};
         }},
        {"resource rolled back",
         [](SampleStore& store) -> std::vector<std::string> {
             const size_t index = store.m_image[D_XSD_INT].findWord(store.getDeletedWord(D_XSD_INT));
             store.m_image[D_XSD_INT].m_buckets[index].m_word = 6;
             store.m_image[D_XSD_INT].m_deletedCount = 0;
             return {at(D_XSD_INT, index) + "resource 6 has datatype ID 0 in the array of datatype IDs"};
         }},
        {"deleted count",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INT].m_deletedCount = 0;
             return {"table of xsd:int: it has 1 deleted buckets but counts 0"};
         }},
        {"used count",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INT].m_usedCount = 3;
             return {"table of xsd:int: it has 2 live and deleted buckets but counts 3"};
         }},
        {"reservations",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_image[D_XSD_INT].m_freeReservations[7] = 1;
             return {"table of xsd:int: it has 2 live and deleted buckets but counts 1"};
         }},
        {"a full table of deleted buckets",
         [](SampleStore& store) -> std::vector<std::string> {
             for (test::ImageBucket& bucket : store.m_image[D_XSD_INTEGER].m_buckets)
                 bucket.m_word = store.getDeletedWord(D_XSD_INTEGER);
             return {
                 "table of xsd:integer: it has 1024 deleted buckets but counts 0",
                 "table of xsd:integer: it has 1024 live and deleted buckets but counts 1",
                 "table of xsd:integer: no bucket is empty, so a search would never end",
                 "resource 2 of xsd:integer: no bucket has it, so its value cannot be found"};
         }},
    };
}

std::vector<ContentRow> getWrongResources() {
    return {
        {"a resource without a bucket",
         [](SampleStore& store) -> std::vector<std::string> {
             store.setResource(3, D_XSD_INT, 9);
             store.m_numberOfResources = 5;
             return {"resource 3 of xsd:int: no bucket has it, so its value cannot be found"};
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
        {"an unknown datatype",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_datatypeIDs[3] = 36;
             store.m_numberOfResources = 5;
             return {"resource 3 has the unknown datatype ID 36"};
         }},
        {"a datatype for ID 0",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_datatypeIDs[0] = D_XSD_INT;
             return {"resource ID 0, which is reserved, has a datatype"};
         }},
        {"another data word",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_data[4] = 8;
             return {
                 at(D_XSD_INT, store.m_image[D_XSD_INT].findWord(4)) +
                 "resource 4 has a different value in the array of data words"};
         }},
        {"data word 0 of a decimal",
         [](SampleStore& store) -> std::vector<std::string> {
             store.m_data[1] = 0;
             return {
                 at(D_XSD_DECIMAL, store.m_image[D_XSD_DECIMAL].findWord(64)) +
                     "resource 1 has a different value in the array of data words",
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
                 "resource 1 of xsd:decimal: its record belongs to resource 3",
                 "resource 1 of xsd:decimal: no bucket has it, so its value cannot be found"};
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
                 at(D_XSD_DECIMAL, index) + "its value cannot be found, because bucket " + std::to_string(hash % 1024) +
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

TEST(DictionaryStoreContent, AnIntactDictionaryHasNoProblems) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        EXPECT_EQ(test::findProblems(*openStore(SampleStore(width).toBytes(), false)), std::vector<std::string>());
}

TEST(DictionaryStoreContent, EveryWrongBucketIsFound) {
    expectProblems(getWrongBuckets());
}

TEST(DictionaryStoreContent, EveryWrongResourceIsFound) {
    expectProblems(getWrongResources());
}

TEST(DictionaryStoreContent, AWrongNumberOfResourcesIsRefused) {
    SampleStore store(ResourceIDWidth::BITS_64);
    store.m_numberOfResources = 5;
    EXPECT_EQ(getRefusal(store.toBytes()), makeRefusal("counters", "it counts 5 resources, but there are 4"));
    EXPECT_EQ(test::findProblems(*openStore(store.toBytes(), false)), std::vector<std::string>());
}

TEST(DictionaryStoreContent, AReportMayEndTheSearch) {
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
