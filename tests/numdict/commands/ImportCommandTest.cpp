#include "numdict/JSONKeys.h"
#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

using namespace kavix::numdict;
using nlohmann::json;

namespace {

const std::string DATA = KAVIX_SOURCE_DIRECTORY "/tests/numdict/data/";

}

TEST(ImportCommand, ExitCodesTellWhatHappened) {
    TemporaryDirectory directory;
    const std::string good = directory.write("good.ttl", "<s> <p> 5 , 6.5 .");
    const ExpectedEnd rows[] = {
        {"all well", "import " + good, 0, ""},
        {"rejected literals", "import " + DATA + "mixed.nt", 1, ""},
        {"damaged file", "import " + DATA + "damaged.ttl", 1, ""},
        {"strict", "import --strict " + DATA + "mixed.nt", 1, "stopped at the first fault"},
        {"look-up finds nothing", "import " + good + " --get 77", 1, ""},
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
        {"rejected and JSON in one stream", "import --json --rejected - " + good, 2, "--rejected"},
        {"too little memory", "import --memory 1000 " + good, 3, "--memory"},
        {"rejected to nowhere", "import --rejected /nonexistent/r.nq " + good, 4, "cannot write"},
        {"rejected to a full disk", "import --quiet --rejected - " + DATA + "mixed.nt > /dev/full", 4,
         "standard output"},
        {"standard output full", "import --quiet " + good + " > /dev/full", 4, "standard output"},
        {"empty file", "import --format nt /dev/null", 0, ""},
    };
    for (const ExpectedEnd& row : rows)
        expectEnd(row);
}

TEST(ImportCommand, TheJSONReportHasExactlyItsKeys) {
    const ProgramResult result =
        runProgram("import --json --threads 1 --resolve 5 --get 1 -- " + DATA + "mixed.nt " + DATA + "damaged.ttl");
    EXPECT_EQ(result.m_exitCode, 1);
    const json report = json::parse(result.m_output); // throws if there is anything but the object
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

TEST(ImportCommand, LookUpsFollowTheReport) {
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

TEST(ImportCommand, LookUpsAfterAnImportPrintWhatResolveAndGetPrint) {
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

TEST(ImportCommand, StandardInputIsReadPlainAndPacked) {
    const std::string file = DATA + "mixed.nt";
    for (const std::string& source : {"< " + file, "cat " + file + " |", "gzip -c " + file + " |"}) {
        SCOPED_TRACE(source);
        const ProgramResult result = runProgram("import - --format nt --json --threads 4", source);
        EXPECT_EQ(json::parse(result.m_output)["total"]["literals"], 9);
    }
}

TEST(ImportCommand, NothingIsSaidOnStandardErrorWhenItIsQuiet) {
    EXPECT_EQ(runProgram("import --quiet " + DATA + "mixed.nt").m_errors, "");
}

TEST(ImportCommand, OnlyWhatIsPrintedDifferentlyIsNotCanonical) {
    TemporaryDirectory directory;
    const std::string xsd = "@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .\n";
    const std::string good = directory.write("good.ttl", xsd + "<s> <p> 6.0 , -0.5 , 0.0 , 7 , \"8\"^^xsd:int .");
    EXPECT_EQ(json::parse(runProgram("import --json " + good).m_output)["total"]["nonCanonical"], 0);
    EXPECT_EQ(runProgram("import " + good).m_output.find("(not canonical"), std::string::npos);
    const std::string other =
        directory.write("other.ttl", xsd + "<s> <p> +6.0 , 1.50 , \"6\"^^xsd:decimal , 6.0 , 007 .");
    EXPECT_EQ(json::parse(runProgram("import --json " + other).m_output)["total"]["nonCanonical"], 4);
    const std::string report = runProgram("import " + other).m_output;
    EXPECT_NE(
        report.find("  (not canonical: accepted, but get and dump print another text: 5 for +5, 1.5 for 1.50, 6.0 for "
                    "\"6\"^^xsd:decimal)\n"),
        std::string::npos)
        << report;
}

TEST(ImportCommand, RejectedStatementsGoToStandardOutputAndNothingElseDoes) {
    TemporaryDirectory directory;
    const std::string rejectedPath = directory.getPath("rejected.nq");
    const std::string files = DATA + "mixed.nt " + DATA + "mixed.ttl";
    runProgram("import --quiet --rejected " + rejectedPath + " " + files);
    const std::string rejected = readFile(rejectedPath);
    EXPECT_EQ(std::count(rejected.begin(), rejected.end(), '\n'), 8);
    const ProgramResult result = runProgram(
        "import --quiet --threads 1 --rejected - " + files + " --resolve 5", "cd '" + directory.getPath(".") + "';");
    EXPECT_EQ(result.m_exitCode, 1);
    EXPECT_EQ(result.m_output, rejected);
    EXPECT_NE(result.m_errors.find(" 18 numeric literals"), std::string::npos) << result.m_errors;
    EXPECT_TRUE(result.m_errors.ends_with("1\txsd:integer\t5\n")) << result.m_errors;
    EXPECT_FALSE(std::filesystem::exists(directory.getPath("-")));
    // A file of that name can still be named.
    EXPECT_EQ(
        runProgram("import --quiet --rejected ./- " + files, "cd '" + directory.getPath(".") + "';").m_exitCode, 1);
    EXPECT_EQ(readFile(directory.getPath("-")), rejected);
}

TEST(ImportCommand, RejectedStatementsThatCannotBePrintedLeaveNoStore) {
    TemporaryDirectory directory;
    const std::string store = directory.getPath("numbers.store");
    const ProgramResult result =
        runProgram("import --quiet --rejected - --store " + store + " " + DATA + "mixed.nt > /dev/full");
    EXPECT_EQ(result.m_exitCode, 4);
    EXPECT_FALSE(std::filesystem::exists(store));
}

TEST(ImportCommand, ExamplesOfLegalIntegersBeyondTheCapacityAreExplained) {
    const json examples =
        json::parse(runProgram("import --json --quiet " + DATA + "mixed.nt").m_output)["rejectedExamples"];
    int numberOfExplanations = 0;
    for (const json& example : examples)
        if (example.contains("explanation")) {
            EXPECT_EQ(example["datatype"], "xsd:unsignedLong");
            EXPECT_EQ(
                example["explanation"], "It is a legal xsd:unsignedLong, but Kavix holds integers from "
                                        "-9223372036854775808 to 9223372036854775807.");
            ++numberOfExplanations;
        }
    EXPECT_EQ(numberOfExplanations, 1);
}
