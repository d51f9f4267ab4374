#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>

using namespace kavix::numdict;

TEST(EqualCommand, ExitCodesTellWhatHappened) {
    const ExpectedEnd rows[] = {
        {"equal well", "equal 5", 0, ""},
        {"equal of a bad literal", "equal '\"300\"^^xsd:byte'", 1, "not in the range"},
        {"equal of what is too large", "equal 99999999999999999999", 1, "It is a legal xsd:integer, but Kavix holds"},
        {"equal of what is not a literal", "equal hello", 2, "not a literal"},
    };
    for (const ExpectedEnd& row : rows)
        expectEnd(row);
}

TEST(EqualCommand, TheOtherDatatypesAreListed) {
    EXPECT_EQ(runProgram("equal 2.5").m_output, "\"2.5E0\"^^xsd:double\n\"2.5E0\"^^xsd:float\n");
    EXPECT_EQ(
        runProgram("equal -- '\"-1\"^^xsd:short'").m_output,
        "\"-1.0E0\"^^xsd:double\n\"-1.0E0\"^^xsd:float\n-1.0\n-1\n\"-1\"^^xsd:nonPositiveInteger\n\"-1\"^^xsd:"
        "negativeInteger\n\"-1\"^^xsd:long\n\"-1\"^^xsd:int\n\"-1\"^^xsd:byte\n");
}

TEST(EqualCommand, FloatingPointNumbersHaveAllTheirDigits) {
    const std::string large = runProgram("equal 123456789").m_output;
    EXPECT_TRUE(large.starts_with("\"1.23456789E8\"^^xsd:double\n\"1.2345679E8\"^^xsd:float\n")) << large;
    const std::string uneven = runProgram("equal 16777217").m_output;
    EXPECT_TRUE(uneven.starts_with("\"1.6777217E7\"^^xsd:double\n\"1.6777216E7\"^^xsd:float\n")) << uneven;
}
