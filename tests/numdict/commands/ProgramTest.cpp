#include "numdict/JSONKeys.h"
#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <string>

using namespace kavix::numdict;
using nlohmann::json;

namespace {

const std::string DATA = KAVIX_SOURCE_DIRECTORY "/tests/numdict/data/";

}

TEST(Numdict, ExitCodesTellWhatHappened) {
    TemporaryDirectory directory;
    const std::string good = directory.write("good.ttl", "<s> <p> 5 , 6.5 .");
    const ExpectedEnd rows[] = {
        {"all well", "import " + good, 0, ""},
        {"rejected literals", "import " + DATA + "mixed.nt", 1, ""},
        {"damaged file", "import " + DATA + "damaged.ttl", 1, ""},
        {"strict", "import --strict " + DATA + "mixed.nt", 1, "stopped at the first fault"},
        {"look-up finds nothing", "import " + good + " --get 77", 1, ""},
        {"no command", "", 2, "subcommand"},
        {"unknown command", "exprot", 2, ""},
        {"no file", "import", 2, "FILE"},
        {"missing file", "import /nonexistent.ttl", 2, "there is no file"},
        {"directory", "import /tmp", 2, "is a directory"},
        {"unknown extension", "import /dev/null", 2, "--format"},
        {"unknown format", "import --format rdf " + good, 2, "nt, nq, ttl, trig"},
        {"standard input without format", "import - < /dev/null", 2, "--format"},
        {"standard input twice", "import - - --format nt < /dev/null", 2, "only once"},
        {"no threads", "import --threads 0 " + good, 2, "--threads"},
        {"too many threads", "import --threads 256 " + good, 2, "--threads"},
        {"strange width", "import --id-width 16 " + good, 2, "--id-width"},
        {"strange memory", "import --memory lots " + good, 2, "512M"},
        {"rejected to a device", "import --rejected /dev/null " + good, 2, "regular file"},
        {"too little memory", "import --memory 1000 " + good, 3, "--memory"},
        {"rejected to nowhere", "import --rejected /nonexistent/r.nq " + good, 4, "cannot write"},
        {"standard output full", "import --quiet " + good + " > /dev/full", 4, "standard output"},
        {"parse to a full disk", "parse 5 > /dev/full", 4, "standard output"},
        {"generate to a full disk", "generate --literals 10 > /dev/full", 4, "standard output"},
        {"generate to a full file", "generate --literals 10 -o /dev/full", 4, "/dev/full"},
        {"generate what", "generate --literals many", 2, "--literals"},
        {"parse well", "parse 5", 0, ""},
        {"parse nothing", "parse", 2, "--file"},
        {"parse a missing file", "parse --file /nonexistent", 2, "/nonexistent"},
        {"parse badly", "parse 5 hello", 1, ""},
        {"equal well", "equal 5", 0, ""},
        {"equal of a bad literal", "equal '\"300\"^^xsd:byte'", 1, "not in the range"},
        {"equal of no literal", "equal hello", 2, "not a literal"},
        {"help", "--help", 0, ""},
        {"help of a command", "import --help", 0, ""},
        {"empty file", "import --format nt /dev/null", 0, ""},
    };
    for (const ExpectedEnd& row : rows)
        expectEnd(row);
}

TEST(Numdict, TheJSONReportHasExactlyItsKeys) {
    const ProgramResult result =
        runProgram("import --json --threads 1 --resolve 5 --get 1 -- " + DATA + "mixed.nt " + DATA + "damaged.ttl");
    EXPECT_EQ(result.m_exitCode, 1);
    const json report = json::parse(result.m_output); // throws if anything stands beside the object
    const std::set<std::string> counts{"literals",       "accepted",     "malformed",     "outOfRange",
                                       "beyondCapacity", "nonCanonical", "distinctValues"};
    EXPECT_EQ(
        keysOf(report),
        (std::set<std::string>{
            "files", "datatypes", "total", "rejectedExamples", "seconds", "literalsPerSecond", "memory"}));
    EXPECT_EQ(keysOf(report["files"][0]), (std::set<std::string>{"path", "statements", "bytes", "error"}));
    EXPECT_EQ(keysOf(report["files"][1]["error"]), (std::set<std::string>{"line", "column", "message"}));
    EXPECT_EQ(keysOf(report["total"]), counts);
    EXPECT_EQ(report["datatypes"].size(), 14u);
    for (const json& datatype : report["datatypes"])
        EXPECT_EQ(keysOf(datatype), counts);
    EXPECT_EQ(
        keysOf(report["rejectedExamples"][0]),
        (std::set<std::string>{"file", "line", "literal", "datatype", "reason", "message"}));
    EXPECT_EQ(keysOf(report["memory"]), (std::set<std::string>{"budget", "used", "onHugePages"}));
    EXPECT_NE(result.m_errors.find("1\txsd:integer\t5\n1\txsd:integer\t5\n"), std::string::npos) << result.m_errors;
}

