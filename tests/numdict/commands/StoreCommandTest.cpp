#include "numdict/JSONKeys.h"
#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

using namespace kavix::numdict;
using nlohmann::json;

TEST(StoreCommands, ExitCodesTellWhatHappened) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string other = importTurtle(directory, "other.store", "<s> <p> 5 .");
    const std::string records = directory.write("records", SAMPLE_DUMP);
    const std::string damaged = directory.write("damaged.store", readFile(store).substr(0, 1000));
    const std::string missing = directory.getPath("missing.store");
    const ExpectedEnd rows[] = {
        {"resolve well", "resolve " + store + " 5", 0, ""},
        {"resolve what is absent", "resolve " + store + " 99", 1, ""},
        {"resolve no literal", "resolve " + store + " hello", 1, ""},
        {"resolve nothing", "resolve " + store, 2, "--file"},
        {"resolve without store", "resolve", 2, "STORE"},
        {"resolve in no store", "resolve " + missing + " 5", 2, "there is no store"},
        {"resolve in a directory", "resolve /tmp 5", 2, "is not a regular file"},
        {"resolve in a damaged store", "resolve " + damaged + " 5", 4, "cannot be opened"},
        {"resolve with too little memory", "resolve --memory 10K " + store + " 5", 3, "--memory"},
        {"resolve with strange memory", "resolve --memory lots " + store + " 5", 2, "512M"},
        {"resolve a missing file", "resolve " + store + " --file /nonexistent", 2, "/nonexistent"},
        {"resolve to a full disk", "resolve " + store + " 5 > /dev/full", 4, "standard output"},
        {"get well", "get " + store + " 1 2", 0, ""},
        {"get what is absent", "get " + store + " 1 77", 1, ""},
        {"get zero", "get " + store + " 0", 1, ""},
        {"get no ID", "get " + store + " x", 1, ""},
        {"get beyond 64 bits", "get " + store + " 18446744073709551616", 1, ""},
        {"get nothing", "get " + store, 2, "--file"},
        {"get from a damaged store", "get " + damaged + " 1", 4, "cannot be opened"},
        {"dump well", "dump " + store, 0, ""},
        {"dump in no format", "dump --format xml " + store, 2, "text, csv, jsonl, ntriples"},
        {"dump to a full disk", "dump " + store + " > /dev/full", 4, "standard output"},
        {"dump to nowhere", "dump " + store + " -o /nonexistent/d", 4, "/nonexistent/d"},
        {"dump to a device", "dump " + store + " -o /dev/full", 4, "/dev/full"},
        {"dump a damaged store", "dump " + damaged, 4, "cannot be opened"},
        {"restore nothing", "restore", 2, "RECORDS"},
        {"restore without target", "restore " + records, 2, "--output"},
        {"restore a missing file", "restore /nonexistent -o " + missing, 2, "/nonexistent"},
        {"restore to nowhere", "restore " + records + " -o /nonexistent/s", 4, "/nonexistent/s"},
        {"restore with too little memory", "restore --memory 100K " + records + " -o " + missing, 3, "--memory"},
        {"restore and say so to a full disk", "restore " + records + " -o " + missing + " > /dev/full", 4,
         "standard output"},
        {"compact keeping and dropping", "compact " + store + " --keep " + records + " --drop " + records, 2, ""},
        {"compact by a missing list", "compact " + store + " --keep /nonexistent", 2, "/nonexistent"},
        {"compact a damaged store", "compact " + damaged, 4, "cannot be opened"},
        {"compact and say so to a full disk", "compact " + store + " > /dev/full", 4, "standard output"},
        {"stats well", "stats " + store, 0, ""},
        {"stats to a full disk", "stats " + store + " > /dev/full", 4, "standard output"},
        {"stats of a damaged store", "stats " + damaged, 4, "cannot be opened"},
        {"check well", "check " + store, 0, ""},
        {"check a damaged store", "check " + damaged, 1, ""},
        {"check no store", "check " + records, 1, ""},
        {"check an empty file", "check /dev/null", 2, "is not a regular file"},
        {"check a missing one", "check " + missing, 2, "there is no store"},
        {"repair without target", "check --repair " + store, 2, "-o"},
        {"target without repair", "check -o " + missing + " " + store, 2, "--repair"},
        {"repair in place", "check --repair -o " + store + " " + store, 2, "another file"},
        {"repair what is no store", "check --repair -o " + missing + " " + records, 1, ""},
        {"check with too little memory", "check --memory 100K " + store, 3, "--memory"},
        {"diff of the same", "diff " + store + " " + store, 0, ""},
        {"diff of others", "diff --quiet " + store + " " + other, 1, ""},
        {"diff with one", "diff " + store, 2, "STORE2"},
        {"diff with a missing one", "diff " + store + " " + missing, 2, "there is no store"},
        {"diff with a damaged one", "diff " + store + " " + damaged, 4, "cannot be opened"},
        {"diff to a full disk", "diff " + store + " " + other + " > /dev/full", 4, "standard output"},
        {"help", "check --help", 0, ""},
    };
    const std::string before = readFile(store);
    for (const ExpectedEnd& row : rows) {
        SCOPED_TRACE(row.m_name);
        expectEnd(row);
        EXPECT_TRUE(readFile(store) == before);
        EXPECT_FALSE(std::filesystem::exists(missing));
        EXPECT_FALSE(std::filesystem::exists(missing + ".unfinished"));
    }
}

