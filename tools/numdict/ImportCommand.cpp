#include "numdict/Commands.h"
#include "numdict/Failures.h"
#include "numdict/Import.h"
#include "numdict/LiteralDescription.h"
#include "numdict/ProgressDisplay.h"
#include "numdict/ReportPrinter.h"
#include "numdict/Sizes.h"
#include "numdict/StandardOutput.h"
#include "core/data-store/dictionary/Dictionary.h"

#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>

namespace kavix::numdict {

namespace {

/// A dictionary serves 256 threads; the program's first thread may be one more than the workers.
constexpr unsigned MAXIMUM_NUMBER_OF_THREADS = 255;

constexpr uint64_t MINIMUM_DEFAULT_BUDGET = uint64_t(1) << 30;

std::vector<InputFile> makeInputFiles(const ImportCommand& command) {
    std::optional<RDFFormat> format;
    if (!command.m_format.empty() && !(format = tryGetFormatByName(command.m_format)))
        throw UsageError(fmt::format("import: the format '{}' is unknown; the formats are {}", command.m_format, RDF_FORMAT_NAMES));
    std::vector<InputFile> files;
    for (const std::string& path : command.m_paths) {
        std::error_code error;
        if (path == "-") {
            if (!format)
                throw UsageError(fmt::format("import: standard input has no name that tells its format; add --format ({})", RDF_FORMAT_NAMES));
            if (std::any_of(files.begin(), files.end(), [](const InputFile& file) { return file.m_path == "-"; }))
                throw UsageError("import: standard input can be read only once");
        } else if (!std::filesystem::exists(path, error))
            throw UsageError(fmt::format("import: there is no file '{}'", path));
        else if (std::filesystem::is_directory(path, error))
            throw UsageError(fmt::format("import: '{}' is a directory; name its files, such as {}/*.ttl", path, path));
        const std::optional<RDFFormat> formatOfFile = format ? format : tryGetFormatOfPath(path);
        if (!formatOfFile)
            throw UsageError(fmt::format("import: the name '{}' does not tell the format; add --format ({})", path, RDF_FORMAT_NAMES));
        files.push_back(InputFile{path, *formatOfFile});
    }
    return files;
}

uint64_t getMemoryBudget(const ImportCommand& command) {
    if (command.m_memory.empty()) {
        const auto pages = static_cast<uint64_t>(std::max(0L, ::sysconf(_SC_PHYS_PAGES)));
        const auto pageSize = static_cast<uint64_t>(std::max(0L, ::sysconf(_SC_PAGESIZE)));
        return std::max(MINIMUM_DEFAULT_BUDGET, pages * pageSize / 2);
    }
    const std::optional<uint64_t> budget = tryParseSize(command.m_memory);
    if (!budget)
        throw UsageError(fmt::format("import: --memory '{}' is no size; write 512M, 2G, 2GiB or a number of bytes", command.m_memory));
    return *budget;
}

unsigned getNumberOfThreads(const ImportCommand& command) {
    if (command.m_numberOfThreads > MAXIMUM_NUMBER_OF_THREADS)
        throw UsageError(fmt::format("import: --threads can be 1 to {}", MAXIMUM_NUMBER_OF_THREADS));
    if (command.m_numberOfThreads != 0)
        return command.m_numberOfThreads;
    return std::clamp(std::thread::hardware_concurrency(), 1u, MAXIMUM_NUMBER_OF_THREADS);
}

/// Answers the look-ups; returns whether all were found.
bool lookUp(const ImportCommand& command, const Dictionary& dictionary, std::string& text) {
    bool areAllFound = true;
    for (const std::string& literal : command.m_literalsToResolve) {
        const LiteralDescription description = describeLiteral(literal);
        const uint64_t resourceID = description.m_isValid ? dictionary.tryResolve(description.m_value) : 0;
        if (!description.m_isValid)
            text += fmt::format("{}: {}\n", literal, description.m_message);
        else if (resourceID == 0)
            text += fmt::format("{} was not imported\n", description.m_turtle);
        else
            text += fmt::format("{} has ID {}\n", description.m_turtle, resourceID);
        areAllFound = areAllFound && resourceID != 0;
    }
    for (const uint64_t resourceID : command.m_resourceIDsToGet) {
        const bool isFound = dictionary.tryGetResourceDatatypeID(resourceID) != 0;
        text += isFound ? fmt::format("ID {} is {}\n", resourceID, dictionary.getTurtleLiteral(resourceID)) : fmt::format("no literal has ID {}\n", resourceID);
        areAllFound = areAllFound && isFound;
    }
    return areAllFound;
}

}

int runImportCommand(const ImportCommand& command) {
    if (command.m_paths.empty())
        throw UsageError("import: name at least one file, or - for standard input");
    ImportOptions options;
    options.m_files = makeInputFiles(command);
    options.m_numberOfThreads = getNumberOfThreads(command);
    options.m_collectorOptions.m_isStrict = command.m_isStrict;
    options.m_collectorOptions.m_isTrimming = command.m_isTrimming;
    options.m_rejectedPath = command.m_rejectedPath;

    Dictionary::Options dictionaryOptions;
    dictionaryOptions.memoryBudgetBytes = getMemoryBudget(command);
    dictionaryOptions.resourceIDWidth = command.m_resourceIDWidth == 64 ? ResourceIDWidth::BITS_64 : ResourceIDWidth::BITS_32;
    Dictionary dictionary(dictionaryOptions);

    ImportReport report;
    {
        ImportProgress progress;
        Import import(dictionary, std::move(options), progress);
        std::optional<ProgressDisplay> display;
        if (!command.m_isQuiet)
            display.emplace(progress);
        report = import.run();
    }
    writeStandardOutput(command.m_isJSON ? formatReportAsJSON(report) : formatReport(report));
    std::string answers;
    const bool areAllFound = lookUp(command, dictionary, answers);
    if (command.m_isJSON)
        std::fputs(answers.c_str(), stderr); // standard output holds one object and nothing else
    else if (!answers.empty())
        writeStandardOutput("\n" + answers);
    if (report.m_limitMessage)
        std::fputs(fmt::format("numdict: the import was stopped. {}\n", *report.m_limitMessage).c_str(), stderr);
    else if (report.m_isStoppedByStrict)
        std::fputs("numdict: the import was stopped at the first fault (--strict); the figures cover what was read until then\n", stderr);
    const int exitCode = report.getExitCode();
    return exitCode == EXIT_ALL_WELL && !areAllFound ? EXIT_DAMAGED_INPUT : exitCode;
}

}
