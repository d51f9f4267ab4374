#include "support/FaultInjection.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <new>
#include <string>
#include <sys/mman.h>
#include <sys/types.h>
#include <utility>

namespace kavix::test {

namespace {

/// What is to happen to one kind of system call. Set up by a test before it starts threads.
struct Injection {
    std::atomic<uint64_t> m_callsMade{0};
    std::atomic<uint64_t> m_callsFailed{0};
    std::atomic<uint64_t> m_firstFailing{0}; // 0: none
    std::atomic<uint64_t> m_numberFailing{0};
    std::atomic<int> m_errorNumber{0};
    std::atomic<bool> m_isHooked{false};
};

Injection s_injections[NUMBER_OF_CALLS];
std::function<void()> s_hook;
thread_local bool s_isInHook = false;
std::atomic<size_t> s_maximumTransfer{std::numeric_limits<size_t>::max()};

thread_local uint64_t s_allocationsLeft = 0; // 1: the next one fails; 0: none
thread_local bool s_wasAllocationHit = false;

Injection& getInjection(Call call) {
    return s_injections[static_cast<unsigned>(call)];
}

/// Returns whether the call is to fail; errno is set then.
bool mustFail(Call call) {
    Injection& injection = getInjection(call);
    if (injection.m_isHooked.load() && !s_isInHook) {
        s_isInHook = true;
        s_hook();
        s_isInHook = false;
    }
    const uint64_t firstFailing = injection.m_firstFailing.load();
    if (firstFailing == 0)
        return false;
    const uint64_t number = injection.m_callsMade.fetch_add(1) + 1;
    if (number < firstFailing || number - firstFailing >= injection.m_numberFailing.load())
        return false;
    injection.m_callsFailed.fetch_add(1);
    errno = injection.m_errorNumber.load();
    return true;
}

[[maybe_unused]] void* allocate(size_t size, size_t alignment) {
    if (s_allocationsLeft != 0 && --s_allocationsLeft == 0) {
        s_wasAllocationHit = true;
        throw std::bad_alloc();
    }
    // Whole multiples of the alignment, as the system's call requires; at least one.
    void* const memory = std::aligned_alloc(alignment, (size / alignment + 1) * alignment);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void inject(Call call, uint64_t n, int errorNumber, uint64_t numberOfCalls) {
    if (call == Call::ALLOCATION) {
        s_wasAllocationHit = false;
        s_allocationsLeft = n;
        return;
    }
    Injection& injection = getInjection(call);
    injection.m_callsMade = 0;
    injection.m_callsFailed = 0;
    injection.m_numberFailing = numberOfCalls;
    injection.m_errorNumber = errorNumber;
    injection.m_firstFailing = n;
}

}

const char* getName(Call call) noexcept {
    static constexpr const char* NAMES[NUMBER_OF_CALLS] = {"allocation", "mmap",  "mprotect",  "read",  "write",
                                                           "open",       "flock", "ftruncate", "fsync", "rename"};
    return NAMES[static_cast<unsigned>(call)];
}

Fault::Fault(Call call, uint64_t n, int errorNumber, uint64_t numberOfCalls) :
    m_call(call),
    m_point(nullptr) {
    inject(call, n, errorNumber, numberOfCalls);
}

Fault::Fault(FaultPoint& point) :
    m_call(point.m_call),
    m_point(&point) {
    point.m_wasInjected = true;
    inject(point.m_call, point.m_n, point.m_errorNumber, 1);
}

Fault::~Fault() {
    if (m_point != nullptr)
        m_point->m_wasHit = wasHit();
    if (m_call == Call::ALLOCATION)
        s_allocationsLeft = 0;
    else
        getInjection(m_call).m_firstFailing = 0;
}

bool Fault::wasHit() const {
    return m_call == Call::ALLOCATION ? s_wasAllocationHit : getInjection(m_call).m_callsFailed.load() != 0;
}

uint64_t failEach(Call call, int errorNumber, const std::function<void(FaultPoint& point)>& attempt) {
    constexpr uint64_t LIMIT = 10'000;
    for (uint64_t n = 1; n < LIMIT; ++n) {
        SCOPED_TRACE(getName(call) + (" " + std::to_string(n)));
        FaultPoint point(call, n, errorNumber);
        attempt(point);
        EXPECT_TRUE(point.m_wasInjected) << "the attempt injects nothing";
        if (!point.wasHit() || ::testing::Test::HasFatalFailure())
            return n - 1;
    }
    ADD_FAILURE() << "every attempt calls " << getName(call) << " " << LIMIT << " times";
    return LIMIT;
}

CallHook::CallHook(std::initializer_list<Call> calls, std::function<void()> action) {
    s_hook = std::move(action);
    for (const Call call : calls)
        getInjection(call).m_isHooked = true;
}

CallHook::~CallHook() {
    for (Injection& injection : s_injections)
        injection.m_isHooked = false;
}

ShortTransfers::ShortTransfers(size_t maximumBytes) {
    s_maximumTransfer = maximumBytes;
}

ShortTransfers::~ShortTransfers() {
    s_maximumTransfer = std::numeric_limits<size_t>::max();
}

}

using kavix::test::Call;
using kavix::test::mustFail;
using kavix::test::s_maximumTransfer;

// The linker sends the library's calls to __wrap_ functions; __real_ ones are the system's. (Reserved names, but given
// by it.)
extern "C" {

void* __real_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset);
int __real_mprotect(void* address, size_t length, int protection);
ssize_t __real_read(int file, void* data, size_t length);
ssize_t __real_write(int file, const void* data, size_t length);
int __real_open(const char* fileName, int flags, ...);
int __real_flock(int file, int operation);
int __real_ftruncate(int file, off_t length);
int __real_fsync(int file);
int __real_rename(const char* oldName, const char* newName);

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset);
int __wrap_mprotect(void* address, size_t length, int protection);
ssize_t __wrap_read(int file, void* data, size_t length);
ssize_t __wrap_write(int file, const void* data, size_t length);
int __wrap_open(const char* fileName, int flags, ...);
int __wrap_flock(int file, int operation);
int __wrap_ftruncate(int file, off_t length);
int __wrap_fsync(int file);
int __wrap_rename(const char* oldName, const char* newName);

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset) {
    return mustFail(Call::MMAP) ? MAP_FAILED : __real_mmap(address, length, protection, flags, file, offset);
}

