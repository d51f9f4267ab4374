#include "numdict/console/ProgressDisplay.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

using namespace kavix::numdict;

namespace {

/// What is shown while nothing comes in; it does not change with time.
const std::string WHOLE_TEXT = "0 bytes, 0 literals, 0/s";

/// An import in a terminal of its own, which waits for input and shows its progress until finish().
class WaitingImport {

public:

    explicit WaitingImport(uint16_t columns) {
        EXPECT_EQ(::pipe2(m_input.data(), O_CLOEXEC), 0);
        winsize size{};
        size.ws_row = 24;
        size.ws_col = columns;
        m_processID = ::forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_processID == 0) {
            ::dup2(m_input[0], STDIN_FILENO);
            ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
            ::execl(NUMDICT_PROGRAM, "numdict", "import", "-", "--format", "nt", "--memory", "64M", nullptr);
            ::_exit(127);
        }
        EXPECT_GT(m_processID, 0);
    }

    ~WaitingImport() { ::close(m_terminal); }

    /// Narrows or widens the window; returns the lines that are shown from then on, the first of which may still be cut
    /// for the width before.
    std::vector<std::string> resize(uint16_t columns) {
        winsize size{};
        size.ws_row = 24;
        size.ws_col = columns;
        EXPECT_EQ(::ioctl(m_terminal, TIOCSWINSZ, &size), 0);
        return showRefreshes();
    }

    /// Three refreshes of the line; the first may be from before the call.
    std::vector<std::string> showRefreshes() {
        m_output.clear();
        while (std::count(m_output.begin(), m_output.end(), '\r') < 4 && read()) { }
        return splitRefreshes();
    }

    /// Ends the input; returns the exit code. The output is what was written since the last refreshes were shown.
    int finish() {
        m_output.clear();
        ::close(m_input[0]);
        ::close(m_input[1]);
        while (read()) { }
        int status = -1;
        ::waitpid(m_processID, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string& getOutput() const { return m_output; }

private:

    bool read() {
        pollfd wanted{m_terminal, POLLIN, 0};
        if (::poll(&wanted, 1, 20000) <= 0)
            return false;
        std::array<char, 256> buffer;
        const ssize_t count = ::read(m_terminal, buffer.data(), buffer.size());
        if (count > 0)
            m_output.append(buffer.data(), static_cast<size_t>(count));
        return count > 0; // a terminal that all others have closed is an error
    }

    /// The texts after a carriage return and before the next one, without the sequence that clears the line.
    std::vector<std::string> splitRefreshes() const {
        static const std::string START = "\r\033[K";
        std::vector<std::string> lines;
        size_t start = m_output.find(START);
        while (start != std::string::npos) {
            const size_t end = m_output.find(START, start + START.size());
            if (end == std::string::npos)
                break;
            lines.push_back(m_output.substr(start + START.size(), end - start - START.size()));
            start = end;
        }
        return lines;
    }

    std::array<int, 2> m_input{};
    int m_terminal = -1;
    pid_t m_processID = -1;
    std::string m_output;
};

}

TEST(ProgressDisplay, TheLineIsShorterThanTheWindowIsWide) {
    WaitingImport import(12);
    for (const std::string& line : import.showRefreshes())
        EXPECT_EQ(line, WHOLE_TEXT.substr(0, 11));
    for (const uint16_t columns : std::initializer_list<uint16_t>{20, 24, 25, 100, 8, 2, 1}) {
        SCOPED_TRACE(columns);
        std::vector<std::string> lines = import.resize(columns);
        ASSERT_GE(lines.size(), 2u);
        EXPECT_EQ(lines.back(), WHOLE_TEXT.substr(0, columns - 1u));
    }
    EXPECT_EQ(import.finish(), 0);
    // Nothing is left: the line is cleared and the cursor is where it was.
    EXPECT_EQ(import.getOutput().find('\n'), std::string::npos);
    EXPECT_TRUE(import.getOutput().ends_with("\r\033[K"));
}

TEST(ProgressDisplay, AWindowOfUnknownWidthIsTakenToHaveEightyColumns) {
    EXPECT_EQ(fitToWindow(std::string(100, 'x'), 0), std::string(79, 'x'));
    WaitingImport import(0);
    for (const std::string& line : import.showRefreshes())
        EXPECT_EQ(line, WHOLE_TEXT);
    EXPECT_EQ(import.finish(), 0);
}

TEST(ProgressDisplay, ALineIsCutBetweenCharacters) {
    const struct {
        const char* text;
        size_t columns;
        const char* expected;
    } rows[] = {
        {"abc", 4, "abc"},
        {"abc", 3, "ab"},
        {"abc", 1, ""},
        {"", 5, ""},
        {"für a", 3, "fü"},
        {"für a", 2, "f"},
        {"a数b", 5, "a数b"}, // 数 takes two columns
        {"a数b", 4, "a数"},
        {"a数b", 3, "a"},
        {"\xFF\xFF\xFF", 4, "\xFF"}, // not a character: of a path
        {"a\x80\x80", 2, "a\x80\x80"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(fitToWindow(row.text, row.columns), row.expected);
    }
}
