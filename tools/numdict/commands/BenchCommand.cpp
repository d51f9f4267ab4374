#include "numdict/bench/Benchmark.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/ProgressDisplay.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/console/WorkerThreads.h"
#include "numdict/stores/MemoryBudget.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
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

std::vector<unsigned> getNumbersOfThreads(const BenchCommand& command) {
    if (command.m_numbersOfThreads.empty())
        return getDefaultNumbersOfThreads();
    for (const unsigned number : command.m_numbersOfThreads)
        if (number == 0 || number > MAXIMUM_NUMBER_OF_THREADS)
            throw UsageError(fmt::format(
                "bench: --threads can be 1 to {}, or several of them such as 1,2,4", MAXIMUM_NUMBER_OF_THREADS));
    return command.m_numbersOfThreads;
}

}

int runBenchCommand(const BenchCommand& command) {
    if (std::find(command.m_paths.begin(), command.m_paths.end(), "-") != command.m_paths.end())
        throw UsageError("bench: standard input can be read only once; name files, which are read again and again");
    if (command.m_repetitions == 0)
        throw UsageError("bench: --repetitions must be at least 1");
    BenchmarkOptions options;
    options.m_files = makeInputFiles("bench", command.m_paths, command.m_format);
    options.m_numbersOfThreads = getNumbersOfThreads(command);
    options.m_repetitions = command.m_repetitions;
    options.m_memoryBytes = getMemoryBudget("bench", command.m_memory);
    options.m_resourceIDWidth = command.m_resourceIDWidth == 64 ? ResourceIDWidth::BITS_64 : ResourceIDWidth::BITS_32;
    options.m_useHugePages = !command.m_isWithoutHugePages;

    std::mutex mutex;
    std::string present; // guarded by the mutex
    std::optional<ProgressDisplay> display;
    if (!command.m_isQuiet)
        display.emplace([&](double seconds) {
            const std::lock_guard<std::mutex> lock(mutex);
            return fmt::format("{}, {}", present, formatDuration(seconds));
        });
    try {
        const BenchmarkReport report = runBenchmark(options, [&](std::string what) {
            const std::lock_guard<std::mutex> lock(mutex);
            present = std::move(what);
        });
        display.reset();
        writeStandardOutput(command.m_isJSON ? formatBenchmarkAsJSON(report) : formatBenchmark(report));
        return report.getExitCode();
    }
    catch (const BenchmarkLimit& limit) {
        display.reset();
        std::fputs(
            fmt::format("numdict: bench was stopped: a half of --memory is for the dictionary. {}\n", limit.what())
                .c_str(),
            stderr);
        return EXIT_LIMIT_REACHED;
    }
}

}
