#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>

// Failures of allocations and of the library's system calls. Only for the executable of the fault tests, which is
// linked with --wrap for the calls. System calls of all threads count, and allocations of the thread that injects.
// Under the address and thread sanitizers, whose own operators stay, no allocation fails.

namespace kavix::test {

enum class Call : unsigned {
    ALLOCATION, // operator new, which throws std::bad_alloc
    MMAP,
    MPROTECT,
    READ,
    WRITE,
    OPEN,
    FLOCK,
    FTRUNCATE,
    FSYNC,
    RENAME
};

inline constexpr unsigned NUMBER_OF_CALLS = 10;

/// As the system names the call.
const char* getName(Call call) noexcept;

/// Which call is to fail, and whether it did. Handed out by failEach().
class FaultPoint {

public:

    FaultPoint(Call call, uint64_t n, int errorNumber) :
        m_call(call),
        m_n(n),
        m_errorNumber(errorNumber) { }

    /// The call's number, from 1 on.
    uint64_t getNumber() const { return m_n; }

    /// Whether the call was made, and failed. Known when the Fault has ended.
    bool wasHit() const { return m_wasHit; }

private:

    friend class Fault;

    friend uint64_t failEach(Call call, int errorNumber, const std::function<void(FaultPoint&)>& attempt);

    const Call m_call;
    const uint64_t m_n;
    const int m_errorNumber;
    bool m_wasInjected = false;
    bool m_wasHit = false;
};

/// While it lives, the n-th call from now on fails with an error number, and the calls after it too if so wished. One
/// at a time for each kind of call.
class Fault {

public:

    static constexpr uint64_t FOREVER = UINT64_MAX;

    /// @param n              1 for the next call
    /// @param numberOfCalls  how many calls in a row fail; only one of allocations
    Fault(Call call, uint64_t n, int errorNumber = ENOMEM, uint64_t numberOfCalls = 1);

    explicit Fault(FaultPoint& point);

    ~Fault();

    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;

    /// Whether a call was made to fail.
    bool wasHit() const;

private:

    const Call m_call;
    FaultPoint* const m_point; // null unless failEach() made it
};

/// Runs attempt(point) with the first, second, ... call failing until an attempt makes fewer calls, and so succeeds. An
/// attempt injects what fails, by Fault fault(point), where it wants to.
/// @return how many calls failed; 0 for allocations under a sanitizer
uint64_t failEach(Call call, int errorNumber, const std::function<void(FaultPoint& point)>& attempt);

/// The same with ENOMEM.
inline uint64_t failEach(Call call, const std::function<void(FaultPoint& point)>& attempt) {
    return failEach(call, ENOMEM, attempt);
}

/// While it lives, an action runs in the calling thread before each of these system calls. The action may make the same
/// calls itself.
class CallHook {

public:

    CallHook(std::initializer_list<Call> calls, std::function<void()> action);
    ~CallHook();

    CallHook(const CallHook&) = delete;
    CallHook& operator=(const CallHook&) = delete;
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
