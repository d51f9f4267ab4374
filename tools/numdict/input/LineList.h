#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// Throws unless there is a file that can be read as one, or the path is "-".
/// @param command  its name, for the message
/// @throws UsageError  there is none, or it is a directory
void checkFileExists(const std::string& command, const std::string& path);

/// How a file is called in messages: its path, or "standard input" for "-".
std::string getShownName(const std::string& path);

/// Calls a function for each line of a file that is not blank, or of standard input ("-"): without its line end, with
/// its number from 1, and as soon as it was read. The file may be gzip-compressed.
/// @throws UsageError     there is no file
/// @throws SystemFailure  it cannot be read, or is damaged below the level of lines
void forEachLine(
    const std::string& command, const std::string& path,
    const std::function<void(std::string_view line, uint64_t number)>& function);

}
