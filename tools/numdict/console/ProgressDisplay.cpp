#include "numdict/console/ProgressDisplay.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace kavix::numdict {

ProgressDisplay::ProgressDisplay(std::function<std::string(double)> describe) :
    m_describe(std::move(describe)),
    m_isTerminal(::isatty(STDERR_FILENO) == 1),
    m_start(std::chrono::steady_clock::now()),
    m_hasEnded(false),
    m_thread([this] { run(); }) { }

ProgressDisplay::~ProgressDisplay() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_hasEnded = true;
    }
    m_ended.notify_one();
    m_thread.join();
    if (m_isTerminal)
        std::fputs("\r\033[K", stderr);
}

void ProgressDisplay::run() {
    const std::chrono::milliseconds interval(m_isTerminal ? 200 : 10000);
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_ended.wait_for(lock, interval, [this] { return m_hasEnded; })) {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
        const std::string text = m_describe(seconds);
        std::fputs((m_isTerminal ? "\r\033[K" + text : "numdict: " + text + "\n").c_str(), stderr);
    }
}

}
