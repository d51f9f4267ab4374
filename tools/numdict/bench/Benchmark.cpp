#include "numdict/bench/Benchmark.h"

#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "core/data-store/embedding/Transaction.h"
#include "numdict/console/Failures.h"
#include "numdict/console/WorkerThreads.h"
#include "numdict/import/Import.h"
#include "numdict/input/ByteSource.h"
#include "numdict/input/LineReader.h"
#include "numdict/input/PlainReading.h"
#include "numdict/input/SerdHandles.h"
#include "numdict/input/TurtleReader.h"
#include "numdict/literals/Datatypes.h"
#include "numdict/stores/Resources.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

namespace kavix::numdict {

namespace {

/// What threads take at a time, and what is entered or looked up by one call.
constexpr size_t BATCH_SIZE = 1024;

using Batch = std::vector<ResourceValue>;

/// Keeps the numeric values among the statements, in batches.
class ValueKeeper final : public StatementSink {

public:

    explicit ValueKeeper(uint64_t maximumNumberOfValues) :
        m_maximumNumberOfValues(maximumNumberOfValues) { }

    bool receive(const Statement& statement, const StatementContext&) override {
        ++m_statements;
        if (!statement.hasTypedLiteral())
            return true;
        const uint8_t datatypeID = findNumericDatatype(statement.m_datatypeIRI);
        if (datatypeID == D_NONE)
            return true;
        ++m_literals;
        const std::string_view lexicalForm = statement.getLexicalForm();
        ResourceValue value;
        if (tryParseNumericValue(datatypeID, lexicalForm.data(), lexicalForm.size(), value) != LexicalFormStatus::VALID)
            return true;
        ++m_accepted;
        if (m_keptValues == m_maximumNumberOfValues)
            return true;
        if (m_batches.empty() || m_batches.back().size() == BATCH_SIZE)
            m_batches.emplace_back().reserve(BATCH_SIZE);
        m_batches.back().push_back(value);
        ++m_keptValues;
        return true;
    }

    struct Counts {
        uint64_t m_statements;
        uint64_t m_literals;
        uint64_t m_accepted;
        uint64_t m_keptValues;
    };

    Counts getCounts() const noexcept { return Counts{m_statements, m_literals, m_accepted, m_keptValues}; }

    /// Forgets what was met since then.
    void returnTo(const Counts& counts) {
        m_statements = counts.m_statements;
        m_literals = counts.m_literals;
        m_accepted = counts.m_accepted;
        m_keptValues = counts.m_keptValues;
        m_batches.resize((m_keptValues + BATCH_SIZE - 1) / BATCH_SIZE);
        if (m_keptValues % BATCH_SIZE != 0)
            m_batches.back().resize(m_keptValues % BATCH_SIZE);
    }

    const std::vector<Batch>& getBatches() const noexcept { return m_batches; }

private:

