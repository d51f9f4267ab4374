#include "numdict/GeneratedStatements.h"
#include "numdict/JSONKeys.h"
#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>
#include <string>

using namespace kavix::numdict;
using nlohmann::json;

TEST(BenchCommand, ExitCodesTellWhatHappened) {
    TemporaryDirectory directory;
    const std::string good = directory.write("good.nt", makeStatements(1, 100));
    const std::string quick = " --quiet --repetitions 1 --threads 1 ";
    const ExpectedEnd rows[] = {
        {"well", "bench" + quick + good, 0, ""},
        {"no literals", "bench" + quick + directory.write("none.ttl", "<s> <p> <o> ."), 0, ""},
        {"an empty file", "bench" + quick + directory.write("empty.nt", ""), 0, ""},
        {"rejected literals",
         "bench" + quick + directory.write("bad.ttl", "<s> <p> \"x\"^^<http://www.w3.org/2001/XMLSchema#int> ."), 1,
         ""},
        {"a damaged file", "bench" + quick + directory.write("damaged.ttl", "<s> <p"), 1, ""},
        {"no file", "bench", 2, "FILE"},
        {"a missing file", "bench /nonexistent.nt", 2, "bench: there is no file"},
        {"standard input", "bench - --format nt", 2, "standard input"},
        {"an unknown format", "bench --format xml " + good, 2, "nt, nq, ttl, trig"},
        {"no thread", "bench --threads 0 " + good, 2, "--threads"},
        {"too many threads", "bench --threads 1,256 " + good, 2, "--threads"},
        {"no repetition", "bench --repetitions 0 " + good, 2, "--repetitions"},
        {"strange memory", "bench --memory lots " + good, 2, "512M"},
        {"too little memory for an empty dictionary", "bench --memory 10K " + good + quick, 3, "--memory"},
        {"too little memory for the values",
         "bench --memory 450K " + directory.write("many.nt", makeStatements(1, 5000)) + quick, 3, "half of --memory"},
        {"a full disk", "bench" + quick + good + " > /dev/full", 4, "standard output"},
    };
    for (const ExpectedEnd& row : rows)
        expectEnd(row);
}

TEST(BenchCommand, TheTableAndTheJSONSayTheSame) {
    TemporaryDirectory directory;
    const std::string file = directory.write("a.nt", makeStatements(1, 2500));
    const ProgramResult text = runProgram("bench --quiet --threads 1,2 --repetitions 3 " + file);
    EXPECT_EQ(text.m_errors, "");
    for (const char* part :
         {"1 file, ", "2,500 statements; 2,500 numeric literals, 2,500 of them accepted", "import/reading\n  1 ",
          "\n  2 ", "With 2 threads the import takes ", "look up, one at a time", "bytes per distinct value",
          "Figures are medians of 3 runs after one to warm up", "of the median apart", "huge pages were requested"})
        EXPECT_NE(text.m_output.find(part), std::string::npos) << part << "\n" << text.m_output;
    const json report = json::parse(
        runProgram("bench --quiet --json --no-huge-pages --id-width 64 --threads 2 --repetitions 3 " + file).m_output);
    EXPECT_EQ(
        keysOf(report), (std::set<std::string>{
                            "files", "processors", "repetitions", "hugePages", "bytes", "statements", "literals",
                            "accepted", "distinctValues", "keptValues", "runs"}));
    EXPECT_EQ(report["literals"], 2500);
    EXPECT_EQ(report["hugePages"], false);
    ASSERT_EQ(report["runs"].size(), 1u);
    const json& run = report["runs"][0];
    EXPECT_EQ(
        keysOf(run), (std::set<std::string>{
                         "threads", "reading", "import", "importPerReading", "enterSingly", "enterBatches",
                         "lookUpSingly", "lookUpBatches", "memory"}));
    EXPECT_EQ(keysOf(run["memory"]), (std::set<std::string>{"peak", "used", "perDistinctValue", "onHugePages"}));
    EXPECT_EQ(run["threads"], 2);
    EXPECT_EQ(run["import"]["seconds"].size(), 3u);
    EXPECT_DOUBLE_EQ(
        run["importPerReading"].get<double>(),
        run["import"]["median"].get<double>() / run["reading"]["median"].get<double>());
    EXPECT_DOUBLE_EQ(
        run["memory"]["perDistinctValue"].get<double>(),
        run["memory"]["used"].get<double>() / report["distinctValues"].get<double>());
    EXPECT_TRUE(run["memory"]["onHugePages"].is_null() || run["memory"]["onHugePages"] == 0);
}
