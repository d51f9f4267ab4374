#pragma once

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <sys/mman.h>
#include <thread>
#include <vector>

namespace kavix::benchmarks {

/// Touches and frees memory. A virtual machine returns memory that has been free for long to its host; first touches
/// then cost up to fifty times as much, which is unrelated to what is measured. Call it just before the timed part.
inline void warmMemory(size_t numberOfBytes) {
    constexpr size_t PAGE_SIZE = 4096;
    void* const memory = ::mmap(nullptr, numberOfBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return; // it only makes the figures more stable
    ::madvise(memory, numberOfBytes, MADV_HUGEPAGE);
    for (size_t offset = 0; offset < numberOfBytes; offset += PAGE_SIZE)
        static_cast<volatile char*>(memory)[offset] = 1;
    ::munmap(memory, numberOfBytes);
}

inline double getThreadProcessorSeconds() noexcept {
    timespec time;
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

inline double getSeconds() noexcept {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Duration {
    double m_wallSeconds;
    double m_processorSeconds; // of all threads together; excludes the time in which other programs run
};

/// Runs a job on threads that start together; measures from the first start to the last end.
/// @param makeJob  called by each thread with its index before the start; returns what is timed
template<typename MakeJob>
Duration runThreads(size_t numberOfThreads, MakeJob makeJob) {
    std::vector<double> starts(numberOfThreads), ends(numberOfThreads), processorSeconds(numberOfThreads);
    std::barrier barrier(static_cast<std::ptrdiff_t>(numberOfThreads));
    std::vector<std::thread> threads;
    for (size_t index = 0; index < numberOfThreads; ++index)
        threads.emplace_back([&, index] {
            auto job = makeJob(index);
            barrier.arrive_and_wait();
            const double processorStart = getThreadProcessorSeconds();
            starts[index] = getSeconds();
            job();
            ends[index] = getSeconds();
            processorSeconds[index] = getThreadProcessorSeconds() - processorStart;
        });
    for (std::thread& thread : threads)
        thread.join();
    Duration duration{*std::max_element(ends.begin(), ends.end()) - *std::min_element(starts.begin(), starts.end()), 0};
    for (const double seconds : processorSeconds)
        duration.m_processorSeconds += seconds;
    return duration;
}

}
