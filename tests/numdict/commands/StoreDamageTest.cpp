// Of CheckCommand and StoreCheck: every kind of damage is found, and what can be saved is saved.

#include "core/data-store/repair/StoreRepair.h"
#include "numdict/StoreSamples.h"
#include "numdict/stores/StoreCheck.h"
#include "support/SampleStore.h"
#include "support/StoreImage.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

using namespace kavix;
using namespace kavix::numdict;
using namespace kavix::test;
using nlohmann::json;

namespace {

const std::string SAMPLE_STORE_DUMP =
    "1\txsd:decimal\t0.5\n2\txsd:integer\t-2\n4\txsd:int\t\"7\"^^xsd:int\n5\txsd:decimal\t-12.25\n";

const std::string INTEGERS_DUMP = "2\txsd:integer\t-2\n4\txsd:int\t\"7\"^^xsd:int\n";

/// The bytes with one changed in the middle of a section; checksums stay as they were.
std::string damageSection(const SampleStore& sample, const std::string& name, size_t offset) {
    StoreImage image = sample.toImage();
    for (StoreSection& section : image.m_sections)
        section.m_checksum = getXXH3(section.m_bytes);
    image[name].m_bytes.at(offset) ^= 0x10;
    return image.toBytes();
}

/// Where a table of the image begins to hold the bucket of a resource; found by the ID that it must have.
size_t findInImage(const SampleStore& sample, const std::string& bytes) {
    const std::string image = sample.m_image.toBytes();
    const size_t position = image.find(bytes);
    EXPECT_NE(position, std::string::npos);
    return position;
}

/// Whether any memory of the process asks for huge pages; the system may grant none.
bool areHugePagesAskedFor() {
    std::ifstream maps("/proc/self/smaps");
    for (std::string line; std::getline(maps, line);)
        if (line.starts_with("VmFlags:") && (line + " ").find(" hg ") != std::string::npos)
            return true;
    return false;
}

struct Damage {
    const char* name;
    std::function<std::string(SampleStore&)> damage;
    const char* problem; // one of those that check must list
    int repairExitCode;
    std::string dump; // of the repaired store
    const char* loss; // one that repairing must list; empty for none
};

const Damage DAMAGES[] = {
    {"nothing", [](SampleStore& sample) { return sample.toBytes(); }, "", 0, SAMPLE_STORE_DUMP, ""},
    {"magic",
     [](SampleStore& sample) {
         std::string bytes = sample.toBytes();
         bytes[1] = 'X';
         return bytes;
     },
     "header: wrong magic number", 0, SAMPLE_STORE_DUMP, ""},
    {"width",
     [](SampleStore& sample) {
         std::string bytes = sample.toBytes();
         bytes[20] = 3;
         return bytes;
     },
     "header: unsupported resource ID width of 3 bits", 0, SAMPLE_STORE_DUMP, ""},
    {"the other width",
     [](SampleStore& sample) {
         std::string bytes = sample.toBytes();
         bytes[20] = sample.isNarrow() ? 64 : 32;
         return bytes;
     },
     "header: wrong checksum", 0, SAMPLE_STORE_DUMP, ""},
    {"number of sections",
     [](SampleStore& sample) {
         std::string bytes = sample.toBytes();
         bytes[32] = 9;
         return bytes;
     },
     "header: it has 9 sections instead of 5", 0, SAMPLE_STORE_DUMP, ""},
    {"table of sections",
     [](SampleStore& sample) {
         std::string bytes = sample.toBytes();
         bytes[40 + 40 + 16] ^= 1;
         return bytes;
     },
     "header: the section table is wrong; the sections were found using the counters", 0, SAMPLE_STORE_DUMP, ""},
    {"a checksum in the table",
     [](SampleStore& sample) {
         std::string bytes = sample.toBytes();
         bytes[40 + 32] ^= 1;
         return bytes;
     },
     "counters: wrong checksum", 0, SAMPLE_STORE_DUMP, ""},
    {"counters", [](SampleStore& sample) { return damageSection(sample, "counters", 8); }, "counters: wrong checksum",
     0, SAMPLE_STORE_DUMP, ""},
    {"something after the end", [](SampleStore& sample) { return sample.toBytes() + "x"; },
     "header: there is data after the last section", 0, SAMPLE_STORE_DUMP, ""},
    {"datatype IDs", [](SampleStore& sample) { return damageSection(sample, "datatypes", 2); },
     "datatypes: wrong checksum", 0, SAMPLE_STORE_DUMP, ""},
    {"data of an integer", [](SampleStore& sample) { return damageSection(sample, "data", 4 * 8); },
     "resource 4 has a different value in the array of data words", 0, SAMPLE_STORE_DUMP, ""},
    {"data of a decimal", [](SampleStore& sample) { return damageSection(sample, "data", 5 * 8 + 7); },
     "resource 5 of xsd:decimal: its record at offset", 0, SAMPLE_STORE_DUMP, ""},
    {"unscaled value in the pool",
     [](SampleStore& sample) { return damageSection(sample, "pool", sample.getUnscaledValueOffset()); },
     "pool: wrong checksum", 1, INTEGERS_DUMP,
     "resource 1 of xsd:decimal: its record is in the damaged data pool and cannot be confirmed"},
    {"resource ID in the pool", [](SampleStore& sample) { return damageSection(sample, "pool", 0); },
     "pool: wrong checksum", 1, INTEGERS_DUMP, "resource 1 of xsd:decimal: its record belongs to resource 17"},
    {"a bucket",
     [](SampleStore& sample) {
         return damageSection(sample, "dictionary-22", findInImage(sample, std::string("\x02\0\0\0\0\0\0\0\xfe", 9)));
     },
     "table of xsd:integer, bucket", 0, SAMPLE_STORE_DUMP, ""},
    {"header of the image", [](SampleStore& sample) { return damageSection(sample, "dictionary-22", 9); },
     "dictionary-22: the image has no 'NumericDatatype' header where one is expected", 0, SAMPLE_STORE_DUMP, ""},
    {"cut in the image",
     [](SampleStore& sample) {
         const std::string bytes = sample.toBytes();
         return bytes.substr(0, bytes.size() - 1000);
     },
     "dictionary-22: the file ends before the end of the section", 0, SAMPLE_STORE_DUMP, ""},
    {"cut in the pool", [](SampleStore& sample) { return sample.toBytes().substr(0, 280 + 7 + 56 + 20); },
     "pool: the file ends before the end of the section", 1, INTEGERS_DUMP,
     "resource 1 of xsd:decimal: its record is in the damaged data pool and cannot be confirmed"},
    {"arrays and tables, in different resources",
     [](SampleStore& sample) {
         StoreImage image = sample.toImage();
         for (StoreSection& section : image.m_sections)
             section.m_checksum = getXXH3(section.m_bytes);
         image["data"].m_bytes.at(4 * 8) ^= 1;
         image["dictionary-22"].m_bytes.at(findInImage(sample, std::string("\x02\0\0\0\0\0\0\0\xfe", 9)) + 8) ^= 1;
         return image.toBytes();
     },
     "resource 2 has a different value in the array of data words", 1, "1\txsd:decimal\t0.5\n5\txsd:decimal\t-12.25\n",
     "resource 4 of xsd:int: the damaged arrays and the damaged tables disagree"},
    // From here on the checksums are right.
    {"a value out of range",
     [](SampleStore& sample) {
         sample.setResource(2, 31, 300);
         return sample.toBytes();
     },
     "resource 2 of xsd:byte: its value 300 is not in the range of the datatype", 0, SAMPLE_STORE_DUMP, ""},
    {"an unknown datatype",
     [](SampleStore& sample) {
         sample.setResource(2, 99, 5);
         return sample.toBytes();
     },
     "resource 2 has the unknown datatype ID 99", 0, SAMPLE_STORE_DUMP, ""},
    {"a bucket without resource",
     [](SampleStore& sample) {
         sample.placeInteger(23, 3, 77);
         return sample.toBytes();
     },
     "resource 3 has datatype ID 0 in the array", 1, SAMPLE_STORE_DUMP,
     "resource 3 of xsd:integer: the tables have it, but the arrays do not"},
    {"a resource without bucket",
     [](SampleStore& sample) {
         sample.setResource(3, 23, 77);
         sample.m_numberOfResources = 5;
         return sample.toBytes();
     },
     "resource 3 of xsd:integer: no bucket has it, so its value cannot be found", 0,
     "1\txsd:decimal\t0.5\n2\txsd:integer\t-2\n3\txsd:integer\t77\n4\txsd:int\t\"7\"^^xsd:int\n5\txsd:decimal\t-12."
     "25\n",
     ""},
    {"a value twice",
     [](SampleStore& sample) {
         sample.addInteger(23, 3, -2);
         sample.m_numberOfResources = 5;
         return sample.toBytes();
     },
     "has the same value", 1, SAMPLE_STORE_DUMP, "resource 3 of xsd:integer: resource 2 has the same value"},
    {"a wrong count",
     [](SampleStore& sample) {
         sample.m_numberOfResources = 9;
         return sample.toBytes();
     },
     "counters: it counts 9 resources, but there are 4", 0, SAMPLE_STORE_DUMP, ""},
    {"counts of a table",
     [](SampleStore& sample) {
         sample.m_image[23].m_usedCount = 5000;
         return sample.toBytes();
     },
     "dictionary-22: table of xsd:integer: inconsistent counts of used (5000)", 0, SAMPLE_STORE_DUMP, ""},
    {"buckets of a table",
     [](SampleStore& sample) {
         sample.m_image[23].m_numberOfBuckets = 1000;
         return sample.toBytes();
     },
     "dictionary-22: table of xsd:integer: invalid number of buckets, 1000", 0, SAMPLE_STORE_DUMP, ""},
};

}

