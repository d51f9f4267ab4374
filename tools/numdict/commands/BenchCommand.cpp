#include "numdict/bench/Benchmark.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/ProgressDisplay.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardError.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/console/WorkerThreads.h"
#include "numdict/stores/DictionaryOptions.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

namespace kavix::numdict {

namespace {

/// 1, 2, 4 and so on up to all processors, and all of them.
std::vector<unsigned> getDefaultNumbersOfThreads() {
    const unsigned numberOfProcessors = getNumberOfProcessors();
    std::vector<unsigned> numbers;
    for (unsigned number = 1; number < numberOfProcessors; number *= 2)
        numbers.push_back(number);
    numbers.push_back(numberOfProcessors);
    return numbers;
}

BenchmarkOptions makeBenchmarkOptions(const BenchCommand& command) {
    BenchmarkOptions options;
    options.m_files = makeInputFiles("bench", command.m_paths, command.m_format);
    options.m_numbersOfThreads =
        command.m_numbersOfThreads.empty() ? getDefaultNumbersOfThreads() : command.m_numbersOfThreads;
    options.m_repetitions = command.m_repetitions;
    options.m_dictionaryOptions = makeDictionaryOptions(
        getMemoryBudget("bench", command.m_options.m_memory) / 2, command.m_options, command.m_resourceIDWidth);
    return options;
}

}

int runBenchCommand(const BenchCommand& command) {
    if (std::find(command.m_paths.begin(), command.m_paths.end(), "-") != command.m_paths.end())
        throw UsageError("bench: standard input can be read only once; specify files, which are read several times");
    const BenchmarkOptions options = makeBenchmarkOptions(command);

    std::mutex mutex;
    std::string currentStep; // guarded by the mutex
    std::optional<ProgressDisplay> display;
    if (!command.m_options.m_isQuiet)
        display.emplace([&](double seconds) {
            const std::lock_guard<std::mutex> lock(mutex);
            return fmt::format("{}, {}", currentStep, formatDuration(seconds));
        });
    try {
        const BenchmarkReport report = runBenchmark(options, [&](std::string what) {
            const std::lock_guard<std::mutex> lock(mutex);
            currentStep = std::move(what);
        });
        display.reset();
        writeStandardOutput(command.m_isJSON ? formatBenchmarkAsJSON(report) : formatBenchmark(report));
        return report.getExitCode();
    }
    catch (const BenchmarkLimit& limit) {
        display.reset();
        printMessage(fmt::format("bench was stopped: half of --memory is for the dictionary. {}", limit.what()));
        return EXIT_LIMIT_REACHED;
    }
}

}
