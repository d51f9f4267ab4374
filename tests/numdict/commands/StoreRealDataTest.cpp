// Of all commands on stores together, with real data.

#include "numdict/RealData.h"
#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

using namespace kavix::numdict;
using nlohmann::json;

namespace {

/// All the files of real data, for the shell.
std::string listFiles() {
    std::set<std::string> names;
    std::ifstream file(getDataFolder() / "expected.tsv");
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line))
        if (const std::string name = line.substr(0, line.find('\t')); name != "*")
            names.insert(name);
    std::string list;
    for (const std::string& name : names)
        list += " '" + (getDataFolder() / name).string() + "'";
    return list;
}

}

TEST(StoreRealData, AStoreOfRealDataSurvivesEverythingThatIsDoneToIt) {
    if (!std::filesystem::exists(getDataFolder() / "expected.tsv"))
        GTEST_SKIP() << "no real data in " << getDataFolder() << "; name its folder in KAVIX_TEST_DATA";
    for (const std::string width : {"32", "64"}) {
        SCOPED_TRACE(width);
        TemporaryDirectory directory;
        const std::string store = directory.getPath("real.store");
        const ProgramResult import =
            runProgram("import --json --quiet --id-width " + width + " --store " + store + listFiles());
        ASSERT_LE(import.m_exitCode, 1) << import.m_errors; // there are bad literals in it
        const uint64_t values = json::parse(import.m_output)["total"]["distinctValues"];
        ASSERT_GT(values, 1000u);
        EXPECT_EQ(runProgram("check " + store).m_exitCode, 0);

        for (const std::string format : {"text", "csv", "jsonl"}) {
            SCOPED_TRACE(format);
            const std::string restored = directory.getPath("restored.store");
            EXPECT_EQ(
                runProgram("dump --format " + format + " " + store + " -o " + directory.getPath("dump")).m_exitCode, 0);
            EXPECT_EQ(
                runProgram("restore --id-width " + width + " " + directory.getPath("dump") + " -o " + restored)
                    .m_exitCode,
                0);
            const ProgramResult difference = runProgram("diff " + store + " " + restored);
            EXPECT_EQ(difference.m_exitCode, 0) << difference.m_errors;
            EXPECT_EQ(difference.m_output, "");
        }

        // Every second value goes.
        std::istringstream dump(dumpStore(store));
        std::string line, dropped, expected;
        uint64_t number = 0;
        while (std::getline(dump, line)) {
            const size_t tab = line.find('\t');
            if (number++ % 2 == 0)
                dropped += line.substr(0, tab) + "\n";
            else
                expected += std::to_string(number / 2) + line.substr(tab) + "\n";
        }
        EXPECT_EQ(number, values);
        const std::string small = directory.getPath("small.store");
        const json report = json::parse(
            runProgram("compact --json " + store + " -o " + small + " --drop " + directory.write("dropped", dropped))
                .m_output);
        EXPECT_EQ(report["kept"], values / 2);
        EXPECT_LT(report["memoryAfter"], report["memoryBefore"]);
        EXPECT_LT(std::filesystem::file_size(small), std::filesystem::file_size(store));
        EXPECT_EQ(dumpStore(small), expected);
        EXPECT_EQ(runProgram("check " + small).m_exitCode, 0);
    }
}
