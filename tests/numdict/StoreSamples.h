#pragma once

#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
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

/// A folder with the sample store and what else commands on stores may be given.
struct StoreFolder {

    const TemporaryDirectory m_directory{}; // clang needs the braces: the class has no constructor of its own
    const std::string m_store = makeSampleStore(m_directory);
    const std::string m_other = importTurtle(m_directory, "other.store", "<s> <p> 5 .");
    const std::string m_records = m_directory.write("records", SAMPLE_DUMP);
    const std::string m_damaged = m_directory.write("damaged.store", readFile(m_store).substr(0, 1000));
    const std::string m_missing = m_directory.getPath("missing.store");

    /// Runs commands, none of which may change the sample store or make the missing one.
    template<size_t N>
    void expectEnds(const ExpectedEnd (&rows)[N]) const {
        const std::string before = readFile(m_store);
        for (const ExpectedEnd& row : rows) {
            SCOPED_TRACE(row.m_name);
            expectEnd(row);
            EXPECT_TRUE(readFile(m_store) == before);
            EXPECT_FALSE(std::filesystem::exists(m_missing));
            EXPECT_FALSE(std::filesystem::exists(m_missing + ".unfinished"));
        }
    }
};

}
