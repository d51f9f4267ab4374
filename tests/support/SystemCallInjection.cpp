#include "support/SystemCallInjection.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <sys/mman.h>
#include <sys/types.h>
#include <utility>

namespace kavix::test {

namespace {

constexpr unsigned NUMBER_OF_SYSTEM_CALLS = 4;

/// What is to happen to one system call. Set up by a test before it starts threads.
struct Injection {
    std::atomic<uint64_t> m_callsMade{0};
    std::atomic<uint64_t> m_callsFailed{0};
    std::atomic<uint64_t> m_firstFailing{0}; // 0: none
    std::atomic<uint64_t> m_numberFailing{0};
    std::atomic<int> m_errorNumber{0};
    std::atomic<const std::function<void()>*> m_hook{nullptr};
};

Injection s_injections[NUMBER_OF_SYSTEM_CALLS];
SystemCall s_faultyCall;
SystemCall s_hookedCall;
std::function<void()> s_hook;
std::atomic<size_t> s_maximumTransfer{std::numeric_limits<size_t>::max()};
thread_local bool s_isInHook = false;

Injection& getInjection(SystemCall systemCall) {
    return s_injections[static_cast<unsigned>(systemCall)];
}

/// Returns whether the call is to fail; errno is set then.
bool mustFail(SystemCall systemCall) {
    Injection& injection = getInjection(systemCall);
    const std::function<void()>* const hook = injection.m_hook.load();
    if (hook != nullptr && !s_isInHook) {
        s_isInHook = true;
        (*hook)();
        s_isInHook = false;
    }
    const uint64_t firstFailing = injection.m_firstFailing.load();
    if (firstFailing == 0)
        return false;
    const uint64_t call = injection.m_callsMade.fetch_add(1) + 1;
    if (call < firstFailing || call - firstFailing >= injection.m_numberFailing.load())
        return false;
    injection.m_callsFailed.fetch_add(1);
    errno = injection.m_errorNumber.load();
    return true;
}

}

SystemCallFault::SystemCallFault(SystemCall systemCall, uint64_t firstCall, int errorNumber, uint64_t numberOfCalls) {
    s_faultyCall = systemCall;
    Injection& injection = getInjection(systemCall);
    injection.m_callsMade = 0;
    injection.m_callsFailed = 0;
    injection.m_numberFailing = numberOfCalls;
    injection.m_errorNumber = errorNumber;
    injection.m_firstFailing = firstCall;
}

SystemCallFault::~SystemCallFault() {
    getInjection(s_faultyCall).m_firstFailing = 0;
}

bool SystemCallFault::wasHit() const {
    return getInjection(s_faultyCall).m_callsFailed.load() != 0;
}

SystemCallHook::SystemCallHook(SystemCall systemCall, std::function<void()> action) {
    s_hookedCall = systemCall;
    s_hook = std::move(action);
    getInjection(systemCall).m_hook = &s_hook;
}

SystemCallHook::~SystemCallHook() {
    getInjection(s_hookedCall).m_hook = nullptr;
}

ShortTransfers::ShortTransfers(size_t maximumBytes) {
    s_maximumTransfer = maximumBytes;
}

ShortTransfers::~ShortTransfers() {
    s_maximumTransfer = std::numeric_limits<size_t>::max();
}

}

using kavix::test::SystemCall;

// The linker sends the library's calls to __wrap_ functions; __real_ ones are the system's. (Reserved names, but given
// by it.)
extern "C" {

void* __real_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset);
int __real_mprotect(void* address, size_t length, int protection);
ssize_t __real_read(int file, void* data, size_t length);
ssize_t __real_write(int file, const void* data, size_t length);

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset);
int __wrap_mprotect(void* address, size_t length, int protection);
ssize_t __wrap_read(int file, void* data, size_t length);
ssize_t __wrap_write(int file, const void* data, size_t length);

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset) {
    return kavix::test::mustFail(SystemCall::MMAP) ? MAP_FAILED
                                                   : __real_mmap(address, length, protection, flags, file, offset);
}

int __wrap_mprotect(void* address, size_t length, int protection) {
    return kavix::test::mustFail(SystemCall::MPROTECT) ? -1 : __real_mprotect(address, length, protection);
}

ssize_t __wrap_read(int file, void* data, size_t length) {
    return kavix::test::mustFail(SystemCall::READ)
               ? -1
               : __real_read(file, data, std::min(length, kavix::test::s_maximumTransfer.load()));
}

ssize_t __wrap_write(int file, const void* data, size_t length) {
    return kavix::test::mustFail(SystemCall::WRITE)
               ? -1
               : __real_write(file, data, std::min(length, kavix::test::s_maximumTransfer.load()));
}
}
