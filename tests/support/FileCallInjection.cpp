#include "support/FileCallInjection.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

namespace kavix::test {

namespace {

// Set up by a test before the calls; the tests of files have one thread.
FileCall s_faultyCall;
uint64_t s_callsLeft = 0; // before the failing one, inclusive; 0: none fails
int s_errorNumber;
bool s_wasHit;
std::function<void()> s_hook;

bool mustFail(FileCall fileCall) {
    if (s_hook)
        s_hook();
    if (fileCall != s_faultyCall || s_callsLeft == 0 || --s_callsLeft != 0)
        return false;
    s_wasHit = true;
    errno = s_errorNumber;
    return true;
}

int finish(int result) {
    if (s_hook) {
        const int errorNumber = errno;
        s_hook();
        errno = errorNumber;
    }
    return result;
}

}

FileCallFault::FileCallFault(FileCall fileCall, uint64_t n, int errorNumber) {
    s_faultyCall = fileCall;
    s_errorNumber = errorNumber;
    s_wasHit = false;
    s_callsLeft = n;
}

FileCallFault::~FileCallFault() {
    s_callsLeft = 0;
}

bool FileCallFault::wasHit() const {
    return s_wasHit;
}

FileCallHook::FileCallHook(std::function<void()> action) {
    s_hook = std::move(action);
}

FileCallHook::~FileCallHook() {
    s_hook = nullptr;
}

}

using kavix::test::FileCall;
using kavix::test::finish;
using kavix::test::mustFail;

// The linker sends the library's calls to __wrap_ functions; __real_ ones are the system's. (Reserved names, but given
// by it.)
extern "C" {

int __real_open(const char* fileName, int flags, ...);
int __real_flock(int file, int operation);
int __real_ftruncate(int file, off_t length);
int __real_fsync(int file);
int __real_rename(const char* oldName, const char* newName);

int __wrap_open(const char* fileName, int flags, ...);
int __wrap_flock(int file, int operation);
int __wrap_ftruncate(int file, off_t length);
int __wrap_fsync(int file);
int __wrap_rename(const char* oldName, const char* newName);

int __wrap_open(const char* fileName, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return mustFail(FileCall::OPEN) ? -1 : finish(__real_open(fileName, flags, mode));
}

int __wrap_flock(int file, int operation) {
    return mustFail(FileCall::FLOCK) ? -1 : finish(__real_flock(file, operation));
}

int __wrap_ftruncate(int file, off_t length) {
    return mustFail(FileCall::FTRUNCATE) ? -1 : finish(__real_ftruncate(file, length));
}

int __wrap_fsync(int file) {
    return mustFail(FileCall::FSYNC) ? -1 : finish(__real_fsync(file));
}

int __wrap_rename(const char* oldName, const char* newName) {
    return mustFail(FileCall::RENAME) ? -1 : finish(__real_rename(oldName, newName));
}
}
