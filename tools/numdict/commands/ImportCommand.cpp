#include "core/data-store/embedding/Dictionary.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/ProgressDisplay.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/console/WorkerThreads.h"
#include "numdict/import/Import.h"
#include "numdict/import/ReportPrinter.h"
#include "numdict/input/InputFiles.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/stores/MemoryBudget.h"
#include "numdict/stores/StoreFile.h"

#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

namespace kavix::numdict {

namespace {

unsigned getNumberOfThreads(const ImportCommand& command) {
    if (command.m_numberOfThreads > MAXIMUM_NUMBER_OF_THREADS)
        throw UsageError(fmt::format("import: --threads can be 1 to {}", MAXIMUM_NUMBER_OF_THREADS));
    if (command.m_numberOfThreads != 0)
        return command.m_numberOfThreads;
    return getNumberOfProcessors();
}

/// What can be said about the store before anything is done.
void checkStorePath(const ImportCommand& command) {
    if (command.m_storePath.empty())
        return;
    std::error_code error;
    if (std::filesystem::exists(command.m_storePath, error)) {
        checkStoreExists("import", command.m_storePath);
        for (const std::string& path : command.m_paths)
            if (path != "-" && std::filesystem::equivalent(path, command.m_storePath, error))
                throw UsageError(fmt::format("import: '{}' cannot be both a file to read and the store", path));
    }
    if (command.m_rejectedPath == command.m_storePath)
        throw UsageError("import: --rejected and --store need different files");
}

/// The dictionary to import into: that of the store, or a new one.
std::unique_ptr<Dictionary> makeDictionary(const ImportCommand& command) {
    const uint64_t budget = getMemoryBudget("import", command.m_memory);
    std::error_code error;
    if (!command.m_storePath.empty() && std::filesystem::exists(command.m_storePath, error)) {
        const auto width = static_cast<unsigned>(readResourceIDWidth(command.m_storePath));
        if (command.m_resourceIDWidth != 0 && command.m_resourceIDWidth != width)
            throw UsageError(fmt::format(
                "import: '{}' has resource IDs of {} bits, not {}; leave --id-width out", command.m_storePath, width,
                command.m_resourceIDWidth));
        return openStoreFile(
            command.m_storePath, budget,
            StoreOptions{command.m_memory, command.m_isTrusted, command.m_isQuiet, command.m_isWithoutHugePages});
    }
    Dictionary::Options options;
    options.memoryBudgetBytes = budget;
    options.resourceIDWidth = command.m_resourceIDWidth == 64 ? ResourceIDWidth::BITS_64 : ResourceIDWidth::BITS_32;
    options.useHugePages = !command.m_isWithoutHugePages;
    return std::make_unique<Dictionary>(options);
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
        text += isFound ? fmt::format("ID {} is {}\n", resourceID, dictionary.getTurtleLiteral(resourceID))
                        : fmt::format("no literal has ID {}\n", resourceID);
        areAllFound = areAllFound && isFound;
    }
    return areAllFound;
}

}

int runImportCommand(const ImportCommand& command) {
    if (command.m_paths.empty())
        throw UsageError("import: name at least one file, or - for standard input");
    ImportOptions options;
    options.m_files = makeInputFiles("import", command.m_paths, command.m_format);
    options.m_numberOfThreads = getNumberOfThreads(command);
    options.m_collectorOptions.m_isStrict = command.m_isStrict;
    options.m_collectorOptions.m_isTrimming = command.m_isTrimming;
    options.m_rejectedPath = command.m_rejectedPath;

    const bool hasStore = !command.m_storePath.empty();
    checkStorePath(command);
    std::optional<ReplacingFile> newStore;
    if (hasStore && !command.m_isDryRun)
        newStore.emplace(
            command.m_storePath); // locked before the old one is read, so that nobody's import in between is lost
    const std::unique_ptr<Dictionary> dictionary = makeDictionary(command);
    const uint64_t valuesBefore = hasStore ? countResources(*dictionary) : 0;

    ImportReport report;
    {
        ImportProgress progress;
        Import import(*dictionary, std::move(options), progress);
        std::optional<ProgressDisplay> display;
        if (!command.m_isQuiet)
            display.emplace([&progress](double seconds) { return progress.describe(seconds); });
        report = import.run();
    }
    std::exception_ptr failure;
    if (hasStore) {
        std::error_code error;
        StoreOutcome& store = report.m_store.emplace();
        store.m_path = command.m_storePath;
        store.m_isNew = !std::filesystem::exists(command.m_storePath, error);
        store.m_values = report.m_total.m_distinctValues;
        store.m_newValues = store.m_values - valuesBefore;
        if (newStore && !report.m_limitMessage && !report.m_isStoppedByStrict) {
            try {
                store.m_bytes = saveStoreFile(*dictionary, *newStore, command.m_isQuiet);
                store.m_isWritten = true;
            }
            catch (...) {
                failure = std::current_exception(); // the report is worth having all the same
            }
        }
    }
    writeStandardOutput(command.m_isJSON ? formatReportAsJSON(report) : formatReport(report));
    std::string answers;
    const bool areAllFound = lookUp(command, *dictionary, answers);
    if (command.m_isJSON)
        std::fputs(answers.c_str(), stderr); // standard output holds one object and nothing else
    else if (!answers.empty())
        writeStandardOutput("\n" + answers);
    if (report.m_limitMessage)
        std::fputs(fmt::format("numdict: the import was stopped. {}\n", *report.m_limitMessage).c_str(), stderr);
    else if (report.m_isStoppedByStrict)
        std::fputs(
            "numdict: the import was stopped at the first fault (--strict); the figures cover what was read until "
            "then\n",
            stderr);
    flushStandardOutput(); // before the store, so that it is as it was if this fails
    if (failure)
        std::rethrow_exception(failure);
    if (report.m_store && report.m_store->m_isWritten)
        newStore->commit();
    const int exitCode = report.getExitCode();
    return exitCode == EXIT_ALL_WELL && !areAllFound ? EXIT_DAMAGED_INPUT : exitCode;
}

}
