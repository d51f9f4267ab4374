#pragma once

#include <string_view>

namespace kavix::numdict {

/// Whether standard output is a terminal, so that a person reads it.
bool isStandardOutputTerminal();

/// Writes to standard output, buffered by the system's library.
/// @throws SystemFailure  it cannot be written
void writeStandardOutput(std::string_view text);

/// Hands what is buffered to the system. Called before a command ends, so that a full disk is not success.
/// @throws SystemFailure  it cannot be written
void flushStandardOutput();

}
