#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>

#include <string>

using namespace kavix::numdict;

TEST(ParseCommand, ExitCodesTellWhatHappened) {
    const ExpectedEnd rows[] = {
        {"parse to a full disk", "parse 5 > /dev/full", 4, "standard output"},
        {"parse well", "parse 5", 0, ""},
        {"parse nothing", "parse", 2, "--file"},
        {"parse a missing file", "parse --file /nonexistent", 2, "/nonexistent"},
        {"parse badly", "parse 5 hello", 1, ""},
    };
    for (const ExpectedEnd& row : rows)
        expectEnd(row);
}

TEST(ParseCommand, EachLiteralIsAnsweredWithALineOfJSON) {
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
        "xsd:integer.\",\"explanation\":\"It is a legal xsd:integer, but Kavix holds integers from "
        "-9223372036854775808 to 9223372036854775807.\"}\n"
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

TEST(ParseCommand, ALegalIntegerBeyondTheCapacityIsExplained) {
    EXPECT_EQ(
        runProgram("parse 99999999999999999999 '\"-9223372036854775809\"^^xsd:negativeInteger'").m_output,
        "99999999999999999999\n  error      Lexical form '99999999999999999999' is invalid for datatype xsd:integer. "
        "It "
        "is a legal xsd:integer, but Kavix holds integers from -9223372036854775808 to 9223372036854775807. "
        "(beyondCapacity)\n"
        "\"-9223372036854775809\"^^xsd:negativeInteger\n  error      Lexical form '-9223372036854775809' is invalid "
        "for "
        "datatype xsd:negativeInteger. It is a legal xsd:negativeInteger, but Kavix holds integers from "
        "-9223372036854775808 to 9223372036854775807. (beyondCapacity)\n");
    for (const char* literal :
         {"'\"99999999999999999999\"^^xsd:long'", "99999999999999999999x", "0.12345678901234567891"})
        EXPECT_EQ(runProgram(std::string("parse ") + literal).m_output.find("legal"), std::string::npos) << literal;
}
