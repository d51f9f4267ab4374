#include "numdict/JSONKeys.h"
#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <set>
#include <string>

using namespace kavix::numdict;
using nlohmann::json;

TEST(StatsCommand, ExitCodesTellWhatHappened) {
    const StoreFolder folder;
    const ExpectedEnd rows[] = {
        {"stats well", "stats " + folder.m_store, 0, ""},
        {"stats to a full disk", "stats " + folder.m_store + " > /dev/full", 4, "standard output"},
        {"stats of a damaged store", "stats " + folder.m_damaged, 4, "cannot be opened"},
    };
    folder.expectEnds(rows);
}

TEST(StatsCommand, StatisticsDescribeTablesAndNumbers) {
    for (const std::string width : {"32", "64"}) {
        SCOPED_TRACE(width);
        TemporaryDirectory directory;
        const std::string store = makeSampleStore(directory, width);
        const json report = json::parse(runProgram("stats --json " + store).m_output);
        EXPECT_EQ(
            keysOf(report),
            (std::set<std::string>{
                "store", "idWidth", "values", "datatypes", "fractionDigits", "sharedNumbers", "memory", "components"}));
        EXPECT_EQ(report["idWidth"], std::stoi(width));
        EXPECT_EQ(report["values"], 8);
        EXPECT_EQ(report["sharedNumbers"], 1); // 5, as xsd:integer, xsd:decimal and xsd:int
        EXPECT_EQ(report["datatypes"].size(), 14u);
        const json& decimals = report["datatypes"]["xsd:decimal"];
        EXPECT_EQ(
            keysOf(decimals), (std::set<std::string>{
                                  "live", "deleted", "reserved", "buckets", "load", "committedBytes", "meanProbeLength",
                                  "maxProbeLength", "bytesPerValue", "minimum", "maximum"}));
        EXPECT_EQ(decimals["live"], 3);
        EXPECT_EQ(decimals["deleted"], 0);
        EXPECT_EQ(decimals["reserved"], 97);
        EXPECT_EQ(decimals["buckets"], 1024);
        EXPECT_EQ(decimals["load"], 100.0 / 1024);
        EXPECT_EQ(decimals["committedBytes"], 8192);
        EXPECT_EQ(decimals["minimum"], "-0.25");
        EXPECT_EQ(decimals["maximum"], "6.5");
        EXPECT_EQ(decimals["bytesPerValue"], (8192.0 + 3 * (9 + (width == "32" ? 13 : 17))) / 3);
        EXPECT_EQ(report["datatypes"]["xsd:integer"]["minimum"], "-7");
        EXPECT_EQ(report["datatypes"]["xsd:long"]["minimum"], nullptr);
        EXPECT_EQ(report["fractionDigits"][0], 1);
        EXPECT_EQ(report["fractionDigits"][1], 1);
        EXPECT_EQ(report["fractionDigits"][2], 1);
        EXPECT_EQ(report["components"]["name"], "Dictionary");

        const std::string text = runProgram("stats " + store).m_output;
        EXPECT_TRUE(text.starts_with(
            "datatype\tlive\tdeleted\treserved\tbuckets\tload\tmemory\tmean "
            "probe\tlargest\tbytes/value\tminimum\tmaximum\nxsd:decimal\t3\t0\t97\t1024\t0.098\t8192\t"))
            << text;
        EXPECT_NE(text.find("\nfraction digits\tvalues\n0\t1\n1\t1\n2\t1\n"), std::string::npos) << text;
        EXPECT_NE(text.find("\nnumbers of several datatypes\t1\n"), std::string::npos) << text;
        EXPECT_NE(text.find("\nbytes on huge pages\t"), std::string::npos) << text;
    }
}

// The arrays by resource ID are reserved in full, so they ask for huge pages however small the store is.
TEST(StatsCommand, HugePagesAreReportedAndCanBeTurnedOff) {
    std::ifstream file("/sys/kernel/mm/transparent_hugepage/enabled");
    std::string setting;
    std::getline(file, setting);
    const bool areGranted =
        setting.find("[madvise]") != std::string::npos || setting.find("[always]") != std::string::npos;
    TemporaryDirectory directory;
    const std::string store = makeSampleStore(directory);
    const std::string turtle = directory.write("five.ttl", "<s> <p> 5 .");
    const std::string records = directory.write("records", SAMPLE_DUMP);
    for (const std::string& arguments :
         {"stats --json " + store, "import --json --quiet " + turtle,
          "import --json --quiet --dry-run " + turtle + " --store " + store}) {
        SCOPED_TRACE(arguments);
        const json with = json::parse(runProgram(arguments).m_output)["memory"]["onHugePages"];
        const json without = json::parse(runProgram(arguments + " --no-huge-pages").m_output)["memory"]["onHugePages"];
        EXPECT_EQ(with.is_null(), without.is_null()); // the system reports it, or does not
        if (!without.is_null()) {
            EXPECT_EQ(without, 0);
            EXPECT_TRUE(!areGranted || with > 0) << with;
        }
    }
    for (const std::string& arguments :
         {"resolve " + store + " 5", "get " + store + " 1", "dump " + store,
          "restore " + records + " -o " + directory.getPath("new.store"), "compact " + store,
          "diff " + store + " " + store, "check " + store,
          "check --repair " + store + " -o " + directory.getPath("repaired.store")}) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(runProgram(arguments + " --no-huge-pages").m_exitCode, 0);
    }
}