TEST(Numdict, ParseAnswersEachLiteralWithALineOfJSON) {
    TemporaryDirectory directory;
    const std::string file = directory.write("literals", "\"-0\"^^xsd:int\r\n\n0.50\n\"x\"@en");
    const ProgramResult result =
        runProgram("parse --json 5 -0.5 '\"300\"^^xsd:byte' 99999999999999999999 '\"a' --file '" + file + "'");
    EXPECT_EQ(result.m_exitCode, 1);
    EXPECT_EQ(
        result.m_output,
        "{\"literal\":\"5\",\"datatype\":\"xsd:integer\",\"datatypeID\":23,\"valid\":true,\"lexicalForm\":\"5\","
        "\"turtle\":\"5\",\"binary\":\"0500000000000000\"}\n"
        "{\"literal\":\"-0.5\",\"datatype\":\"xsd:decimal\",\"datatypeID\":22,\"valid\":true,\"lexicalForm\":\"-0.5\","
        "\"turtle\":\"-0.5\",\"binary\":\"fbffffffffffffff0100000000000000\"}\n"
        "{\"literal\":\"\\\"300\\\"^^xsd:byte\",\"datatype\":\"xsd:byte\",\"datatypeID\":31,\"valid\":false,\"reason\":"
        "\"outOfRange\",\"message\":\"Value '300' is not in the range of datatype xsd:byte.\"}\n"
        "{\"literal\":\"99999999999999999999\",\"datatype\":\"xsd:integer\",\"datatypeID\":23,\"valid\":false,"
        "\"reason\":\"beyondCapacity\",\"message\":\"Lexical form '99999999999999999999' is invalid for datatype "
        "xsd:integer.\"}\n"
        "{\"literal\":\"\\\"a\",\"datatype\":null,\"datatypeID\":null,\"valid\":false,\"reason\":\"syntax\","
        "\"message\":\"Column 3: the closing quote is missing.\"}\n"
        "{\"literal\":\"\\\"-0\\\"^^xsd:int\",\"datatype\":\"xsd:int\",\"datatypeID\":29,\"valid\":true,"
        "\"lexicalForm\":\"0\",\"turtle\":\"\\\"0\\\"^^xsd:int\",\"binary\":\"0000000000000000\"}\n"
        "{\"literal\":\"0.50\",\"datatype\":\"xsd:decimal\",\"datatypeID\":22,\"valid\":true,\"lexicalForm\":\"0.5\","
        "\"turtle\":\"0.5\",\"binary\":\"05000000000000000100000000000000\"}\n"
        "{\"literal\":\"\\\"x\\\"@en\",\"datatype\":\"rdf:langString\",\"datatypeID\":null,\"valid\":false,\"reason\":"
        "\"notNumeric\",\"message\":\"rdf:langString is not one of the numeric datatypes: xsd:decimal, xsd:integer and "
        "its derived types.\"}\n");
}

TEST(Numdict, EqualListsTheOtherDatatypes) {
    EXPECT_EQ(runProgram("equal 2.5").m_output, "\"2.5E0\"^^xsd:double\n\"2.5E0\"^^xsd:float\n");
    EXPECT_EQ(
        runProgram("equal -- '\"-1\"^^xsd:short'").m_output,
        "\"-1.0E0\"^^xsd:double\n\"-1.0E0\"^^xsd:float\n-1.0\n-1\n\"-1\"^^xsd:nonPositiveInteger\n\"-1\"^^xsd:"
        "negativeInteger\n\"-1\"^^xsd:long\n\"-1\"^^xsd:int\n\"-1\"^^xsd:byte\n");
}

