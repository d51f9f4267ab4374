#pragma once

#include <cstdint>
#include <functional>

// Failures of the calls by which a file takes the place of another: open, flock, ftruncate, fsync, rename. One
// injection at a time. Only for the executable linked with --wrap for these calls; read and write:
// SystemCallInjection.h.

namespace kavix::test {

enum class FileCall : unsigned { OPEN, FLOCK, FTRUNCATE, FSYNC, RENAME };

inline constexpr unsigned NUMBER_OF_FILE_CALLS = 5;

/// While it lives, the n-th call from now on, and no other, fails with an error number.
class FileCallFault {

public:

    /// @param n  1 for the next call
    FileCallFault(FileCall fileCall, uint64_t n, int errorNumber);
    ~FileCallFault();

    FileCallFault(const FileCallFault&) = delete;
    FileCallFault& operator=(const FileCallFault&) = delete;

    /// Whether the call was made to fail.
    bool wasHit() const;
};

/// While it lives, an action runs before and after each of the calls.
class FileCallHook {

public:

    explicit FileCallHook(std::function<void()> action);
    ~FileCallHook();

    FileCallHook(const FileCallHook&) = delete;
    FileCallHook& operator=(const FileCallHook&) = delete;
};

}
