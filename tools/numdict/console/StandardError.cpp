#include "numdict/console/StandardError.h"

#include <fmt/format.h>

#include <cstdio>

namespace kavix::numdict {

void writeStandardError(std::string_view text) noexcept {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void printMessage(std::string_view message) {
    writeStandardError(fmt::format("numdict: {}\n", message));
}

}
