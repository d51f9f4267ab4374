#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

using namespace kavix::numdict;

TEST(ResolveCommand, ExitCodesTellWhatHappened) {
    const StoreFolder folder;
    const ExpectedEnd rows[] = {
        {"resolve well", "resolve " + folder.m_store + " 5", 0, ""},
        {"resolve what is absent", "resolve " + folder.m_store + " 99", 1, ""},
        {"resolve what is not a literal", "resolve " + folder.m_store + " hello", 1, ""},
        {"resolve nothing", "resolve " + folder.m_store, 2, "--file"},
        {"resolve without store", "resolve", 2, "STORE"},
        {"resolve in a missing store", "resolve " + folder.m_missing + " 5", 2, "there is no store"},
        {"resolve in a directory", "resolve /tmp 5", 2, "is not a regular file"},
        {"resolve in a damaged store", "resolve " + folder.m_damaged + " 5", 4, "cannot be opened"},
        {"resolve with too little memory", "resolve --memory 10K " + folder.m_store + " 5", 3, "--memory"},
        {"resolve with strange memory", "resolve --memory lots " + folder.m_store + " 5", 2, "512M"},
        {"resolve a missing file", "resolve " + folder.m_store + " --file /nonexistent", 2, "/nonexistent"},
        {"resolve to a full disk", "resolve " + folder.m_store + " 5 > /dev/full", 4, "standard output"},
        {"get well", "get " + folder.m_store + " 1 2", 0, ""},
        {"get what is absent", "get " + folder.m_store + " 1 77", 1, ""},
        {"get zero", "get " + folder.m_store + " 0", 1, ""},
        {"get what is not an ID", "get " + folder.m_store + " x", 1, ""},
        {"get beyond 64 bits", "get " + folder.m_store + " 18446744073709551616", 1, ""},
        {"get nothing", "get " + folder.m_store, 2, "--file"},
        {"get from a damaged store", "get " + folder.m_damaged + " 1", 4, "cannot be opened"},
    };
    folder.expectEnds(rows);
}

TEST(ResolveCommand, ResolveAnswersEachLiteralWithALine) {
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

TEST(ResolveCommand, GetAnswersEachIDWithALine) {
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

TEST(ResolveCommand, ALegalIntegerBeyondTheCapacityIsExplained) {
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string message = "Lexical form '99999999999999999999' is invalid for datatype xsd:integer.";
    const std::string explanation =
        "It is a legal xsd:integer, but Kavix holds integers from -9223372036854775808 to 9223372036854775807.";
    EXPECT_EQ(
        runProgram("resolve " + store + " 99999999999999999999").m_output,
        "-\txsd:integer\t99999999999999999999\t" + message + " " + explanation + "\n");
    EXPECT_EQ(
        runProgram("resolve --json " + store + " 99999999999999999999").m_output,
        "{\"id\":null,\"datatype\":\"xsd:integer\",\"literal\":\"99999999999999999999\",\"reason\":"
        "\"beyondCapacity\",\"message\":\"" +
            message + "\",\"explanation\":\"" + explanation + "\"}\n");
}