TEST(StoreDamage, CheckListsWhatIsWrongAndRepairSavesTheRest) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const Damage& row : DAMAGES) {
            SCOPED_TRACE(std::string(row.name) + (width == ResourceIDWidth::BITS_32 ? ", 32 bits" : ", 64 bits"));
            TemporaryDirectory directory;
            SampleStore sample(width);
            const std::string store = directory.write("damaged.store", row.damage(sample));
            const std::string repaired = directory.getPath("repaired.store");
            const ProgramResult check = runProgram("check --all " + store);
            EXPECT_EQ(check.m_exitCode, *row.problem == '\0' ? 0 : 1);
            EXPECT_NE(check.m_output.find(row.problem), std::string::npos) << check.m_output;
            const ProgramResult repair = runProgram("check --all --repair -o " + repaired + " " + store);
            EXPECT_EQ(repair.m_exitCode, row.repairExitCode) << repair.m_output << repair.m_errors;
            if (*row.loss == '\0') {
                EXPECT_EQ(repair.m_output.find("not saved: "), std::string::npos) << repair.m_output;
            }
            else {
                EXPECT_NE(repair.m_output.find(std::string("not saved: ") + row.loss + "\n"), std::string::npos)
                    << repair.m_output;
            }
            EXPECT_EQ(dumpStore(repaired), row.dump);
            EXPECT_EQ(runProgram("check " + repaired).m_exitCode, 0);
            if (*row.problem != '\0' && !std::strstr(row.name, "wrong count")) {
                EXPECT_EQ(runProgram("get " + store + " 1").m_exitCode, 4);
            }
        }
}

