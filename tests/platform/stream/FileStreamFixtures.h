#pragma once

#include "core/platform/errors/SystemCallException.h"
#include "core/platform/stream/FileOutputStream.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <sys/time.h>
#include <unistd.h>

// What the tests of both file streams need: contents, pipes, interruptions.

namespace kavix::test {

inline constexpr size_t BUFFER_SIZE = FileOutputStream::BUFFER_SIZE;

/// A test with a folder of its own.
class FileStreamTest : public testing::Test {

protected:

    const TemporaryFolder m_folder;
};

/// Bytes that differ from their neighbours, so that any that are lost, doubled or swapped are noticed.
inline std::string makeContent(size_t numberOfBytes, uint32_t seed = 1) {
    std::mt19937 generator(seed);
    std::string content(numberOfBytes, '\0');
    std::generate(content.begin(), content.end(), [&generator] { return static_cast<char>(generator()); });
    return content;
}

/// How many files this process has open.
inline size_t countDescriptors() {
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}

inline void expectSystemCallException(
    const std::function<void()>& operation, const std::string& systemCall, int errorNumber,
    const std::string& fileName) {
    try {
        operation();
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const SystemCallException& exception) {
        EXPECT_EQ(exception.getSystemCall(), systemCall);
        EXPECT_EQ(exception.getErrorNumber(), errorNumber);
        EXPECT_NE(exception.getMessage().find("'" + fileName + "'"), std::string::npos) << exception.getMessage();
    }
}

/// A pipe whose ends are named like files; both ends are opened again by the streams under test.
class Pipe {

public:

    Pipe() { EXPECT_EQ(::pipe2(m_fileDescriptors, O_CLOEXEC), 0); }

    ~Pipe() {
        closeWritingEnd();
        ::close(m_fileDescriptors[0]);
    }

    Pipe(const Pipe&) = delete;

    Pipe& operator=(const Pipe&) = delete;

    int getReadingEnd() const { return m_fileDescriptors[0]; }

    int getWritingEnd() const { return m_fileDescriptors[1]; }

    std::string getReadingName() const { return "/dev/fd/" + std::to_string(m_fileDescriptors[0]); }

    std::string getWritingName() const { return "/dev/fd/" + std::to_string(m_fileDescriptors[1]); }

    void closeWritingEnd() {
        if (m_fileDescriptors[1] >= 0)
            ::close(m_fileDescriptors[1]);
        m_fileDescriptors[1] = -1;
    }

private:

    int m_fileDescriptors[2] = {-1, -1};
};

/// Interrupts system calls every millisecond; the third interruption runs an action, which must be safe in a signal
/// handler. One at a time.
class Interruptions {

public:

    explicit Interruptions(void (*action)()) {
        s_action = action;
        s_numberOfInterruptions = 0;
        struct sigaction handling = {};
        handling.sa_handler = &onInterruption; // without SA_RESTART: calls fail with EINTR
        EXPECT_EQ(::sigaction(SIGALRM, &handling, &m_previousHandling), 0);
        const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
        EXPECT_EQ(::setitimer(ITIMER_REAL, &everyMillisecond, nullptr), 0);
    }

    ~Interruptions() {
        const itimerval never{};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &m_previousHandling, nullptr);
    }

    Interruptions(const Interruptions&) = delete;

    Interruptions& operator=(const Interruptions&) = delete;

    static int getNumberOfInterruptions() { return s_numberOfInterruptions; }

private:

    static void onInterruption(int) {
        const int previousError = errno;
        s_numberOfInterruptions = s_numberOfInterruptions + 1;
        if (s_numberOfInterruptions == 3)
            s_action();
        errno = previousError;
    }

    static inline void (*s_action)() = nullptr;
    static inline volatile std::sig_atomic_t s_numberOfInterruptions = 0;

    struct sigaction m_previousHandling = {};
};

}
