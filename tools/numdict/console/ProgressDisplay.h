#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace kavix::numdict {

/// Shows the progress of long work on standard error, from a thread of its own, until it is destroyed: a line that is
/// rewritten on a terminal, otherwise a new line every ten seconds.
class ProgressDisplay {

public:

    /// @param describe  called from the display's thread with the seconds that have passed; returns what to show
    explicit ProgressDisplay(std::function<std::string(double seconds)> describe);

    ProgressDisplay(const ProgressDisplay&) = delete;

    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    ~ProgressDisplay();

private:

    void run();

    const std::function<std::string(double)> m_describe;
    const bool m_isTerminal;
    const std::chrono::steady_clock::time_point m_start;
    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_hasEnded; // guarded by the mutex
    std::thread m_thread;
};

}
