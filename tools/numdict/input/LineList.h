#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// Calls a function for each line of a small file that is not blank, or of standard input ("-"), without blanks around
/// it and with its number from 1. The file may be packed by gzip.
/// @throws UsageError     the file cannot be opened
/// @throws SystemFailure  it cannot be read, or is damaged below the level of lines
void forEachLine(
    const std::string& command, const std::string& path,
    const std::function<void(std::string_view line, uint64_t number)>& function);

}
