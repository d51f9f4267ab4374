#pragma once

#include "numdict/input/RDFFormat.h"

#include <string>
#include <vector>

namespace kavix::numdict {

struct InputFile {
    std::string m_path; // "-" for standard input
    RDFFormat m_format;
};

/// The files that a command was given, with their formats.
/// @param command     its name, for messages
/// @param formatName  what --format says; empty: by extension
/// @throws UsageError  a file is missing, a directory, or of unknown format; standard input comes without format, or
///         twice
std::vector<InputFile> makeInputFiles(
    const std::string& command, const std::vector<std::string>& paths, const std::string& formatName);

}