    const uint64_t m_maximumNumberOfValues;
    uint64_t m_statements = 0;
    uint64_t m_literals = 0;
    uint64_t m_accepted = 0;
    uint64_t m_keptValues = 0;
    std::vector<Batch> m_batches;
};

void readFile(const InputFile& input, ValueKeeper& keeper, BenchmarkFile& file) {
    const ValueKeeper::Counts before = keeper.getCounts();
    std::atomic<uint64_t> fileBytesRead{0};
    try {
        if (isLineFormat(input.m_format)) {
            LineBlocks blocks(input.m_path, fileBytesRead);
            LineReader reader(input.m_format, makeBaseIRI(input.m_path), "f_", keeper);
            LineBlock block;
            uint64_t damagedLines = 0;
            while (blocks.next(block)) {
                file.m_bytes += block.m_length;
                damagedLines += reader.read(block, false).m_damagedLines;
            }
            if (damagedLines != 0)
                file.m_error = damagedLines == 1 ? "1 damaged line is skipped"
                                                 : fmt::format("{} damaged lines are skipped", damagedLines);
        }
        else {
            ByteSource source(input.m_path, fileBytesRead);
            TurtleReader reader(source, input.m_format, makeBaseIRI(input.m_path), "f_", keeper);
            if (const std::optional<SyntaxError> error = reader.read()) {
                file.m_error = fmt::format("{}:{}: {}", error->m_line, error->m_column, error->m_message);
                file.m_isLeftOut = true;
            }
            file.m_bytes = reader.getNumberOfBytes();
        }
    }
    catch (const InputFailure& failure) {
        file.m_error = failure.what();
        file.m_isLeftOut = true;
    }
    if (file.m_isLeftOut)
        keeper.returnTo(before);
    file.m_statements = keeper.getCounts().m_statements - before.m_statements;
}

template<typename Work>
double measure(const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Calls work(batch, resourceIDs) for each batch, on several threads; resourceIDs has room for a batch.
template<typename Work>
double measureBatches(unsigned numberOfThreads, const std::vector<Batch>& batches, const Work& work) {
    std::atomic<size_t> nextBatch{0};
    return measure([&] {
        runOnThreads(numberOfThreads, [&](unsigned) {
            std::array<uint64_t, BATCH_SIZE> resourceIDs;
            // Relaxed: it only hands out numbers; the batches are fixed.
            for (size_t index; (index = nextBatch.fetch_add(1, std::memory_order_relaxed)) < batches.size();)
                work(batches[index], resourceIDs.data());
        });
    });
}

/// Samples what a dictionary is charged each millisecond, from a thread of its own, and keeps the maximum.
class PeakObserver : private Unmovable {

public:

    explicit PeakObserver(const Dictionary& dictionary) :
        m_peakBytes(0),
        m_thread([this, &dictionary](const std::stop_token& token) {
            while (!token.stop_requested()) {
                // Relaxed: nothing else is published; the end of the thread publishes the last one.
                m_peakBytes.store(
                    std::max(m_peakBytes.load(std::memory_order_relaxed), dictionary.getUsedBytes()),
                    std::memory_order_relaxed);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }) { }

    /// Ends the observation.
    uint64_t finish() {
        m_thread.request_stop();
        m_thread.join();
        return m_peakBytes.load(std::memory_order_relaxed);
    }

private:

    std::atomic<uint64_t> m_peakBytes;
    std::jthread m_thread;
};

/// Measures with one number of threads.
class ThreadRun : private Unmovable {

public:

    ThreadRun(
        const BenchmarkOptions& options, const std::vector<InputFile>& files, const std::vector<Batch>& batches,
        BenchmarkReport& report, ThreadBenchmark& results) :
        m_options(options),
        m_files(files),
        m_batches(batches),
        m_report(report),
        m_results(results) { }

    /// Does everything once; the first time, which warms up, no times are kept, but the memory is sampled.
    void runOnce(bool isFirst) {
        add(m_results.m_reading, isFirst, measure([this] { readPlainly(m_files, m_results.m_numberOfThreads); }));
        import(isFirst);
        if (m_batches.empty())
            return;
        enter(
            m_results.m_enteringSingly, isFirst,
            [](Transaction& transaction, const Batch& batch, uint64_t* resourceIDs) {
                for (size_t index = 0; index < batch.size(); ++index)
                    resourceIDs[index] = transaction.resolve(batch[index]);
            });
        const std::unique_ptr<Dictionary> dictionary = enter(
            m_results.m_enteringBatches, isFirst,
            [](Transaction& transaction, const Batch& batch, uint64_t* resourceIDs) {
                transaction.resolve(batch, resourceIDs);
            });
        find(m_results.m_findingSingly, isFirst, [&dictionary](const Batch& batch, uint64_t* resourceIDs) {
            for (size_t index = 0; index < batch.size(); ++index)
                resourceIDs[index] = dictionary->tryResolve(batch[index]);
        });
        find(m_results.m_findingBatches, isFirst, [&dictionary](const Batch& batch, uint64_t* resourceIDs) {
            dictionary->tryResolve(batch, resourceIDs);
        });
    }

private:

    static void add(Timing& timing, bool isFirst, double seconds) {
        if (!isFirst)
            timing.m_seconds.push_back(seconds);
    }

    std::unique_ptr<Dictionary> makeDictionary() const {
        return std::make_unique<Dictionary>(m_options.m_dictionaryOptions);
    }

    void import(bool isFirst) {
        const std::unique_ptr<Dictionary> dictionary = makeDictionary();
        ImportOptions options;
        options.m_files = m_files;
        options.m_numberOfThreads = m_results.m_numberOfThreads;
        ImportProgress progress;
        Import import(*dictionary, std::move(options), progress);
        std::optional<PeakObserver> observer;
        if (isFirst)
            observer.emplace(*dictionary);
        const ImportReport report = import.run();
        if (report.m_limitMessage)
            throw BenchmarkLimit(*report.m_limitMessage);
        add(m_results.m_import, isFirst, report.m_seconds);
        if (!isFirst)
            return;
        m_results.m_usedBytes = report.m_memoryUsedBytes;
        m_results.m_peakBytes = std::max(observer->finish(), report.m_memoryUsedBytes);
        m_results.m_hugePageBytes = report.m_hugePageBytes;
        m_report.m_distinctValues = report.m_total.m_distinctValues;
    }

    template<typename Resolve>
    std::unique_ptr<Dictionary> enter(Timing& timing, bool isFirst, const Resolve& resolve) {
        std::unique_ptr<Dictionary> dictionary = makeDictionary();
        Transaction transaction(*dictionary);
        add(timing, isFirst,
            measureBatches(m_results.m_numberOfThreads, m_batches, [&](const Batch& batch, uint64_t* resourceIDs) {
                resolve(transaction, batch, resourceIDs);
            }));
        transaction.commit();
        const uint64_t numberOfValues = countResources(*dictionary);
        if (m_report.m_keptValues == m_report.m_accepted && numberOfValues != m_report.m_distinctValues)
            throw SystemFailure(fmt::format(
                "bench: {} values were inserted, but the import entered {}; did a file change?", numberOfValues,
                m_report.m_distinctValues));
        return dictionary;
    }

    template<typename Find>
    void find(Timing& timing, bool isFirst, const Find& doFind) {
        std::atomic<uint64_t> missing{0};
        const double seconds =
            measureBatches(m_results.m_numberOfThreads, m_batches, [&](const Batch& batch, uint64_t* resourceIDs) {
                doFind(batch, resourceIDs);
                // Relaxed: a sum that is read after the threads have ended.
                if (const auto count = std::count(resourceIDs, resourceIDs + batch.size(), uint64_t(0)))
                    missing.fetch_add(static_cast<uint64_t>(count), std::memory_order_relaxed);
            });
        if (missing.load(std::memory_order_relaxed) != 0)
            throw SystemFailure(fmt::format(
                "bench: {} values that were inserted were not found", missing.load(std::memory_order_relaxed)));
        add(timing, isFirst, seconds);
    }

    const BenchmarkOptions& m_options;
    const std::vector<InputFile>& m_files;
    const std::vector<Batch>& m_batches;
    BenchmarkReport& m_report;
    ThreadBenchmark& m_results;
};

}

double Timing::getMedian() const {
    if (m_seconds.empty())
        return 0;
    std::vector<double> sorted = m_seconds;
    std::sort(sorted.begin(), sorted.end());
    const size_t middle = sorted.size() / 2;
    return sorted.size() % 2 != 0 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

double Timing::getSpread() const {
    const double median = getMedian();
    if (median <= 0)
        return 0;
    const auto [shortest, longest] = std::minmax_element(m_seconds.begin(), m_seconds.end());
    return (*longest - *shortest) / median;
}

double Timing::getPerSecond(uint64_t count) const {
    const double median = getMedian();
    return median > 0 ? static_cast<double>(count) / median : 0;
}

int BenchmarkReport::getExitCode() const noexcept {
    const bool isDamaged =
        std::any_of(m_files.begin(), m_files.end(), [](const BenchmarkFile& file) { return !file.m_error.empty(); });
    return isDamaged || m_accepted != m_literals ? EXIT_DAMAGED_INPUT : EXIT_ALL_WELL;
}

BenchmarkReport runBenchmark(const BenchmarkOptions& options, const std::function<void(std::string)>& reportStep) {
    BenchmarkReport report;
    report.m_numberOfProcessors = getNumberOfProcessors();
    report.m_repetitions = options.m_repetitions;
    report.m_useHugePages = options.m_dictionaryOptions.useHugePages;
    ValueKeeper keeper(options.m_dictionaryOptions.memoryBudgetBytes / sizeof(ResourceValue));
    std::vector<InputFile> files;
    for (const InputFile& input : options.m_files) {
        reportStep("reading " + input.m_path);
        BenchmarkFile& file = report.m_files.emplace_back();
        file.m_path = input.m_path;
        readFile(input, keeper, file);
        if (file.m_isLeftOut)
            continue;
        files.push_back(input);
        report.m_bytes += file.m_bytes;
    }
    report.m_statements = keeper.getCounts().m_statements;
    report.m_literals = keeper.getCounts().m_literals;
    report.m_accepted = keeper.getCounts().m_accepted;
    report.m_keptValues = keeper.getCounts().m_keptValues;
    if (files.empty())
        return report;
    for (const unsigned numberOfThreads : options.m_numbersOfThreads) {
        ThreadBenchmark& results = report.m_threads.emplace_back();
        results.m_numberOfThreads = numberOfThreads;
        ThreadRun run(options, files, keeper.getBatches(), report, results);
        for (unsigned repetition = 0; repetition <= options.m_repetitions; ++repetition) {
            const std::string threads = numberOfThreads == 1 ? "1 thread" : fmt::format("{} threads", numberOfThreads);
            reportStep(
                repetition == 0 ? threads + ", warming up"
                                : fmt::format("{}, run {} of {}", threads, repetition, options.m_repetitions));
            run.runOnce(repetition == 0);
        }
    }
    return report;
}

}
