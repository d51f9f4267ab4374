#pragma once

#include "core/platform/collections/ThreadSlots.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kavix::test {

/// How many threads can still get a slot: what a test may start, after whatever ran in the process.
inline size_t getNumberOfFreeSlots() {
    return NUMBER_OF_THREAD_SLOTS - ThreadSlots::getNumberOfTakenSlots();
}

/// Ends the process with a message unless it is stopped in time, so that a deadlock is a failed test and not a hang.
class Watchdog {

public:

    explicit Watchdog(const char* what) :
        m_what(what),
        m_thread([this] { watch(); }) { }

    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    ~Watchdog() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_isStopped = true;
        }
        m_condition.notify_all();
        m_thread.join();
    }

private:

    static constexpr std::chrono::seconds LIMIT{100};

    void watch() {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_condition.wait_until(lock, std::chrono::system_clock::now() + LIMIT, [this] { return m_isStopped; })) {
            std::fprintf(
                stderr, "DEADLOCK: %s did not end within %lld s\n", m_what, static_cast<long long>(LIMIT.count()));
            std::abort();
        }
    }

    const char* const m_what;
    bool m_isStopped = false;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::thread m_thread;
};

/// Releases all threads at once when the last has arrived. It spins, so that they really overlap.
class StartLine {

public:

    explicit StartLine(size_t numberOfThreads) :
        m_missing(numberOfThreads) { }

    void arriveAndWait() {
        m_missing.fetch_sub(1, std::memory_order_acq_rel);
        while (m_missing.load(std::memory_order_acquire) != 0)
            std::this_thread::yield();
    }

private:

    std::atomic<size_t> m_missing;
};

/// Runs body(threadIndex) in n threads that have slots and start together; returns when all have ended. Rethrows the
/// first exception that left a body. The calling thread needs no slot.
inline void runThreads(size_t n, const std::function<void(size_t)>& body) {
    const Watchdog watchdog("runThreads");
    StartLine startLine(n);
    std::mutex mutex;
    std::exception_ptr firstFailure;
    std::vector<std::thread> threads;
    threads.reserve(n);
    for (size_t threadIndex = 0; threadIndex < n; ++threadIndex)
        threads.emplace_back([&, threadIndex] {
            try {
                std::exception_ptr slotFailure;
                try {
                    ThreadSlots::ensureSlot();
                }
                catch (...) {
                    slotFailure = std::current_exception();
                }
                startLine.arriveAndWait(); // also without a slot: the others wait for us
                if (slotFailure)
                    std::rethrow_exception(slotFailure);
                body(threadIndex);
            }
            catch (...) {
                const std::lock_guard<std::mutex> lock(mutex);
                if (!firstFailure)
                    firstFailure = std::current_exception();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    if (firstFailure)
        std::rethrow_exception(firstFailure);
}

/// Spins until a condition holds that another thread establishes.
template<typename Condition>
void waitUntil(Condition condition) {
    while (!condition())
        std::this_thread::yield();
}

/// Gives other threads many chances to run. Only for showing that they cannot do something in that time: a test that is
/// right passes whether or not they used the chances.
inline void letOthersRun() {
    for (size_t i = 0; i < 100; ++i)
        std::this_thread::yield();
}

}
