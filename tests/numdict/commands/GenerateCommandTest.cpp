#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

using namespace kavix::numdict;
using nlohmann::json;

TEST(GenerateCommand, ExitCodesTellWhatHappened) {
    const ExpectedEnd rows[] = {
        {"generate to a full disk", "generate --literals 10 > /dev/full", 4, "standard output"},
        {"generate to a full file", "generate --literals 10 -o /dev/full", 4, "/dev/full"},
        {"generate what", "generate --literals many", 2, "--literals"},
    };
    for (const ExpectedEnd& row : rows)
        expectEnd(row);
}

TEST(GenerateCommand, GeneratedDataIsTheSameEveryTimeAndImportsWhole) {
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