TEST(StoreCommands, ResolveAnswersEachLiteralWithALine) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string file = directory.write("literals", "\"+05\"^^xsd:int\r\n\n 6.50 \nnothing");
    const ProgramResult result =
        runProgram("resolve " + store + " 5 -0.25 '\"6\"^^xsd:int' '\"300\"^^xsd:byte' --file " + file);
    EXPECT_EQ(result.m_exitCode, 1);
    EXPECT_EQ(
        result.m_output, "1\txsd:integer\t5\n"
                         "4\txsd:decimal\t-0.25\n"
                         "-\txsd:int\t\"6\"^^xsd:int\tnot found\n"
                         "-\txsd:byte\t\"300\"^^xsd:byte\tValue '300' is not in the range of datatype xsd:byte.\n"
                         "6\txsd:int\t\"5\"^^xsd:int\n"
                         "3\txsd:decimal\t6.5\n"
                         "-\t-\tnothing\tColumn 1: not a Turtle literal: write a number, or a text in quotes such "
                         "as \"5\"^^xsd:int.\n");
    EXPECT_EQ(
        runProgram("resolve --json " + store + " 5 9 --file - < /dev/null").m_output,
        "{\"id\":1,\"datatype\":\"xsd:integer\",\"literal\":\"5\"}\n"
        "{\"id\":null,\"datatype\":\"xsd:integer\",\"literal\":\"9\",\"reason\":\"absent\",\"message\":\"not "
        "found\"}\n");
}

TEST(StoreCommands, GetAnswersEachIDWithALine) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string file = directory.write("ids", "8\n\n7\n");
    EXPECT_EQ(
        runProgram("get " + store + " 6 77 x --file - < " + file).m_output,
        "6\txsd:int\t\"5\"^^xsd:int\n"
        "77\t-\t-\tnot found\n"
        "x\t-\t-\tnot a resource ID, which is a number\n"
        "8\txsd:negativeInteger\t\"-1\"^^xsd:negativeInteger\n"
        "7\txsd:unsignedByte\t\"255\"^^xsd:unsignedByte\n");
    EXPECT_EQ(
        runProgram("get --json " + store + " 3 77").m_output,
        "{\"id\":3,\"datatype\":\"xsd:decimal\",\"literal\":\"6.5\"}\n"
        "{\"id\":77,\"datatype\":null,\"literal\":null,\"reason\":\"absent\",\"message\":\"not found\"}\n");
}

