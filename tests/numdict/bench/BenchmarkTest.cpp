#include "numdict/bench/Benchmark.h"

#include "numdict/JSONKeys.h"
#include "numdict/ProgramRunner.h"
#include "numdict/console/Failures.h"
#include "numdict/input/PlainReading.h"
#include "numdict/literals/LiteralGenerator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>
#include <string>
#include <vector>

using namespace kavix;
using namespace kavix::numdict;
using nlohmann::json;

namespace {

std::string makeStatements(uint64_t seed, int count) {
    LiteralGenerator generator(seed);
    std::string content;
    for (int number = 0; number < count; ++number)
        generator.appendStatement(content);
    return content;
}

BenchmarkReport runOnFiles(std::vector<InputFile> files, uint64_t memoryBytes = 64 << 20) {
    BenchmarkOptions options;
    options.m_files = std::move(files);
    options.m_numbersOfThreads = {1, 3};
    options.m_repetitions = 2;
    options.m_dictionaryOptions.memoryBudgetBytes = memoryBytes / 2;
    return runBenchmark(options, [](const std::string&) {});
}

}

TEST(PlainReading, EveryStatementIsReadOnceByAnyNumberOfThreads) {
    TemporaryDirectory directory;
    // More than one piece of a block, damaged lines in some, and a last line without end.
    std::string damaged = makeStatements(1, 2000);
    damaged +=
        "<x:s> <x:p>\n" + makeStatements(2, 3000) + "<x:s> <x:p> \"unended\n\n# comment\n" + makeStatements(3, 1);
    damaged.pop_back();
    const struct {
        const char* name;
        std::vector<InputFile> files;
        uint64_t statements;
    } rows[] = {
        {"nothing", {{directory.write("empty.nt", ""), RDFFormat::N_TRIPLES}}, 0},
        {"lines", {{directory.write("good.nt", makeStatements(4, 1500)), RDFFormat::N_TRIPLES}}, 1500},
        {"damaged lines", {{directory.write("damaged.nq", damaged), RDFFormat::N_QUADS}}, 5001},
        {"Turtle",
         {{directory.write("a.ttl", "@prefix x: <x:> . x:s x:p 1 , 2 , 3 ; x:q [ x:r 4 ] ."), RDFFormat::TURTLE}},
         5},
        {"several",
         {{directory.getPath("good.nt"), RDFFormat::N_TRIPLES},
          {directory.getPath("a.ttl"), RDFFormat::TURTLE},
          {directory.getPath("damaged.nq"), RDFFormat::N_QUADS},
          {directory.getPath("empty.nt"), RDFFormat::N_TRIPLES}},
         6506},
    };
    for (const auto& row : rows)
        for (const unsigned numberOfThreads : {1u, 2u, 5u}) {
            SCOPED_TRACE(row.name + std::string(", threads: ") + std::to_string(numberOfThreads));
            EXPECT_EQ(readPlainly(row.files, numberOfThreads), row.statements);
        }
    EXPECT_THROW(readPlainly({{directory.getPath("missing.ttl"), RDFFormat::TURTLE}}, 2), InputFailure);
    EXPECT_THROW(readPlainly({{directory.getPath("missing.nt"), RDFFormat::N_TRIPLES}}, 2), InputFailure);
}

TEST(Benchmark, TheMedianIsInTheMiddle) {
    const struct {
        std::vector<double> seconds;
        double median;
        double spread;
    } rows[] = {
        {{}, 0, 0},
        {{3}, 3, 0},
        {{9, 1, 2}, 2, 4},
        {{4, 1, 3, 100}, 3.5, 99 / 3.5},
    };
    for (const auto& row : rows) {
        const Timing timing{row.seconds};
        EXPECT_EQ(timing.getMedian(), row.median);
        EXPECT_EQ(timing.getSpread(), row.spread);
        EXPECT_EQ(timing.getPerSecond(7), row.median == 0 ? 0 : 7 / row.median);
    }
}

