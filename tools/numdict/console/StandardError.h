#pragma once

#include <string_view>

namespace kavix::numdict {

/// Writes to standard error. If it is closed, nothing is written; the exit code still shows how a command ended.
void writeStandardError(std::string_view text) noexcept;

/// Writes "numdict: ", the message and a line end to standard error.
void printMessage(std::string_view message);

}