TEST(StoreDamage, UnconfirmedDecimalsAreSavedOnDemandIfTheyFitTheTables) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        TemporaryDirectory directory;
        const SampleStore sample(width);
        const std::string store =
            directory.write("damaged.store", damageSection(sample, "pool", sample.getUnscaledValueOffset()));
        const std::string repaired = directory.getPath("repaired.store");
        const ProgramResult repair = runProgram("check --repair --unconfirmed -o " + repaired + " " + store);
        EXPECT_EQ(repair.m_exitCode, 1);
        EXPECT_NE(
            repair.m_output.find("not saved: resource 1 of xsd:decimal: its record in the damaged data pool does not "
                                 "match the tables\n"),
            std::string::npos)
            << repair.m_output;
        EXPECT_EQ(dumpStore(repaired), INTEGERS_DUMP + "5\txsd:decimal\t-12.25\n");
        EXPECT_EQ(runProgram("check --unconfirmed " + store).m_exitCode, 2);
    }
}

TEST(StoreDamage, CheckAndRepairAskForHugePagesOnlyIfTheyMay) {
    TemporaryDirectory directory;
    SampleStore sample(ResourceIDWidth::BITS_32);
    sample.addInteger(D_XSD_INTEGER, 3, -2); // a value twice: a problem of the content, and one that cannot be saved
    sample.m_numberOfResources = 5;
    const std::string path = directory.write("damaged.store", sample.toBytes());
    const MappedFile file(path);
    const DamagedStore store(file.getData(), file.getLength());
    for (const bool useHugePages : {false, true}) {
        SCOPED_TRACE(useHugePages);
        std::vector<bool> areAskedFor; // at each problem and each loss
        const ProblemReport report = [&areAskedFor](std::string&&) { areAskedFor.push_back(areHugePagesAskedFor()); };
        checkStore(file, store, uint64_t(1) << 30, useHugePages, report);
        EXPECT_FALSE(areAskedFor.empty());
        EXPECT_EQ(areAskedFor, std::vector<bool>(areAskedFor.size(), useHugePages));
        areAskedFor.clear();
        StoreRepair(store).rebuild(uint64_t(1) << 30, useHugePages, report);
        EXPECT_EQ(areAskedFor, std::vector<bool>(1, useHugePages));
    }
}