TEST(Benchmark, EverythingIsMeasuredAsOftenAsAsked) {
    TemporaryDirectory directory;
    const BenchmarkReport report = runOnFiles(
        {{directory.write("a.nt", makeStatements(1, 3000)), RDFFormat::N_TRIPLES},
         {directory.write("b.ttl", "<s> <p> 5 , 05 , 6.5 , \"x\" ."), RDFFormat::TURTLE}});
    EXPECT_EQ(report.m_statements, 3004u);
    EXPECT_EQ(report.m_literals, 3003u);
    EXPECT_EQ(report.m_accepted, 3003u);
    EXPECT_EQ(report.m_keptValues, 3003u);
    EXPECT_GT(report.m_distinctValues, 100u);
    EXPECT_LT(report.m_distinctValues, 3003u);
    EXPECT_EQ(report.getExitCode(), EXIT_ALL_WELL);
    ASSERT_EQ(report.m_threads.size(), 2u);
    for (size_t index = 0; index < 2; ++index) {
        const ThreadBenchmark& results = report.m_threads[index];
        EXPECT_EQ(results.m_numberOfThreads, index == 0 ? 1u : 3u);
        for (const Timing* timing :
             {&results.m_reading, &results.m_import, &results.m_enteringSingly, &results.m_enteringBatches,
              &results.m_findingSingly, &results.m_findingBatches}) {
            EXPECT_EQ(timing->m_seconds.size(), 2u);
            EXPECT_GT(timing->getMedian(), 0);
        }
        EXPECT_GT(results.m_usedBytes, 200u << 10);
        EXPECT_GE(results.m_peakBytes, results.m_usedBytes);
    }
}

TEST(Benchmark, FilesThatCannotBeReadToTheirEndAreLeftOutWithTheirValues) {
    TemporaryDirectory directory;
    const InputFile good{directory.write("good.nt", makeStatements(1, 1500)), RDFFormat::N_TRIPLES};
    const InputFile skipping{
        directory.write("skipping.nt", "no statement\n" + makeStatements(2, 10)), RDFFormat::N_TRIPLES};
    const InputFile broken{directory.write("broken.ttl", "<s> <p> 1 . <s> <p> 2 . oops"), RDFFormat::TURTLE};
    const BenchmarkReport report = runOnFiles({good, broken, skipping});
    EXPECT_EQ(report.m_keptValues, 1510u);
    EXPECT_EQ(report.m_statements, 1510u);
    EXPECT_EQ(report.m_files[0].m_error, "");
    EXPECT_TRUE(report.m_files[1].m_isLeftOut);
    EXPECT_FALSE(report.m_files[2].m_isLeftOut);
    EXPECT_EQ(report.m_files[2].m_error, "1 damaged line is skipped");
    EXPECT_EQ(report.getExitCode(), EXIT_DAMAGED_INPUT);
    const BenchmarkReport nothing = runOnFiles({broken});
    EXPECT_TRUE(nothing.m_threads.empty());
    EXPECT_NE(formatBenchmark(nothing).find("Nothing was measured"), std::string::npos);
}

TEST(Benchmark, ValuesThatDoNotFitAreImportedButNotKept) {
    TemporaryDirectory directory;
    const InputFile file{directory.write("a.nt", makeStatements(1, 30000)), RDFFormat::N_TRIPLES};
    const uint64_t memoryBytes = 3 << 20;
    const BenchmarkReport report = runOnFiles({file}, memoryBytes);
    EXPECT_EQ(report.m_accepted, 30000u);
    EXPECT_EQ(report.m_keptValues, memoryBytes / 2 / sizeof(ResourceValue));
    EXPECT_NE(formatBenchmark(report).find("(the first 28,086 values; the others do not fit"), std::string::npos)
        << formatBenchmark(report);
    EXPECT_THROW(runOnFiles({file}, 800 << 10), BenchmarkLimit);
}

TEST(Benchmark, ExitCodesTellWhatHappened) {
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

TEST(Benchmark, TheTableAndTheJSONSayTheSame) {
    TemporaryDirectory directory;
    const std::string file = directory.write("a.nt", makeStatements(1, 2500));
    const ProgramResult text = runProgram("bench --quiet --threads 1,2 --repetitions 3 " + file);
    EXPECT_EQ(text.m_errors, "");
    for (const char* part :
         {"1 file, ", "2,500 statements; 2,500 numeric literals, 2,500 of them accepted", "import/reading\n  1 ",
          "\n  2 ", "With 2 threads the import takes ", "look up singly", "bytes a distinct value",
          "Figures are medians of 3 runs after one to warm up", "of the median apart", "huge pages were asked for"})
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
