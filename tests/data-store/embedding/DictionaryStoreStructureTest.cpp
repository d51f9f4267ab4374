// Stores whose checksums are right and whose structure is not possible: refused in any case, also as trusted stores.

#include "core/data-store/embedding/Dictionary.h"

#include "core/platform/errors/KavixException.h"
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
        return "table of xsd:int: inconsistent counts of used (" + used + "), deleted (" + deleted +
               ") and reserved buckets (" + reserved + ")";
    };
    const auto region = [](const std::string& end, const std::string& maximum) {
        return "table of xsd:int: a region of " + end + " of at most " + maximum + " buckets cannot hold 1024 buckets";
    };
    const std::string image = "dictionary-22";
    return {
        {"no bucket", withBuckets(0), image, "table of xsd:int: invalid number of buckets, 0"},
        {"one bucket", withBuckets(1), image, "table of xsd:int: invalid number of buckets, 1"},
        {"too few buckets", withBuckets(512), image, "table of xsd:int: invalid number of buckets, 512"},
        {"no power of two, one less", withBuckets(1023), image, "table of xsd:int: invalid number of buckets, 1023"},
        {"no power of two, one more", withBuckets(1025), image, "table of xsd:int: invalid number of buckets, 1025"},
        {"2^41 buckets", withBuckets(1ULL << 41), image, "table of xsd:int: invalid number of buckets, 2199023255552"},
        {"2^63 buckets", withBuckets(1ULL << 63), image,
         "table of xsd:int: invalid number of buckets, 9223372036854775808"},
        {"2^64 - 1 buckets", withBuckets(UINT64_MAX), image,
         "table of xsd:int: invalid number of buckets, 18446744073709551615"},
        {"threshold of the number of buckets", damageTable([](ImageTable& table) { table.m_resizeThreshold = 1024; }),
         image, "table of xsd:int: the resize threshold 1024 does not match 1024 buckets"},
        {"threshold one too low", damageTable([](ImageTable& table) { table.m_resizeThreshold = 715; }), image,
         "table of xsd:int: the resize threshold 715 does not match 1024 buckets"},
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
         "the image has no 'ParallelHashTable' header where one is expected"},
        {"longer header of a table", damageTable([](ImageTable& table) { table.m_header = "ParallelHashTables"; }),
         image, "the image has no 'ParallelHashTable' header where one is expected"},
        {"header of the image", [](SampleStore& store) { store.m_image.m_header = "LiteralDatatype"; }, image,
         "the image has no 'NumericDatatype' header where one is expected"},
        {"empty header of the image", [](SampleStore& store) { store.m_image.m_header = ""; }, image,
         "the image has no 'NumericDatatype' header where one is expected"},
        {"other bound of IDs", [](SampleStore& store) { store.m_image.m_maxResourceID = 4097; }, image,
         "the image's maximum resource IDs, 4097 and 3072, do not match the store's, 4096"},
        {"other bound of blocks", [](SampleStore& store) { store.m_image.m_maxResourceIDForBlocks = 3073; }, image,
         "the image's maximum resource IDs, 4096 and 3073, do not match the store's, 4096"},
    };
}

std::vector<StructureRow> getImpossibleCounters() {
    return {
        {"next ID 0", [](SampleStore& store) { store.m_nextResourceID = 0; }, "counters", "invalid next resource ID 0"},
        {"next ID beyond the bound", [](SampleStore& store) { store.m_nextResourceID = 4097; }, "counters",
         "invalid next resource ID 4097"},
        {"next ID 2^64 - 1", [](SampleStore& store) { store.m_nextResourceID = UINT64_MAX; }, "counters",
         "invalid next resource ID 18446744073709551615"},
        {"next ID beyond the arrays", [](SampleStore& store) { store.m_nextResourceID = 8; }, "datatypes",
         "it has 7 bytes instead of 8"},
        {"next ID within the arrays", [](SampleStore& store) { store.m_nextResourceID = 6; }, "datatypes",
         "it has 7 bytes instead of 6"},
        {"bound of IDs too low", [](SampleStore& store) { store.m_maxResourceID = 2047; }, "counters",
         "invalid maximum resource ID 2047"},
        {"bound of IDs 0", [](SampleStore& store) { store.m_maxResourceID = 0; }, "counters",
         "invalid maximum resource ID 0"},
        {"bound of IDs 2^64 - 1", [](SampleStore& store) { store.m_maxResourceID = UINT64_MAX; }, "counters",
         "invalid maximum resource ID 18446744073709551615"},
        {"pool end inside the reserved offsets", [](SampleStore& store) { store.m_poolEnd = 63; }, "counters",
         "invalid end of the data pool, 63"},
        {"pool end 2^64 - 1", [](SampleStore& store) { store.m_poolEnd = UINT64_MAX; }, "counters",
         "invalid end of the data pool, 18446744073709551615"},
        {"pool end at the pool's size",
         [](SampleStore& store) {
             store.m_poolEnd = (1ULL << 30) + 4096 * 40;
             store.m_pool.clear();
         },
         "pool", "it has 0 bytes instead of 1073905600"},
        {"pool end one beyond the pool's size",
         [](SampleStore& store) { store.m_poolEnd = (1ULL << 30) + 4096 * 40 + 1; }, "counters",
         "invalid end of the data pool, 1073905665"},
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

}

TEST(DictionaryStoreStructure, ImpossibleTablesAreRefusedEvenInTrustedStores) {
    expectRefusals(getImpossibleTables());
}

TEST(DictionaryStoreStructure, ImpossibleCountersAreRefusedEvenInTrustedStores) {
    expectRefusals(getImpossibleCounters());
}

TEST(DictionaryStoreStructure, TheBoundOfIDsDependsOnTheWidth) {
    SampleStore narrow(ResourceIDWidth::BITS_32);
    narrow.m_maxResourceID = 0xffffffff;
    EXPECT_EQ(getRefusal(narrow.toBytes()), makeRefusal("counters", "invalid maximum resource ID 4294967295"));
    SampleStore wide(ResourceIDWidth::BITS_64);
    wide.m_maxResourceID = (1ULL << 40) + 1;
    EXPECT_EQ(getRefusal(wide.toBytes()), makeRefusal("counters", "invalid maximum resource ID 1099511627777"));
    wide.m_maxResourceID = wide.m_image.m_maxResourceID = 0xffffffff;
    wide.m_image.m_maxResourceIDForBlocks = 0xffffffff - 1024;
    EXPECT_NO_THROW(openStore(wide.toBytes()));
}

TEST(DictionaryStoreStructure, CountsAtTheLimitAreAccepted) {
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

TEST(DictionaryStoreStructure, RegionsMayBeLargerThanTheirTables) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        SampleStore store(width);
        store.m_image[D_XSD_INT].m_maximum = 1 << 20;
        store.m_image[D_XSD_INT].m_buckets.resize(1100);
        const std::unique_ptr<Dictionary> dictionary = openStore(store.toBytes());
        EXPECT_EQ(dictionary->tryResolve("7", D_XSD_INT), 4u);
    }
}

TEST(DictionaryStoreStructure, MoreThanTheBudgetIsRefusedBeforeItIsReserved) {
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

}
