// Of ImportCommand: importing into stores, which is most of what can go wrong with one.

#include "core/platform/stream/ReplacingFile.h"
#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>

using namespace kavix;
using namespace kavix::numdict;
using nlohmann::json;

TEST(StoreImport, ANewStoreHasTheValues) {
    for (const std::string width : {"32", "64"}) {
        SCOPED_TRACE(width);
        TemporaryDirectory directory;
        EXPECT_EQ(dumpStore(makeSampleStore(directory, width)), SAMPLE_DUMP);
    }
}

TEST(StoreImport, ASecondImportExtendsTheStoreAndKeepsTheIDs) {
    for (const std::string width : {"32", "64"}) {
        SCOPED_TRACE(width);
        TemporaryDirectory directory;
        const std::string store = makeSampleStore(directory, width);
        const std::string more = directory.write("more.ttl", "<s> <p> 5 , 8 , 6.50 , 0.125 .");
        const json report =
            json::parse(runProgram("import --json --quiet --threads 1 --store " + store + " " + more).m_output);
        EXPECT_EQ(report["store"]["values"], 10);
        EXPECT_EQ(report["store"]["newValues"], 2);
        EXPECT_EQ(report["store"]["isNew"], false);
        EXPECT_EQ(report["store"]["written"], true);
        EXPECT_EQ(report["store"]["bytes"], std::filesystem::file_size(store));
        const std::string dump = dumpStore(store);
        EXPECT_TRUE(dump.starts_with(SAMPLE_DUMP)) << dump;
        EXPECT_NE(dump.find("\txsd:integer\t8\n"), std::string::npos);
        EXPECT_NE(dump.find("\txsd:decimal\t0.125\n"), std::string::npos);
        EXPECT_EQ(runProgram("check " + store).m_exitCode, 0);
    }
}

TEST(StoreImport, IfNothingIsStoredTheFileStaysTheSameByteForByte) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string before = readFile(store);
    const std::string good = directory.write("good.ttl", "<s> <p> 1234 .");
    const std::string bad = directory.write(
        "bad.nt", "<urn:s> <urn:p> \"4321\"^^<http://www.w3.org/2001/XMLSchema#int> .\n<urn:s> <urn:p> "
                  "\"x\"^^<http://www.w3.org/2001/XMLSchema#int> .\n");
    const std::string large = directory.getPath("large.nt");
    ASSERT_EQ(runProgram("generate --literals 200k -o " + large).m_exitCode, 0);
    const ExpectedEnd rows[] = {
        {"dry run", "--dry-run " + good, 0, ""},
        {"dry run with a bad literal", "--dry-run " + bad, 1, ""},
        {"strict", "--strict " + bad, 1, "--strict"},
        {"another width", "--id-width 64 " + good, 2, "32 bits, not 64"},
        {"missing file", "/nonexistent.ttl", 2, "there is no file"},
        {"the store as a file to read", "--format nt " + store, 2, "both a file to read and the store"},
        {"rejected to the store", "--rejected " + store + " " + good, 2, "different files"},
        {"budget too small to open", "--memory 100K " + good, 3, "--memory"},
        {"budget too small to import", "--memory 512K " + large, 3, "--memory"},
        {"standard output full", good + " > /dev/full", 4, "standard output"},
        {"rejected to nowhere", "--rejected /nonexistent/r.nq " + good, 4, "cannot write"},
    };
    for (const ExpectedEnd& row : rows) {
        SCOPED_TRACE(row.m_name);
        expectEnd(row, "import --quiet --store " + store + " ");
        EXPECT_TRUE(readFile(store) == before);
        EXPECT_FALSE(std::filesystem::exists(store + ".unfinished"));
    }
}

TEST(StoreImport, GoodLiteralsAreStoredBesideRejectedOnes) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string bad = directory.write(
        "bad.nt", "<urn:s> <urn:p> \"4321\"^^<http://www.w3.org/2001/XMLSchema#int> .\n<urn:s> <urn:p> "
                  "\"x\"^^<http://www.w3.org/2001/XMLSchema#int> .\n");
    EXPECT_EQ(runProgram("import --quiet --store " + store + " " + bad).m_exitCode, 1);
    EXPECT_EQ(runProgram("resolve " + store + " '\"4321\"^^xsd:int'").m_exitCode, 0);
    const std::string clean = directory.write("clean.ttl", "<s> <p> 77 .");
    EXPECT_EQ(runProgram("import --quiet --strict --store " + store + " " + clean).m_exitCode, 0);
    EXPECT_EQ(runProgram("resolve " + store + " 77").m_exitCode, 0);
}

TEST(StoreImport, ADryRunMakesNoFileAndSaysWhatItWouldHaveDone) {
    TemporaryDirectory directory;
    const std::string input = directory.write("input.ttl", SAMPLE_TURTLE);
    const ProgramResult result =
        runProgram("import --dry-run --json --quiet --store " + directory.getPath("new.store") + " " + input);
    EXPECT_EQ(result.m_exitCode, 0);
    const json store = json::parse(result.m_output)["store"];
    EXPECT_EQ(store["written"], false);
    EXPECT_EQ(store["isNew"], true);
    EXPECT_EQ(store["values"], 8);
    EXPECT_FALSE(std::filesystem::exists(directory.getPath("new.store")));
    EXPECT_FALSE(std::filesystem::exists(directory.getPath("new.store.unfinished")));
    EXPECT_EQ(runProgram("import --dry-run --quiet " + input).m_exitCode, 0);
}

TEST(StoreImport, ASecondWriterIsRefused) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string before = readFile(store);
    const std::string input = directory.write("more.ttl", "<s> <p> 1234 .");
    {
        ReplacingFile otherWriter(store);
        for (const std::string& arguments :
             {"import --quiet --store " + store + " " + input, "compact " + store,
              "restore " + directory.write("d", "1\txsd:int\t\"1\"^^xsd:int\n") + " -o " + store}) {
            SCOPED_TRACE(arguments);
            const ProgramResult result = runProgram(arguments);
            EXPECT_EQ(result.m_exitCode, 4);
            EXPECT_NE(result.m_errors.find("is being written by another process"), std::string::npos)
                << result.m_errors;
        }
        EXPECT_EQ(dumpStore(store), SAMPLE_DUMP); // readers need no lock
    }
    EXPECT_TRUE(readFile(store) == before);
    EXPECT_EQ(runProgram("import --quiet --store " + store + " " + input).m_exitCode, 0);
}

TEST(StoreImport, ADamagedStoreIsNotExtended) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    std::string bytes = readFile(store);
    bytes[bytes.size() / 2] ^= 1;
    directory.write("damaged.store", bytes);
    const std::string input = directory.write("more.ttl", "<s> <p> 1234 .");
    const ProgramResult result =
        runProgram("import --quiet --store " + directory.getPath("damaged.store") + " " + input);
    EXPECT_EQ(result.m_exitCode, 4);
    EXPECT_NE(
        result.m_errors.find("damaged.store: The store cannot be opened: section 'dictionary-22': wrong checksum"),
        std::string::npos)
        << result.m_errors;
    EXPECT_TRUE(readFile(directory.getPath("damaged.store")) == bytes);
}
