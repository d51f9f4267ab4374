#pragma once

#include <algorithm>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace kavix::numdict {

/// The most threads that a command can be given: a dictionary serves 256, and the first thread of the program may be
/// one more than the workers.
inline constexpr unsigned MAXIMUM_NUMBER_OF_THREADS = 255;

/// How many threads the machine runs at once, 1 to MAXIMUM_NUMBER_OF_THREADS.
inline unsigned getNumberOfProcessors() noexcept {
    return std::clamp(std::thread::hardware_concurrency(), 1u, MAXIMUM_NUMBER_OF_THREADS);
}

/// Runs work(index) for each index below a number of threads, on as many threads, of which the caller's is one; returns
/// when all have ended.
/// @throws what one of them threw, the first of those that threw; std::system_error if the system refuses a thread
template<typename Work>
void runOnThreads(unsigned numberOfThreads, const Work& work) {
    std::mutex mutex;
    std::exception_ptr failure;
    const auto runGuarded = [&](unsigned index) {
        try {
            work(index);
        }
        catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            if (!failure)
                failure = std::current_exception();
        }
    };
    {
        std::vector<std::jthread> threads;
        for (unsigned index = 1; index < numberOfThreads; ++index)
            threads.emplace_back([&runGuarded, index] { runGuarded(index); });
        runGuarded(0);
    }
    if (failure)
        std::rethrow_exception(failure);
}

}