TEST(StoreDamage, AllProblemsAreFoundAndTheFirstOnesListed) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    StoreImage image = StoreImage::fromBytes(readFile(store));
    for (size_t resourceID = 100; resourceID < 150; ++resourceID)
        image["datatypes"].m_bytes.at(resourceID) = 99;
    const std::string damaged = directory.write("damaged.store", image.toBytes());
    const ProgramResult few = runProgram("check " + damaged);
    EXPECT_EQ(few.m_exitCode, 1);
    EXPECT_TRUE(few.m_output.starts_with("resource 100 has the unknown datatype ID 99\n")) << few.m_output;
    EXPECT_TRUE(few.m_output.ends_with(
        "resource 119 has the unknown datatype ID 99\n... and 31 more; --all lists them\n" + damaged +
        ": 51 problems\n"))
        << few.m_output;
    const std::string all = runProgram("check --all " + damaged).m_output;
    EXPECT_NE(
        all.find("resource 149 has the unknown datatype ID 99\ncounters: it counts 8 resources, but there are 58\n"),
        std::string::npos)
        << all;

    const json report = json::parse(
        runProgram("check --json --repair -o " + directory.getPath("repaired.store") + " " + damaged).m_output);
    EXPECT_EQ(report["numberOfProblems"], 51);
    EXPECT_EQ(report["problems"].size(), 20u);
    EXPECT_EQ(report["repair"]["saved"], 8);
    EXPECT_EQ(report["repair"]["lost"], 50);
    EXPECT_EQ(report["repair"]["losses"].size(), 20u);
    EXPECT_EQ(report["repair"]["losses"][0], "resource 100 of the unknown datatype ID 99: unknown datatype");
    EXPECT_EQ(dumpStore(directory.getPath("repaired.store")), SAMPLE_DUMP);
}

TEST(StoreDamage, ABoundBeyondTheAddressSpaceIsNamedAndLoweredByRepair) {
    const std::string limit = "ulimit -v 20000000;"; // 20 GB
    if (runProgram("--help", limit).m_exitCode != 0)
        GTEST_SKIP() << "a sanitizer needs more address space";
    TemporaryDirectory directory;
    SampleStore sample(ResourceIDWidth::BITS_64);
    sample.m_maxResourceID = sample.m_image.m_maxResourceID = uint64_t(1) << 40;
    sample.m_image.m_maxResourceIDForBlocks = sample.m_maxResourceID - 1024;
    const std::string store = directory.write("huge.store", sample.toBytes());
    const std::string repaired = directory.getPath("repaired.store");
    const std::string message =
        "The store cannot be opened: its maximum resource ID, 1099511627776, needs more address space than the system "
        "allows. Raise the limit of the process (ulimit -v), or repair the store, which then gets a lower maximum. "
        "[mmap failed with error 12: Cannot allocate memory]\n";

    const ProgramResult refused = runProgram("get " + store + " 1", limit);
    EXPECT_EQ(refused.m_exitCode, 4);
    EXPECT_EQ(refused.m_errors, "numdict: " + store + ": " + message);
    const ProgramResult checked = runProgram("check " + store, limit);
    EXPECT_EQ(checked.m_exitCode, 1) << checked.m_errors;
    EXPECT_EQ(checked.m_output, message + store + ": 1 problem\n");
    EXPECT_EQ(runProgram("check --repair -o " + repaired + " " + store, limit).m_exitCode, 0);
    EXPECT_EQ(runProgram("dump " + repaired, limit).m_output, SAMPLE_STORE_DUMP);
    EXPECT_EQ(runProgram("check " + store).m_exitCode, 0); // where there is address space, nothing is wrong with it

    const ProgramResult import = runProgram("import --quiet --format nt /dev/null", limit);
    EXPECT_EQ(import.m_exitCode, 4);
    EXPECT_EQ(
        import.m_errors, "numdict: The system grants too little address space: raise the limit of the process (ulimit "
                         "-v). (An error occurred while reserving 34359738368 bytes of address space. [mmap failed "
                         "with error 12: Cannot allocate memory])\n");
}

TEST(StoreDamage, ARepairedStoreReplacesAnOlderFileOnlyIfSomethingWasSaved) {
    TemporaryDirectory directory;
    const std::string target = directory.write("target", "old");
    EXPECT_EQ(
        runProgram("check --repair -o " + target + " " + directory.write("no.store", std::string(5000, 'x')))
            .m_exitCode,
        1);
    EXPECT_EQ(readFile(target), "old");
    EXPECT_EQ(runProgram("check --repair -o " + target + " " + directory.write("empty.store", "")).m_exitCode, 1);
    EXPECT_EQ(readFile(target), "old");
}
