/// What does the memory of this machine allow? The figures of a dictionary are best read as a share of this.
///
/// The array is as large as the table of 10 million integers; names are LIMIT/pages:4K or /pages:huge.

#include "support/Keys.h"
#include "support/Scale.h"
#include "support/Timing.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <sys/mman.h>
#include <vector>

namespace kavix::benchmarks {

/// An array in pages of one size, touched.
class PagedArray {

public:

    struct alignas(16) Bucket {
        uint64_t m_first;
        uint64_t m_second;
    };

    PagedArray(size_t numberOfBuckets, bool useHugePages) :
        m_numberOfBytes(numberOfBuckets * sizeof(Bucket) + HUGE_PAGE_SIZE) {
        m_memory = ::mmap(nullptr, m_numberOfBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m_memory == MAP_FAILED)
            throw std::bad_alloc();
        ::madvise(m_memory, m_numberOfBytes, useHugePages ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
        const uintptr_t start =
            (reinterpret_cast<uintptr_t>(m_memory) + HUGE_PAGE_SIZE - 1) / HUGE_PAGE_SIZE * HUGE_PAGE_SIZE;
        m_buckets = std::span(reinterpret_cast<Bucket*>(start), numberOfBuckets);
        for (size_t index = 0; index < numberOfBuckets; ++index)
            m_buckets[index] = {index, 0};
    }

    ~PagedArray() { ::munmap(m_memory, m_numberOfBytes); }

    PagedArray(const PagedArray&) = delete;
    PagedArray& operator=(const PagedArray&) = delete;

    std::span<Bucket> m_buckets;

private:

    static constexpr size_t HUGE_PAGE_SIZE = size_t(1) << 21;

    size_t m_numberOfBytes;
    void* m_memory;
};

size_t getNumberOfBuckets() {
    return std::bit_ceil(scaled(10000000) * 10 / 7);
}

template<typename Job>
void measure(benchmark::State& state, size_t numberOfOperations, Job job) {
    for (auto _ : state) {
        const Duration duration = runThreads(1, [&](size_t) { return job; });
        state.SetIterationTime(duration.m_wallSeconds);
        state.SetItemsProcessed(static_cast<int64_t>(numberOfOperations));
        state.counters["cpu_ns"] = duration.m_processorSeconds * 1e9 / static_cast<double>(numberOfOperations);
    }
}

void dependentReads(benchmark::State& state, bool useHugePages) {
    PagedArray array(getNumberOfBuckets(), useHugePages);
    const size_t mask = array.m_buckets.size() - 1;
    const size_t reads = scaled(5000000);
    measure(state, reads, [&] {
        // The next address depends on the last value, which is always 0. The index keeps the walk from entering a short
        // cycle, as any random function of the position alone soon does.
        uint64_t last = 0;
        for (size_t index = 0; index < reads; ++index)
            last = array.m_buckets[static_cast<uint64_t>(makeRandomInteger(index + last)) & mask].m_second;
        benchmark::DoNotOptimize(last);
    });
}

/// Random buckets, read or written, whose lines are prefetched into level 1 or 2 of the caches: the access pattern of
/// batches.
template<bool WRITES, int LEVEL>
void prefetchedAccess(benchmark::State& state, bool useHugePages) {
    PagedArray array(getNumberOfBuckets(), useHugePages);
    const size_t mask = array.m_buckets.size() - 1;
    const size_t accesses = scaled(20000000);
    const std::vector<int64_t> keys = makeKeys(accesses, 0, makeRandomInteger);
    constexpr size_t DISTANCE = 64;
    measure(state, accesses, [&] {
        uint64_t sum = 0;
        for (size_t index = 0; index < accesses; ++index) {
            if (index + DISTANCE < accesses)
                __builtin_prefetch(
                    &array.m_buckets[static_cast<uint64_t>(keys[index + DISTANCE]) & mask], WRITES, 4 - LEVEL);
            PagedArray::Bucket& bucket = array.m_buckets[static_cast<uint64_t>(keys[index]) & mask];
            if constexpr (WRITES)
                bucket = {index, bucket.m_second + 1};
            else
                sum += bucket.m_first;
        }
        benchmark::DoNotOptimize(sum);
    });
}

void lockedIncrement(benchmark::State& state) {
    static std::atomic<uint64_t> s_counter;
    const size_t increments = scaled(50000000);
    measure(state, increments, [=] {
        for (size_t index = 0; index < increments; ++index)
            s_counter.fetch_add(1, std::memory_order_relaxed);
    });
}

/// Items are bytes here.
void streamingRead(benchmark::State& state, bool useHugePages) {
    PagedArray array(getNumberOfBuckets(), useHugePages);
    constexpr size_t PASSES = 4;
    measure(state, PASSES * array.m_buckets.size_bytes(), [&] {
        uint64_t sums[4] = {};
        for (size_t pass = 0; pass < PASSES; ++pass)
            for (size_t index = 0; index < array.m_buckets.size(); index += 2) {
                sums[0] += array.m_buckets[index].m_first;
                sums[1] += array.m_buckets[index].m_second;
                sums[2] += array.m_buckets[index + 1].m_first;
                sums[3] += array.m_buckets[index + 1].m_second;
            }
        benchmark::DoNotOptimize(sums);
    });
}

template<typename Function>
void registerLimit(const std::string& name, Function function) {
    benchmark::RegisterBenchmark(name.c_str(), function)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

}

int main(int argc, char** argv) {
    using namespace kavix::benchmarks;
    benchmark::Initialize(&argc, argv);
    registerLimit("dependent_reads/pages:4K", [](benchmark::State& state) { dependentReads(state, false); });
    registerLimit("dependent_reads/pages:huge", [](benchmark::State& state) { dependentReads(state, true); });
    for (const bool isHuge : {false, true}) {
        const std::string pages = isHuge ? "pages:huge" : "pages:4K";
        registerLimit("prefetched_reads_level1/" + pages, [=](benchmark::State& state) {
            prefetchedAccess<false, 1>(state, isHuge);
        });
        registerLimit(
            "prefetched_reads/" + pages, [=](benchmark::State& state) { prefetchedAccess<false, 2>(state, isHuge); });
        registerLimit("prefetched_writes_level1/" + pages, [=](benchmark::State& state) {
            prefetchedAccess<true, 1>(state, isHuge);
        });
        registerLimit(
            "prefetched_writes/" + pages, [=](benchmark::State& state) { prefetchedAccess<true, 2>(state, isHuge); });
    }
    registerLimit("streaming_bytes/pages:4K", [](benchmark::State& state) { streamingRead(state, false); });
    registerLimit("streaming_bytes/pages:huge", [](benchmark::State& state) { streamingRead(state, true); });
    registerLimit("locked_increment", lockedIncrement);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
