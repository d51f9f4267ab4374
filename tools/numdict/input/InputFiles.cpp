#include "numdict/input/InputFiles.h"

#include "numdict/console/Failures.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

namespace kavix::numdict {

std::vector<InputFile> makeInputFiles(
    const std::string& command, const std::vector<std::string>& paths, const std::string& formatName) {
    std::optional<RDFFormat> format;
    if (!formatName.empty() && !(format = tryGetFormatByName(formatName)))
        throw UsageError(
            fmt::format("{}: the format '{}' is unknown; the formats are {}", command, formatName, RDF_FORMAT_NAMES));
    std::vector<InputFile> files;
    for (const std::string& path : paths) {
        std::error_code error;
        if (path == "-") {
            if (!format)
                throw UsageError(fmt::format(
                    "{}: standard input has no name to infer the format from; use --format ({})", command,
                    RDF_FORMAT_NAMES));
            if (std::any_of(files.begin(), files.end(), [](const InputFile& file) { return file.m_path == "-"; }))
                throw UsageError(command + ": standard input can be read only once");
        }
        else if (!std::filesystem::exists(path, error))
            throw UsageError(fmt::format("{}: there is no file '{}'", command, path));
        else if (std::filesystem::is_directory(path, error))
            throw UsageError(
                fmt::format("{}: '{}' is a directory; specify its files, such as {}/*.ttl", command, path, path));
        const std::optional<RDFFormat> formatOfFile = format ? format : tryGetFormatOfPath(path);
        if (!formatOfFile)
            throw UsageError(fmt::format(
                "{}: cannot infer the format from the name '{}'; use --format ({})", command, path, RDF_FORMAT_NAMES));
        files.push_back(InputFile{path, *formatOfFile});
    }
    return files;
}

}
