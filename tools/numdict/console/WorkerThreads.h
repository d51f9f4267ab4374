#pragma once

#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace kavix::numdict {

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
