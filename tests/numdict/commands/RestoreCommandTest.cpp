#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>

using namespace kavix::numdict;

TEST(RestoreCommand, ExitCodesTellWhatHappened) {
    const StoreFolder folder;
    const ExpectedEnd rows[] = {
        {"restore nothing", "restore", 2, "RECORDS"},
        {"restore without target", "restore " + folder.m_records, 2, "--output"},
        {"restore a missing file", "restore /nonexistent -o " + folder.m_missing, 2, "/nonexistent"},
        {"restore to nowhere", "restore " + folder.m_records + " -o /nonexistent/s", 4, "/nonexistent/s"},
        {"restore with too little memory", "restore --memory 100K " + folder.m_records + " -o " + folder.m_missing, 3,
         "--memory"},
        {"restore and say so to a full disk",
         "restore " + folder.m_records + " -o " + folder.m_missing + " > /dev/full", 4, "standard output"},
    };
    folder.expectEnds(rows);
}

TEST(RestoreCommand, WhatWasDumpedIsRestoredUnderTheSameIDs) {
    TemporaryDirectory directory;
    const std::string generated = directory.getPath("generated.nt");
    ASSERT_EQ(runProgram("generate --literals 10k -o " + generated).m_exitCode, 0);
    for (const std::string width : {"32", "64"}) {
        const std::string store = makeSampleStore(directory, width);
        ASSERT_EQ(runProgram("import --quiet --store " + store + " " + generated).m_exitCode, 0);
        for (const std::string format : {"text", "csv", "jsonl"})
            for (const std::string threads : {"1", "4"}) {
                SCOPED_TRACE(width + " " + format + " " + threads);
                const std::string records = directory.getPath("records");
                const std::string restored = directory.getPath("restored.store");
                ASSERT_EQ(runProgram("dump " + store + " --format " + format + " -o " + records).m_exitCode, 0);
                for (const std::string& source :
                     {records + " -o " + restored, "- -o " + restored + " < " + records,
                      "- -o " + restored + " < " + records + ".gz"}) {
                    SCOPED_TRACE(source);
                    ASSERT_EQ(std::system(("gzip -kf '" + records + "'").c_str()), 0);
                    std::filesystem::remove(restored);
                    const ProgramResult result =
                        runProgram("restore --threads " + threads + " --id-width " + width + " " + source);
                    EXPECT_EQ(result.m_exitCode, 0) << result.m_errors;
                    const ProgramResult difference = runProgram("diff " + store + " " + restored);
                    EXPECT_EQ(difference.m_exitCode, 0) << difference.m_errors;
                    EXPECT_EQ(difference.m_output, "");
                    EXPECT_EQ(runProgram("check " + restored).m_exitCode, 0);
                }
            }
    }
}

TEST(RestoreCommand, AMalformedRecordIsShownWithItsLineAndNothingIsWritten) {
    TemporaryDirectory directory;
    const std::string target = directory.write("target.store", "what was there before");
    const struct {
        const char* name;
        const char* records;
        const char* errors;
    } rows[] = {
        {"not an ID", "1\txsd:int\t\"1\"^^xsd:int\nx\txsd:int\t\"2\"^^xsd:int\n",
         "records:2: 'x' is not a resource ID"},
        {"not a literal", "1\txsd:int\thello\n", "records:1: 'hello' is not a Turtle literal"},
        {"out of range", "\n\n1\txsd:byte\t\"300\"^^xsd:byte\n",
         "records:3: Value '300' is not in the range of datatype xsd:byte."},
        {"another datatype", "1\txsd:long\t\"1\"^^xsd:int\n",
         "records:1: the literal \"1\"^^xsd:int is of datatype xsd:int, not 'xsd:long'"},
        {"no numeric datatype", "1\txsd:string\t\"1\"\n", "records:1: xsd:string is not one of the numeric datatypes"},
        {"wrong quotes", "1,xsd:int,\"\"1\"\"^^xsd:int\n", "records:1: expected three comma-separated fields"},
        {"a field too much", "1,xsd:integer,5,6\n", "records:1: expected three comma-separated fields"},
        {"not JSON", "{\"id\":1\n", "records:1: not a JSON object"},
        {"a negative ID", "{\"id\":-1,\"datatype\":\"xsd:integer\",\"literal\":\"5\"}\n",
         "records:1: the object needs"},
        {"N-Triples", "<a> <b> 5 .\n", "records:1: N-Triples cannot be restored"},
        {"ID zero", "0\txsd:integer\t5\n", "records:1: Resource ID 0 is out of range"},
        {"ID beyond the width", "4294967294\txsd:integer\t5\n", "records:1: Resource ID 4294967294 is out of range"},
        {"an ID twice", "1\txsd:integer\t5\n1\txsd:integer\t6\n",
         "records:2: The record of resource 1 contradicts another record: the ID was already restored."},
        {"a value twice", "1\txsd:integer\t5\n2\txsd:integer\t05\n",
         "records:2: The record of resource 2 contradicts another record: its value was already restored as resource "
         "1."},
        {"many", "a\nb\nc\nd\ne\nf\ng\nh\ni\nj\nk\nl\n", "numdict: 12 bad records in all"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string records = directory.write("records", row.records);
        const ProgramResult result = runProgram("restore --threads 1 " + records + " -o " + target);
        EXPECT_EQ(result.m_exitCode, 1);
        EXPECT_EQ(result.m_output, "");
        EXPECT_NE(result.m_errors.find(row.errors), std::string::npos) << result.m_errors;
        EXPECT_TRUE(result.m_errors.ends_with("numdict: nothing was written\n")) << result.m_errors;
        EXPECT_EQ(readFile(target), "what was there before");
        EXPECT_EQ(runProgram("restore - --threads 1 -o " + target + " < " + records).m_exitCode, 1);
        EXPECT_EQ(readFile(target), "what was there before");
    }
}
