#include "core/data-store/embedding/Dictionary.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/commands/AnswerPrinter.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/ProgressDisplay.h"
#include "numdict/console/StandardError.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/console/WorkerThreads.h"
#include "numdict/import/Import.h"
#include "numdict/import/ReportPrinter.h"
#include "numdict/input/InputFiles.h"
#include "numdict/stores/Resources.h"
#include "numdict/stores/StoreFile.h"

#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

namespace kavix::numdict {

namespace {

ImportOptions makeImportOptions(const ImportCommand& command) {
    ImportOptions options;
    options.m_files = makeInputFiles("import", command.m_paths, command.m_format);
    options.m_numberOfThreads = command.m_numberOfThreads != 0 ? command.m_numberOfThreads : getNumberOfProcessors();
    options.m_collectorOptions.m_isStrict = command.m_isStrict;
    options.m_collectorOptions.m_isTrimming = command.m_isTrimming;
    options.m_rejectedPath = command.m_rejectedPath;
    return options;
}

/// Whether standard output is for the rejected statements, so that everything else goes to standard error.
bool isPrintingRejected(const ImportCommand& command) {
    return command.m_rejectedPath == "-";
}

/// Checks what goes where before anything is done.
void checkOutputs(const ImportCommand& command) {
    if (isPrintingRejected(command) && command.m_isJSON)
        throw UsageError("import: --json and --rejected - both write to standard output; give --rejected a file");
}

/// Checks the path of the store before anything is done.
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
    const uint64_t budget = getMemoryBudget("import", command.m_options.m_memory);
    std::error_code error;
    if (command.m_storePath.empty() || !std::filesystem::exists(command.m_storePath, error))
        return std::make_unique<Dictionary>(
            makeDictionaryOptions(budget, command.m_options, command.m_resourceIDWidth));
    const auto width = static_cast<unsigned>(readResourceIDWidth(command.m_storePath));
    if (command.m_resourceIDWidth != 0 && command.m_resourceIDWidth != width)
        throw UsageError(fmt::format(
            "import: '{}' has resource IDs of {} bits, not {}; leave --id-width out", command.m_storePath, width,
            command.m_resourceIDWidth));
    return openStoreFile(command.m_storePath, budget, command.m_options);
}

ImportReport runImport(const ImportCommand& command, ImportOptions&& options, Dictionary& dictionary) {
    ImportProgress progress;
    Import import(dictionary, std::move(options), progress);
    std::optional<ProgressDisplay> display;
    if (!command.m_options.m_isQuiet)
        display.emplace([&progress](double seconds) { return progress.describe(seconds); });
    ImportReport report = import.run();
    display.reset(); // before the rejected statements, which may go to the same terminal
    import.writeRejectedStatements();
    return report;
}

/// Writes the store, unless the import was stopped or there is none to write, and adds what became of it to the report.
/// @param newStore  null if no store is written
/// @return  why it could not be written; the report is worth having all the same
std::exception_ptr saveStore(
    const ImportCommand& command, const Dictionary& dictionary, uint64_t valuesBefore, ReplacingFile* newStore,
    ImportReport& report) {
    std::error_code error;
    StoreOutcome& store = report.m_store.emplace();
    store.m_path = command.m_storePath;
    store.m_isNew = !std::filesystem::exists(command.m_storePath, error);
    store.m_values = report.m_total.m_distinctValues;
    store.m_newValues = store.m_values - valuesBefore;
    if (newStore == nullptr || report.m_limitMessage || report.m_isStoppedByStrict)
        return nullptr;
    try {
        store.m_bytes = saveStoreFile(dictionary, *newStore, command.m_options.m_isQuiet);
        store.m_isWritten = true;
        return nullptr;
    }
    catch (...) {
        return std::current_exception();
    }
}

/// Answers the look-ups after the report; returns EXIT_ALL_WELL if all were found.
int lookUp(const ImportCommand& command, const Dictionary& dictionary) {
    if (command.m_literalsToResolve.empty() && command.m_resourceIDsToGet.empty())
        return EXIT_ALL_WELL;
    // With --json standard output holds one object and nothing else, with --rejected - statements and nothing else.
    const bool isStandardOutputTaken = command.m_isJSON || isPrintingRejected(command);
    const auto write = isStandardOutputTaken ? writeStandardError : writeStandardOutput;
    if (!command.m_isJSON)
        write("\n");
    AnswerPrinter printer(dictionary, false, !isStandardOutputTaken && isStandardOutputTerminal(), write);
    for (const std::string& literal : command.m_literalsToResolve)
        printer.resolve(literal);
    for (const uint64_t resourceID : command.m_resourceIDsToGet)
        printer.get(resourceID);
    return printer.getExitCode();
}

void printWhyStopped(const ImportReport& report) {
    if (report.m_limitMessage)
        printMessage(fmt::format("the import was stopped. {}", *report.m_limitMessage));
    else if (report.m_isStoppedByStrict)
        printMessage(
            "the import was stopped at the first fault (--strict); the figures cover what was read until then");
}

}

int runImportCommand(const ImportCommand& command) {
    ImportOptions options = makeImportOptions(command);
    const bool hasStore = !command.m_storePath.empty();
    checkOutputs(command);
    checkStorePath(command);
    std::optional<ReplacingFile> newStore;
    if (hasStore && !command.m_isDryRun)
        newStore.emplace(
            command.m_storePath); // locked before the old one is read, so that no import in between is lost
    const std::unique_ptr<Dictionary> dictionary = makeDictionary(command);
    const uint64_t valuesBefore = hasStore ? countResources(*dictionary) : 0;

    ImportReport report = runImport(command, std::move(options), *dictionary);
    std::exception_ptr failure;
    if (hasStore)
        failure = saveStore(command, *dictionary, valuesBefore, newStore ? &*newStore : nullptr, report);
    if (isPrintingRejected(command))
        writeStandardError(formatReport(report));
    else
        writeStandardOutput(command.m_isJSON ? formatReportAsJSON(report) : formatReport(report));
    const int lookUpExitCode = lookUp(command, *dictionary);
    printWhyStopped(report);
    flushStandardOutput(); // before the store, so that it is unchanged if this fails
    if (failure)
        std::rethrow_exception(failure);
    if (report.m_store && report.m_store->m_isWritten)
        newStore->commit();
    const int exitCode = report.getExitCode();
    return exitCode == EXIT_ALL_WELL ? lookUpExitCode : exitCode;
}

}
