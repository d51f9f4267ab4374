#include "numdict/JSONKeys.h"
#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <set>
#include <string>

using namespace kavix::numdict;
using nlohmann::json;

TEST(CompactCommand, ExitCodesTellWhatHappened) {
    const StoreFolder folder;
    const ExpectedEnd rows[] = {
        {"compact keeping and dropping",
         "compact " + folder.m_store + " --keep " + folder.m_records + " --drop " + folder.m_records, 2, ""},
        {"compact by a missing list", "compact " + folder.m_store + " --keep /nonexistent", 2, "/nonexistent"},
        {"compact a damaged store", "compact " + folder.m_damaged, 4, "cannot be opened"},
        {"compact and say so to a full disk", "compact " + folder.m_store + " > /dev/full", 4, "standard output"},
    };
    folder.expectEnds(rows);
}

TEST(CompactCommand, WhatIsKeptGetsDenseIDs) {
    for (const std::string width : {"32", "64"}) {
        TemporaryDirectory directory;
        const std::string store = makeSampleStore(directory, width);
        const std::string list = directory.write("list", "2\n\"5\"^^xsd:integer\r\n\n-0.25\n\"+5\"^^xsd:int\n");
        const std::string rest = "1\txsd:decimal\t6.5\n2\txsd:decimal\t5.0\n3\txsd:unsignedByte\t\"255\"^^xsd:"
                                 "unsignedByte\n4\txsd:negativeInteger\t\"-1\"^^xsd:negativeInteger\n";
        const std::string kept =
            "1\txsd:integer\t5\n2\txsd:integer\t-7\n3\txsd:decimal\t-0.25\n4\txsd:int\t\"5\"^^xsd:int\n";
        SCOPED_TRACE(width);
        const std::string target = directory.getPath("target.store");
        EXPECT_EQ(
            runProgram("compact " + store + " --keep " + list + " -o " + target + " --map " + directory.getPath("map"))
                .m_exitCode,
            0);
        EXPECT_EQ(dumpStore(target), kept);
        EXPECT_EQ(readFile(directory.getPath("map")), "1\t1\n2\t2\n4\t3\n6\t4\n");
        EXPECT_EQ(
            runProgram("compact " + store + " --drop " + list + " --map - -o " + target).m_output,
            "3\t1\n5\t2\n7\t3\n8\t4\n");
        EXPECT_EQ(dumpStore(target), rest);
        EXPECT_EQ(dumpStore(store), SAMPLE_DUMP);

        const uint64_t sizeBefore = std::filesystem::file_size(store);
        const json report = json::parse(runProgram("compact --json " + store).m_output);
        EXPECT_EQ(
            keysOf(report),
            (std::set<std::string>{"store", "kept", "dropped", "missing", "memoryBefore", "memoryAfter", "bytes"}));
        EXPECT_EQ(report["kept"], 8);
        EXPECT_EQ(report["dropped"], 0);
        EXPECT_EQ(dumpStore(store), SAMPLE_DUMP);
        EXPECT_LT(std::filesystem::file_size(store), sizeBefore); // the rest of the importing threads' blocks is gone
        EXPECT_EQ(runProgram("check " + store).m_exitCode, 0);
    }
}

TEST(CompactCommand, LinesThatNameNothingAreShown) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const ProgramResult missing = runProgram(
        "compact " + store + " --drop " + directory.write("list", "1\n99\n123.5\n") + " -o " +
        directory.getPath("target.store"));
    EXPECT_EQ(missing.m_exitCode, 1);
    EXPECT_NE(missing.m_errors.find("list:2: 99 is not in the store"), std::string::npos);
    EXPECT_NE(missing.m_errors.find("list:3: 123.5 is not in the store"), std::string::npos);
    EXPECT_TRUE(missing.m_output.starts_with("7 values kept, 1 dropped;")) << missing.m_output;
    const ProgramResult bad = runProgram("compact " + store + " --drop " + directory.write("list", "1\nhello\n"));
    EXPECT_EQ(bad.m_exitCode, 1);
    EXPECT_NE(bad.m_errors.find("list:2: hello: "), std::string::npos) << bad.m_errors;
    EXPECT_EQ(dumpStore(store), SAMPLE_DUMP);
}
