#pragma once

#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>

#include <string>

namespace kavix::numdict {

/// With one thread the IDs are 1 to 8, in this order: integers 5 and -7, decimals 6.5, -0.25 and 5.0, "5"^^xsd:int,
/// "255"^^xsd:unsignedByte, "-1"^^xsd:negativeInteger.
inline const std::string SAMPLE_TURTLE = R"(@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .
<s> <p> 5 , -7 , 6.5 , -0.25 , 5.0 , "005"^^xsd:int , "255"^^xsd:unsignedByte , "-1"^^xsd:negativeInteger , +5 .
)";

inline const std::string SAMPLE_DUMP =
    "1\txsd:integer\t5\n2\txsd:integer\t-7\n3\txsd:decimal\t6.5\n4\txsd:decimal\t-0.25\n5\txsd:decimal\t5.0\n"
    "6\txsd:int\t\"5\"^^xsd:int\n7\txsd:unsignedByte\t\"255\"^^xsd:unsignedByte\n8\txsd:negativeInteger\t\"-1\"^^xsd:"
    "negativeInteger\n";

/// Imports Turtle into a store; returns its path.
inline std::string importTurtle(
    const TemporaryDirectory& directory, const std::string& storeName, const std::string& turtle,
    const std::string& arguments = "") {
    const std::string input = directory.write(storeName + ".ttl", turtle);
    const ProgramResult result = runProgram(
        "import --quiet --threads 1 " + arguments + " --store " + directory.getPath(storeName) + " " + input);
    EXPECT_EQ(result.m_exitCode, 0) << result.m_errors;
    return directory.getPath(storeName);
}

inline std::string makeSampleStore(const TemporaryDirectory& directory, const std::string& width = "32") {
    return importTurtle(directory, "sample" + width + ".store", SAMPLE_TURTLE, "--id-width " + width);
}

inline std::string dumpStore(const std::string& path) {
    return runProgram("dump " + path).m_output;
}

}