TEST(Numdict, WhatFollowsTwoHyphensIsNoOptionWhereverTheyStand) {
    TemporaryDirectory directory;
    const std::string five = directory.write("five.ttl", "<s> <p> 5 .");
    directory.write("-half.ttl", "<s> <p> -.5 .");
    directory.write("--json", "<s> <p> 7 , 8 .");
    const std::string store = directory.getPath("numbers.store");
    const struct {
        const char* name;
        std::string arguments;
        int exitCode;
        std::string found; // in the output, or in the errors if the arguments are refused
    } rows[] = {
        {"a negative integer needs none", "parse -5", 0, "-5\n  datatype   xsd:integer (ID 23)\n"},
        {"an option that is none", "parse -.25", 2, "-.25"},
        {"before all values", "parse -- -.25 5", 0,
         "  Turtle     -0.25\n  binary     e7ffffffffffffff0200000000000000\n5\n"},
        {"between values", "parse 5 -- -.25", 0, "\n-.25\n  datatype   xsd:decimal"},
        {"behind options", "parse 5 --json -- -.25", 0,
         "\"turtle\":\"5\",\"binary\":\"0500000000000000\"}\n{\"literal\":\"-.25\""},
        {"before what looks like an option", "parse 5 -- --json", 1, "\n--json\n  error "},
        {"before what looks like a command", "parse 5 -- parse", 1, "\nparse\n  error "},
        {"twice", "parse 5 -- -.25 -- 6", 1, "\n--\n  error "},
        {"behind all values", "parse 5 --", 0, "5\n  datatype "},
        {"and nothing else", "parse --", 2, "--file"},
        {"the only value", "equal -- -.5", 0, "\"-5.0E-1\"^^xsd:double\n"},
        {"a value too many", "equal 5 -- -.5 6", 2, "not expected: -.5 6\n"},
        {"a value missing", "diff -- a", 2, "STORE2 is required"},
        {"files", "import --quiet --format ttl five.ttl -- -half.ttl --json", 0, "4 statements in 3 files, "},
        {"after a list", "import --quiet --get 1 -- -half.ttl", 0, "\n1\txsd:decimal\t-0.5\n"},
        {"importing into a store", "import --quiet --threads 1 five.ttl --store numbers.store -- -half.ttl", 0,
         "2 statements in 2 files, "},
        {"after the store", "resolve " + store + " 5 -- -.5", 0, "2\txsd:integer\t5\n1\txsd:decimal\t-0.5\n"},
        {"before the store", "resolve --quiet -- " + store + " -.5", 0, "1\txsd:decimal\t-0.5\n"},
        {"IDs", "get " + store + " 1 -- --trusted", 1, "1\txsd:decimal\t-0.5\n--trusted\t"},
        {"a store", "check -- -half.ttl", 1, "-half.ttl: "},
        {"no command", "-- parse 5", 2, "subcommand"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const ProgramResult result = runProgram(row.arguments, "cd '" + directory.getPath("") + "';");
        EXPECT_EQ(result.m_exitCode, row.exitCode) << result.m_errors;
        const std::string& text = row.exitCode == 2 ? result.m_errors : result.m_output;
        EXPECT_NE(text.find(row.found), std::string::npos) << result.m_output << result.m_errors;
    }
}

TEST(Numdict, LookUpsFollowTheReport) {
    const ProgramResult result = runProgram(
        "import " + DATA +
        "mixed.nt --threads 1 --resolve 5 '\"005\"^^xsd:int' 1.5 '\"6\"^^xsd:int' hello --get 1 3 0 "
        "18446744073709551615");
    EXPECT_EQ(result.m_exitCode, 1);
    const std::string expected =
        "\n1\txsd:integer\t5\n2\txsd:int\t\"5\"^^xsd:int\n3\txsd:decimal\t1.5\n-\txsd:int\t\"6\"^^xsd:int\tnot "
        "found\n-\t-\thello"
        "\tColumn 1: not a Turtle literal: write a number, or a text in quotes such as \"5\"^^xsd:int.\n"
        "1\txsd:integer\t5\n3\txsd:decimal\t1.5\n0\t-\t-\tnot found\n18446744073709551615\t-\t-\tnot found\n";
    EXPECT_TRUE(result.m_output.ends_with(expected)) << result.m_output;
}

TEST(Numdict, LookUpsAfterAnImportPrintWhatResolveAndGetPrint) {
    TemporaryDirectory directory;
    const std::string store = directory.getPath("numbers.store");
    const std::string literals = " 5 '\"005\"^^xsd:int' 1.5 '\"6\"^^xsd:int' '\"x\"^^xsd:int' '\"x\"@en' hello";
    const std::string resourceIDs = " 1 3 0 18446744073709551615";
    const std::string output = runProgram(
                                   "import --quiet --threads 1 --store " + store + " " + DATA + "mixed.nt --resolve" +
                                   literals + " --get" + resourceIDs)
                                   .m_output;
    const std::string answers =
        runProgram("resolve " + store + literals).m_output + runProgram("get " + store + resourceIDs).m_output;
    EXPECT_EQ(std::count(answers.begin(), answers.end(), '\n'), 11);
    EXPECT_TRUE(output.ends_with("\n\n" + answers)) << output << answers;
}

TEST(Numdict, StandardInputIsReadPlainAndPacked) {
    const std::string file = DATA + "mixed.nt";
    for (const std::string& source : {"< " + file, "cat " + file + " |", "gzip -c " + file + " |"}) {
        SCOPED_TRACE(source);
        const ProgramResult result = runProgram("import - --format nt --json --threads 4", source);
        EXPECT_EQ(json::parse(result.m_output)["total"]["literals"], 9);
    }
}

TEST(Numdict, GeneratedDataIsTheSameEveryTimeAndImportsWhole) {
    const ProgramResult first = runProgram("generate --literals 20k --seed 3");
    EXPECT_EQ(first.m_output, runProgram("generate --literals 20000 --seed 3").m_output);
    EXPECT_NE(first.m_output, runProgram("generate --literals 20000 --seed 4").m_output);
    TemporaryDirectory directory;
    const std::string path = directory.write("generated.nt", first.m_output);
    const json report = json::parse(runProgram("import --json " + path).m_output);
    EXPECT_EQ(report["total"]["literals"], 20000);
    EXPECT_EQ(report["total"]["accepted"], 20000);
    EXPECT_GT(report["total"]["distinctValues"], 1000);
    EXPECT_LT(report["total"]["distinctValues"], 10000); // many values are met again and again
    EXPECT_EQ(report["datatypes"]["xsd:integer"]["distinctValues"], 10);
}

TEST(Numdict, NothingIsSaidOnStandardErrorWhenItIsQuiet) {
    EXPECT_EQ(runProgram("import --quiet " + DATA + "mixed.nt").m_errors, "");
}
