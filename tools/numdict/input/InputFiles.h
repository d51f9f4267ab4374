#pragma once

#include "numdict/input/RDFFormat.h"

#include <string>
#include <vector>

namespace kavix::numdict {

struct InputFile {
    std::string m_path; // "-" for standard input
    RDFFormat m_format;
};

/// A dictionary serves 256 threads; the program's first thread may be one more than the workers.
inline constexpr unsigned MAXIMUM_NUMBER_OF_THREADS = 255;

/// How many threads the machine runs at once, 1 to MAXIMUM_NUMBER_OF_THREADS.
unsigned getNumberOfProcessors() noexcept;

/// The files that a command was given, with their formats.
/// @param command     its name, for messages
/// @param formatName  what --format says; empty: by extension
/// @throws UsageError  a file is missing, a directory, or of unknown format; standard input comes without format, or
///         twice
std::vector<InputFile> makeInputFiles(
    const std::string& command, const std::vector<std::string>& paths, const std::string& formatName);

}
