#pragma once

#include "support/FaultInjection.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <functional>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kavix::test {

/// Runs an action in a process of its own, which is killed right before its n-th call of those that write a file or put
/// it in its place. Only for the executable of the fault tests.
/// @param maximumBytes  how much a write transfers at most, so that there are many
/// @return whether the action came to its end, because it makes fewer calls
inline bool runKilledAtCall(int n, size_t maximumBytes, const std::function<void()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        int calls = 0;
        const CallHook hook(
            {Call::WRITE, Call::OPEN, Call::FLOCK, Call::FTRUNCATE, Call::FSYNC, Call::RENAME}, [&calls, n] {
                if (++calls == n)
                    ::kill(::getpid(), SIGKILL);
            });
        const ShortTransfers shortTransfers(maximumBytes);
        try {
            action();
        }
        catch (...) {
            ::_exit(1); // otherwise this process would run the other tests too
        }
        ::_exit(0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << "the action failed";
    return WIFEXITED(status);
}

}
