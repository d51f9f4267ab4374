#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>

#include <string>

using namespace kavix::numdict;

TEST(Arguments, WhatFollowsTwoHyphensIsAValueEverywhere) {
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
        {"after options", "parse 5 --json -- -.25", 0,
         "\"turtle\":\"5\",\"binary\":\"0500000000000000\"}\n{\"literal\":\"-.25\""},
        {"before what looks like an option", "parse 5 -- --json", 1, "\n--json\n  error "},
        {"before what looks like a command", "parse 5 -- parse", 1, "\nparse\n  error "},
        {"twice", "parse 5 -- -.25 -- 6", 1, "\n--\n  error "},
        {"after all values", "parse 5 --", 0, "5\n  datatype "},
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
