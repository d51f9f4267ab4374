#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

// Failures of the system calls that the fault tests link through wrappers: mmap, mprotect, read, write. One injection
// at a time; it counts the calls of all threads. Only for the executable linked with --wrap for these calls.

namespace kavix::test {

enum class SystemCall : unsigned { MMAP, MPROTECT, READ, WRITE };

/// While it lives, the n-th call from now on fails with an error number, and the calls after it too if so wished.
class SystemCallFault {

public:

    static constexpr uint64_t FOREVER = UINT64_MAX;

    /// @param firstCall      1 for the next call
    /// @param numberOfCalls  how many calls in a row fail
    SystemCallFault(SystemCall systemCall, uint64_t firstCall, int errorNumber, uint64_t numberOfCalls = 1);
    ~SystemCallFault();

    SystemCallFault(const SystemCallFault&) = delete;
    SystemCallFault& operator=(const SystemCallFault&) = delete;

    /// Whether a call was made to fail.
    bool wasHit() const;
};

/// While it lives, an action runs in the calling thread before each call. The action may make the same call itself.
class SystemCallHook {

public:

    SystemCallHook(SystemCall systemCall, std::function<void()> action);
    ~SystemCallHook();

    SystemCallHook(const SystemCallHook&) = delete;
    SystemCallHook& operator=(const SystemCallHook&) = delete;
};

/// While it lives, read and write transfer at most so many bytes at a time.
class ShortTransfers {

public:

    explicit ShortTransfers(size_t maximumBytes);
    ~ShortTransfers();

    ShortTransfers(const ShortTransfers&) = delete;
    ShortTransfers& operator=(const ShortTransfers&) = delete;
};

}
