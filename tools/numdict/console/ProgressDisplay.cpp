#include "numdict/console/ProgressDisplay.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

namespace kavix::numdict {

namespace {

/// To the first column, and clears what is there.
constexpr char CLEAR_LINE[] = "\r\033[K";

/// The width of the terminal's window; 0 if it is unknown. It changes when the user resizes the window.
size_t getWindowColumns() noexcept {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}

std::string_view fitToWindow(std::string_view text, size_t columns) noexcept {
    constexpr size_t UNKNOWN_WINDOW_COLUMNS = 80;
    constexpr unsigned char FIRST_BYTE_OF_TWO = 0xC0;
    constexpr unsigned char FIRST_BYTE_OF_THREE = 0xE0;
    size_t freeColumns = (columns != 0 ? columns : UNKNOWN_WINDOW_COLUMNS) - 1;
    size_t length = 0;
    while (length < text.size()) {
        const size_t width = static_cast<unsigned char>(text[length]) < FIRST_BYTE_OF_THREE ? 1 : 2;
        if (width > freeColumns)
            break;
        freeColumns -= width;
        // The bytes that continue the character.
        for (++length; length < text.size() && (static_cast<unsigned char>(text[length]) & FIRST_BYTE_OF_TWO) == 0x80;)
            ++length;
    }
    return text.substr(0, length);
}

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
        std::fputs(CLEAR_LINE, stderr);
}

void ProgressDisplay::run() {
    const std::chrono::milliseconds interval(m_isTerminal ? 200 : 10000);
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_ended.wait_for(lock, interval, [this] { return m_hasEnded; })) {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
        std::string text = m_describe(seconds);
        if (m_isTerminal)
            text = std::string(CLEAR_LINE).append(fitToWindow(text, getWindowColumns()));
        else
            text = "numdict: " + text + "\n";
        std::fputs(text.c_str(), stderr);
    }
}

}
