#include "numdict/console/StandardOutput.h"

#include "numdict/console/Failures.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace kavix::numdict {

namespace {

[[noreturn]] void throwCannotWrite() {
    throw SystemFailure(std::string("cannot write to standard output: ") + std::strerror(errno));
}

}

bool isStandardOutputTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

void writeStandardOutput(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
        throwCannotWrite();
}

void flushStandardOutput() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throwCannotWrite();
}

}