int __wrap_mprotect(void* address, size_t length, int protection) {
    return mustFail(Call::MPROTECT) ? -1 : __real_mprotect(address, length, protection);
}

ssize_t __wrap_read(int file, void* data, size_t length) {
    return mustFail(Call::READ) ? -1 : __real_read(file, data, std::min(length, s_maximumTransfer.load()));
}

ssize_t __wrap_write(int file, const void* data, size_t length) {
    return mustFail(Call::WRITE) ? -1 : __real_write(file, data, std::min(length, s_maximumTransfer.load()));
}

int __wrap_open(const char* fileName, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return mustFail(Call::OPEN) ? -1 : __real_open(fileName, flags, mode);
}

int __wrap_flock(int file, int operation) {
    return mustFail(Call::FLOCK) ? -1 : __real_flock(file, operation);
}

int __wrap_ftruncate(int file, off_t length) {
    return mustFail(Call::FTRUNCATE) ? -1 : __real_ftruncate(file, length);
}

int __wrap_fsync(int file) {
    return mustFail(Call::FSYNC) ? -1 : __real_fsync(file);
}

int __wrap_rename(const char* oldName, const char* newName) {
    return mustFail(Call::RENAME) ? -1 : __real_rename(oldName, newName);
}
}

// The sanitizers bring allocation operators of their own, which must stay: nothing fails there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KAVIX_TEST_KEEPS_ALLOCATION_OPERATORS
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KAVIX_TEST_KEEPS_ALLOCATION_OPERATORS
#endif
#endif

#if !defined(KAVIX_TEST_KEEPS_ALLOCATION_OPERATORS)

void* operator new(size_t size) {
    return kavix::test::allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new(size_t size, std::align_val_t alignment) {
    return kavix::test::allocate(size, static_cast<size_t>(alignment));
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t, std::align_val_t) noexcept {
    std::free(memory);
}

#endif
