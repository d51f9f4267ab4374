#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace kavix::numdict {

/// The start of a UTF-8 text that stays in one line of a window and leaves its last column free: a terminal may start
/// a new line after a character there. Characters of three and four bytes are taken to be two columns wide.
/// @param columns  the width of the window; 0 if it is unknown, which is taken as 80
std::string_view fitToWindow(std::string_view text, size_t columns) noexcept;

/// Shows the progress of long work on standard error, from a thread of its own, until it is destroyed: on a terminal a
/// line that is rewritten, cut to the width that the window has at that moment, otherwise a new line every ten seconds.
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
