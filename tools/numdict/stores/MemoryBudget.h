#pragma once

#include <cstdint>
#include <string>

namespace kavix::numdict {

/// What --memory says, in bytes; for an empty text half of the machine's memory, at least 1 GiB.
/// @throws UsageError  the text is no size
uint64_t getMemoryBudget(const std::string& command, const std::string& text);

}
