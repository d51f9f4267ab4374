#include "numdict/bench/Benchmark.h"

#include "numdict/GeneratedStatements.h"
#include "numdict/ProgramRunner.h"
#include "numdict/console/Failures.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace kavix;
using namespace kavix::numdict;

namespace {

BenchmarkReport runOnFiles(std::vector<InputFile> files, uint64_t memoryBytes = 64 << 20) {
    BenchmarkOptions options;
    options.m_files = std::move(files);
    options.m_numbersOfThreads = {1, 3};
    options.m_repetitions = 2;
    options.m_dictionaryOptions.memoryBudgetBytes = memoryBytes / 2;
    return runBenchmark(options, [](const std::string&) {});
}

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
        directory.write("skipping.nt", "not a statement\n" + makeStatements(2, 10)), RDFFormat::N_TRIPLES};
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
