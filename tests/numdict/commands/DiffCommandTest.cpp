#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

using namespace kavix::numdict;

TEST(DiffCommand, ExitCodesTellWhatHappened) {
    const StoreFolder folder;
    const ExpectedEnd rows[] = {
        {"diff of the same", "diff " + folder.m_store + " " + folder.m_store, 0, ""},
        {"diff of others", "diff --quiet " + folder.m_store + " " + folder.m_other, 1, ""},
        {"diff with one", "diff " + folder.m_store, 2, "STORE2"},
        {"diff with a missing one", "diff " + folder.m_store + " " + folder.m_missing, 2, "there is no store"},
        {"diff with a damaged one", "diff " + folder.m_store + " " + folder.m_damaged, 4, "cannot be opened"},
        {"diff to a full disk", "diff " + folder.m_store + " " + folder.m_other + " > /dev/full", 4, "standard output"},
    };
    folder.expectEnds(rows);
}

TEST(DiffCommand, ValuesInOneStoreOnlyAndOtherIDsAreShown) {
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
