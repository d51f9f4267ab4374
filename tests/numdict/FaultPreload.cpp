// Loaded into the program by LD_PRELOAD: makes one of its system calls fail. NUMDICT_TEST_FAULT names the call, which
// of them it is, and the error number: "fsync 1 5".

#include <dlfcn.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// Counts a call; if it is the one to fail, sets errno and returns true.
bool isToFail(const char* call) {
    // Relaxed: only the count matters.
    static std::atomic<int> s_numberOfCalls{0};
    const char* const fault = std::getenv("NUMDICT_TEST_FAULT");
    char name[16];
    int which, errorNumber;
    if (fault == nullptr || std::sscanf(fault, "%15s %d %d", name, &which, &errorNumber) != 3 ||
        std::strcmp(name, call) != 0 || s_numberOfCalls.fetch_add(1, std::memory_order_relaxed) + 1 != which)
        return false;
    errno = errorNumber;
    return true;
}

template<typename Function>
Function getOriginal(const char* call) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, call));
}

}

extern "C" {

ssize_t write(int fileDescriptor, const void* data, size_t numberOfBytes) {
    return isToFail("write")
               ? -1
               : getOriginal<ssize_t (*)(int, const void*, size_t)>("write")(fileDescriptor, data, numberOfBytes);
}

int fsync(int fileDescriptor) {
    return isToFail("fsync") ? -1 : getOriginal<int (*)(int)>("fsync")(fileDescriptor);
}

int rename(const char* oldName, const char* newName) noexcept {
    return isToFail("rename") ? -1 : getOriginal<int (*)(const char*, const char*)>("rename")(oldName, newName);
}
}
