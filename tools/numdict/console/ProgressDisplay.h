#pragma once

#include "core/platform/system/Unmovable.h"
#include "numdict/import/ImportProgress.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace kavix::numdict {

/// Shows on standard error how far an import, or other long work, is, from a thread of its own, until it is destroyed:
/// a line that is rewritten on a terminal, otherwise a new line every ten seconds.
class ProgressDisplay : private Unmovable {

public:

    explicit ProgressDisplay(const ImportProgress& progress);

    /// @param describe  called from the display's thread with the seconds that have passed; returns what to show
    explicit ProgressDisplay(std::function<std::string(double seconds)> describe);

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

/// "1.2 GiB, 42%, 3,100,000 literals, 2,000,000/s, 1 min 5 s left"; the share and the time left where the total is
/// known.
std::string formatProgress(uint64_t fileBytesRead, uint64_t totalFileBytes, uint64_t literals, double seconds);

}