TEST(StoreCommands, DumpWritesEveryFormat) {
    TemporaryDirectory directory;
    const std::string store =
        importTurtle(directory, "s", "<s> <p> 5 , 0.5 , \"7\"^^<http://www.w3.org/2001/XMLSchema#int> .");
    const struct {
        const char* format;
        const char* expected;
    } rows[] = {
        {"text", "1\txsd:integer\t5\n2\txsd:decimal\t0.5\n3\txsd:int\t\"7\"^^xsd:int\n"},
        {"csv", "id,datatype,literal\n1,xsd:integer,5\n2,xsd:decimal,0.5\n3,xsd:int,\"\"\"7\"\"^^xsd:int\"\n"},
        {"jsonl", "{\"id\":1,\"datatype\":\"xsd:integer\",\"literal\":\"5\"}\n{\"id\":2,\"datatype\":\"xsd:decimal\","
                  "\"literal\":\"0.5\"}\n{\"id\":3,\"datatype\":\"xsd:int\",\"literal\":\"\\\"7\\\"^^xsd:int\"}\n"},
        {"ntriples", "<urn:kavix:resource:1> <http://www.w3.org/1999/02/22-rdf-syntax-ns#value> "
                     "\"5\"^^<http://www.w3.org/2001/XMLSchema#integer> .\n"
                     "<urn:kavix:resource:2> <http://www.w3.org/1999/02/22-rdf-syntax-ns#value> "
                     "\"0.5\"^^<http://www.w3.org/2001/XMLSchema#decimal> .\n"
                     "<urn:kavix:resource:3> <http://www.w3.org/1999/02/22-rdf-syntax-ns#value> "
                     "\"7\"^^<http://www.w3.org/2001/XMLSchema#int> .\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(runProgram(std::string("dump --format ") + row.format + " " + store).m_output, row.expected);
        EXPECT_EQ(
            runProgram(std::string("dump --format ") + row.format + " " + store + " -o " + directory.getPath("dump"))
                .m_output,
            "");
        EXPECT_EQ(readFile(directory.getPath("dump")), row.expected);
    }
    // What is written as N-Triples can be imported.
    directory.write("dump.nt", rows[3].expected);
    EXPECT_EQ(
        json::parse(
            runProgram("import --json --quiet " + directory.getPath("dump.nt")).m_output)["total"]["distinctValues"],
        3);
}

TEST(StoreCommands, WhatWasDumpedIsRestoredUnderTheSameIDs) {
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

TEST(StoreCommands, AMalformedRecordIsShownWithItsLineAndNothingIsWritten) {
    TemporaryDirectory directory;
    const std::string target = directory.write("target.store", "what was there before");
    const struct {
        const char* name;
        const char* records;
        const char* errors;
    } rows[] = {
        {"no ID", "1\txsd:int\t\"1\"^^xsd:int\nx\txsd:int\t\"2\"^^xsd:int\n", "records:2: 'x' is not a resource ID"},
        {"not a literal", "1\txsd:int\thello\n", "records:1: 'hello' is not a Turtle literal"},
        {"out of range", "\n\n1\txsd:byte\t\"300\"^^xsd:byte\n",
         "records:3: Value '300' is not in the range of datatype xsd:byte."},
        {"another datatype", "1\txsd:long\t\"1\"^^xsd:int\n",
         "records:1: the literal \"1\"^^xsd:int is of datatype xsd:int, not 'xsd:long'"},
        {"no numeric datatype", "1\txsd:string\t\"1\"\n", "records:1: xsd:string is not one of the numeric datatypes"},
        {"wrong quotes", "1,xsd:int,\"\"1\"\"^^xsd:int\n", "records:1: expected three comma-separated fields"},
        {"a field too much", "1,xsd:integer,5,6\n", "records:1: expected three comma-separated fields"},
        {"no JSON", "{\"id\":1\n", "records:1: not a JSON object"},
        {"a negative ID", "{\"id\":-1,\"datatype\":\"xsd:integer\",\"literal\":\"5\"}\n",
         "records:1: the object needs"},
        {"N-Triples", "<a> <b> 5 .\n", "records:1: N-Triples cannot be restored"},
        {"ID zero", "0\txsd:integer\t5\n", "records:1: Option 'resource ID' cannot be 0"},
        {"ID beyond the width", "4294967294\txsd:integer\t5\n", "records:1: Option 'resource ID' cannot be 4294967294"},
        {"an ID twice", "1\txsd:integer\t5\n1\txsd:integer\t6\n",
         "records:2: The record of resource 1 contradicts another one: the ID was restored before."},
        {"a value twice", "1\txsd:integer\t5\n2\txsd:integer\t05\n",
         "records:2: The record of resource 2 contradicts another one: its value was restored before, under ID 1."},
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

TEST(StoreCommands, CompactingKeepsWhatItShallUnderDenseIDs) {
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

TEST(StoreCommands, CompactingSaysWhichLinesNameNothing) {
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

TEST(StoreCommands, StatisticsDescribeTablesAndNumbers) {
    for (const std::string width : {"32", "64"}) {
        SCOPED_TRACE(width);
        TemporaryDirectory directory;
        const std::string store = makeSampleStore(directory, width);
        const json report = json::parse(runProgram("stats --json " + store).m_output);
        EXPECT_EQ(
            keysOf(report),
            (std::set<std::string>{
                "store", "idWidth", "values", "datatypes", "fractionDigits", "sharedNumbers", "memory", "components"}));
        EXPECT_EQ(report["idWidth"], std::stoi(width));
        EXPECT_EQ(report["values"], 8);
        EXPECT_EQ(report["sharedNumbers"], 1); // 5, as xsd:integer, xsd:decimal and xsd:int
        EXPECT_EQ(report["datatypes"].size(), 14u);
        const json& decimals = report["datatypes"]["xsd:decimal"];
        EXPECT_EQ(
            keysOf(decimals), (std::set<std::string>{
                                  "live", "deleted", "reserved", "buckets", "load", "committedBytes", "meanProbeLength",
                                  "maxProbeLength", "bytesPerValue", "minimum", "maximum"}));
        EXPECT_EQ(decimals["live"], 3);
        EXPECT_EQ(decimals["deleted"], 0);
        EXPECT_EQ(decimals["reserved"], 97);
        EXPECT_EQ(decimals["buckets"], 1024);
        EXPECT_EQ(decimals["load"], 100.0 / 1024);
        EXPECT_EQ(decimals["committedBytes"], 8192);
        EXPECT_EQ(decimals["minimum"], "-0.25");
        EXPECT_EQ(decimals["maximum"], "6.5");
        EXPECT_EQ(decimals["bytesPerValue"], (8192.0 + 3 * (9 + (width == "32" ? 13 : 17))) / 3);
        EXPECT_EQ(report["datatypes"]["xsd:integer"]["minimum"], "-7");
        EXPECT_EQ(report["datatypes"]["xsd:long"]["minimum"], nullptr);
        EXPECT_EQ(report["fractionDigits"][0], 1);
        EXPECT_EQ(report["fractionDigits"][1], 1);
        EXPECT_EQ(report["fractionDigits"][2], 1);
        EXPECT_EQ(report["components"]["name"], "Dictionary");

        const std::string text = runProgram("stats " + store).m_output;
        EXPECT_TRUE(text.starts_with(
            "datatype\tlive\tdeleted\treserved\tbuckets\tload\tmemory\tmean "
            "probe\tlargest\tbytes/value\tminimum\tmaximum\nxsd:decimal\t3\t0\t97\t1024\t0.098\t8192\t"))
            << text;
        EXPECT_NE(text.find("\nfraction digits\tvalues\n0\t1\n1\t1\n2\t1\n"), std::string::npos) << text;
        EXPECT_NE(text.find("\nnumbers of several datatypes\t1\n"), std::string::npos) << text;
        EXPECT_NE(text.find("\nbytes on huge pages\t"), std::string::npos) << text;
    }
}

// The arrays by resource ID are reserved in full, so they ask for huge pages however small the store is.
TEST(StoreCommands, HugePagesAreReportedAndCanBeTurnedOff) {
    std::ifstream file("/sys/kernel/mm/transparent_hugepage/enabled");
    std::string setting;
    std::getline(file, setting);
    const bool areGranted =
        setting.find("[madvise]") != std::string::npos || setting.find("[always]") != std::string::npos;
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string turtle = directory.write("five.ttl", "<s> <p> 5 .");
    const std::string records = directory.write("records", SAMPLE_DUMP);
    for (const std::string& arguments :
         {"stats --json " + store, "import --json --quiet " + turtle,
          "import --json --quiet --dry-run " + turtle + " --store " + store}) {
        SCOPED_TRACE(arguments);
        const json with = json::parse(runProgram(arguments).m_output)["memory"]["onHugePages"];
        const json without = json::parse(runProgram(arguments + " --no-huge-pages").m_output)["memory"]["onHugePages"];
        EXPECT_EQ(with.is_null(), without.is_null()); // the system tells, or does not
        if (!without.is_null()) {
            EXPECT_EQ(without, 0);
            EXPECT_TRUE(!areGranted || with > 0) << with;
        }
    }
    for (const std::string& arguments :
         {"resolve " + store + " 5", "get " + store + " 1", "dump " + store,
          "restore " + records + " -o " + directory.getPath("new.store"), "compact " + store,
          "diff " + store + " " + store, "check " + store,
          "check --repair " + store + " -o " + directory.getPath("repaired.store")}) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(runProgram(arguments + " --no-huge-pages").m_exitCode, 0);
    }
}

TEST(StoreCommands, DiffShowsWhatIsInOneOnlyAndWhatHasAnotherID) {
    TemporaryDirectory directory;
    const std::string first = directory.getPath("first.store");
    const std::string second = directory.getPath("second.store");
    runProgram(
        "restore " + directory.write("a", "1\txsd:integer\t5\n2\txsd:decimal\t0.5\n3\txsd:integer\t7\n") + " -o " +
        first);
    runProgram(
        "restore --id-width 64 " +
        directory.write("b", "1\txsd:integer\t5\n2\txsd:integer\t7\n9\txsd:int\t\"5\"^^xsd:int\n") + " -o " + second);
    const ProgramResult result = runProgram("diff " + first + " " + second);
    EXPECT_EQ(result.m_exitCode, 1);
    EXPECT_EQ(result.m_output, "<\t2\t-\t0.5\n!\t3\t2\t7\n>\t-\t9\t\"5\"^^xsd:int\n");
    EXPECT_EQ(result.m_errors, "numdict: 1 values only in the first store, 1 only in the second, 1 with other IDs\n");
    EXPECT_EQ(
        runProgram("diff --json --quiet " + first + " " + second).m_output,
        "{\"literal\":\"0.5\",\"first\":2,\"second\":null}\n{\"literal\":\"7\",\"first\":3,\"second\":2}\n{\"literal\":"
        "\"\\\"5\\\"^^xsd:int\",\"first\":null,\"second\":9}\n");
}
