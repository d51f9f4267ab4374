/// Is the cost per value constant from thousands to hundreds of millions of values? And the memory, and the waits?
///
/// Names are OPERATION/WIDTH/threads:N/VALUES. KAVIX_BENCHMARK_MAXIMUM limits the number of values, by default 10^7;
/// 2*10^8 takes about 14 GB.

#include "support/Keys.h"
#include "support/Store.h"
#include "support/Timing.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kavix::benchmarks {

/// Inserts or looks up the random integers of indexes [first, last), which are computed in the loop.
template<typename Session>
void runRange(Session& session, size_t first, size_t last, bool isLookup) {
    std::array<int64_t, BATCH_SIZE> keys;
    std::array<uint64_t, BATCH_SIZE> resourceIDs;
    while (first < last) {
        const size_t count = std::min(BATCH_SIZE, last - first);
        for (size_t index = 0; index < count; ++index)
            keys[index] = makeRandomInteger(first + index);
        if (isLookup)
            session.tryResolve(std::span<const int64_t>(keys.data(), count), resourceIDs.data());
        else
            session.resolve(std::span<const int64_t>(keys.data(), count), resourceIDs.data());
        benchmark::DoNotOptimize(resourceIDs);
        first += count;
    }
}

template<typename Map>
Duration runOnThreads(Map& map, size_t numberOfValues, size_t numberOfThreads, size_t passes, bool isLookup) {
    return runThreads(numberOfThreads, [&](size_t threadIndex) {
        const size_t first = numberOfValues * threadIndex / numberOfThreads;
        const size_t last = numberOfValues * (threadIndex + 1) / numberOfThreads;
        return [=, session = std::make_shared<typename Map::Session>(map)] {
            for (size_t pass = 0; pass < passes; ++pass)
                runRange(*session, first, last, isLookup);
        };
    });
}

/// Enough maps or passes that few values still take a measurable time.
size_t getPasses(size_t numberOfValues) {
    return std::max<size_t>(1, 200000 / numberOfValues);
}

template<typename Map>
void measure(benchmark::State& state, size_t numberOfThreads, bool isLookup) {
    const size_t values = static_cast<size_t>(state.range(0));
    const size_t passes = getPasses(values);
    for (auto _ : state) {
        warmMemory(values * 80);
        Duration duration{0, 0};
        if (isLookup) {
            Map map(values, 0);
            runOnThreads(map, values, 1, 1, false);
            duration = runOnThreads(map, values, numberOfThreads, passes, true);
        }
        else
            for (size_t pass = 0; pass < passes; ++pass) {
                Map map(values, 0);
                const Duration once = runOnThreads(map, values, numberOfThreads, 1, false);
                duration.m_wallSeconds += once.m_wallSeconds;
                duration.m_processorSeconds += once.m_processorSeconds;
                state.counters["bytes_per_value"] =
                    static_cast<double>(map.m_store.m_memoryManager.getChargedBytes()) / static_cast<double>(values);
                state.counters["bucket_bytes_per_value"] =
                    static_cast<double>(map.m_dictionary.getIntegerTable(D_XSD_INTEGER).getCommittedBytes()) /
                    static_cast<double>(values);
            }
        state.SetIterationTime(duration.m_wallSeconds);
        state.SetItemsProcessed(static_cast<int64_t>(values * passes));
        state.counters["cpu_ns"] = duration.m_processorSeconds * 1e9 / static_cast<double>(values * passes);
    }
}

/// A separate run, because reading the clock at every operation and monitoring the budget disturb the times.
template<typename Map>
void measureGrowth(benchmark::State& state, size_t numberOfThreads) {
    const size_t values = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        warmMemory(values * 80);
        Map map(values, 0);
        std::atomic<bool> isDone = false;
        uint64_t peakBytes = 0;
        std::thread watcher([&] {
            while (!isDone.load(std::memory_order_relaxed)) {
                peakBytes = std::max(peakBytes, map.m_store.m_memoryManager.getChargedBytes());
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        });
        std::vector<double> longest(numberOfThreads);
        const Duration duration = runThreads(numberOfThreads, [&](size_t threadIndex) {
            const size_t first = values * threadIndex / numberOfThreads;
            const size_t last = values * (threadIndex + 1) / numberOfThreads;
            return [=, &longest, session = std::make_shared<typename Map::Session>(map)] {
                double longestWait = 0;
                double before = getSeconds();
                for (size_t index = first; index < last; ++index) {
                    runRange(*session, index, index + 1, false);
                    const double now = getSeconds();
                    longestWait = std::max(longestWait, now - before);
                    before = now;
                }
                longest[threadIndex] = longestWait;
            };
        });
        isDone = true;
        watcher.join();
        state.SetIterationTime(duration.m_wallSeconds);
        state.SetItemsProcessed(static_cast<int64_t>(values));
        state.counters["peak_bytes_per_value"] = static_cast<double>(peakBytes) / static_cast<double>(values);
        state.counters["longest_operation_ms"] = *std::max_element(longest.begin(), longest.end()) * 1000;
    }
}

template<typename ResourceID>
void registerWidth(const std::string& width, size_t maximum) {
    using Single = KavixMap<int64_t, ResourceID, Manner::SINGLE>;
    using Batched = KavixMap<int64_t, ResourceID, Manner::BATCHED>;
    for (const size_t threads : {size_t(1), size_t(2), size_t(8)}) {
        const std::string suffix = '/' + width + "/threads:" + std::to_string(threads);
        const auto add = [&](const std::string& name, auto function) {
            auto* registered = benchmark::RegisterBenchmark((name + suffix).c_str(), function);
            for (const size_t values : {1000u, 10000u, 100000u, 1000000u, 10000000u, 50000000u, 100000000u, 200000000u})
                if (values <= maximum)
                    registered->Arg(static_cast<int64_t>(values));
            registered->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
        };
        add("insert", [=](benchmark::State& state) { measure<Single>(state, threads, false); });
        add("insert_batched", [=](benchmark::State& state) { measure<Batched>(state, threads, false); });
        add("present", [=](benchmark::State& state) { measure<Single>(state, threads, true); });
        add("present_batched", [=](benchmark::State& state) { measure<Batched>(state, threads, true); });
        add("growth", [=](benchmark::State& state) { measureGrowth<Single>(state, threads); });
    }
}

}

int main(int argc, char** argv) {
    using namespace kavix::benchmarks;
    benchmark::Initialize(&argc, argv);
    const char* maximum = std::getenv("KAVIX_BENCHMARK_MAXIMUM");
    const size_t maximumNumberOfValues = maximum == nullptr ? 10000000 : static_cast<size_t>(std::atoll(maximum));
    registerWidth<unsigned int>("32-bit", maximumNumberOfValues);
    registerWidth<unsigned long>("64-bit", maximumNumberOfValues);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
