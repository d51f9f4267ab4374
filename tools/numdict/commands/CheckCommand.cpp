#include "core/data-store/repair/StoreRepair.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/JSON.h"
#include "numdict/console/ProgressDisplay.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/stores/MappedFile.h"
#include "numdict/stores/Resources.h"
#include "numdict/stores/StoreCheck.h"
#include "numdict/stores/StoreFile.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

namespace kavix::numdict {

namespace {

/// Counts problems; prints the first ones, or all, as they come, or keeps them for JSON.
class ProblemList {

public:

    static constexpr uint64_t LIMIT = 20;

    ProblemList(std::string prefix, const CheckCommand& command) :
        m_prefix(std::move(prefix)),
        m_isListingAll(command.m_isListingAll),
        m_isJSON(command.m_isJSON) { }

    void add(std::string&& problem) {
        ++m_count;
        if (!m_isListingAll && m_count > LIMIT)
            return;
        if (m_isJSON)
            m_problems.push_back(std::move(problem));
        else
            writeStandardOutput(m_prefix + problem + "\n");
    }

    /// Prints how many were not printed.
    void finish() const {
        if (!m_isJSON && !m_isListingAll && m_count > LIMIT)
            writeStandardOutput(
                fmt::format("{}... and {} more; --all lists them\n", m_prefix, formatCount(m_count - LIMIT)));
    }

    uint64_t getCount() const noexcept { return m_count; }

    const JSON& getProblems() const noexcept { return m_problems; }

private:

    const std::string m_prefix;
    const bool m_isListingAll;
    const bool m_isJSON;
    uint64_t m_count = 0;
    JSON m_problems = JSON::array();
};

/// What was found, and what became of the repair.
struct CheckResult {
    ProblemList m_problems;
    ProblemList m_losses;
    uint64_t m_numberOfSaved = 0;
    bool m_isWritten = false; // the repaired store

    explicit CheckResult(const CheckCommand& command) :
        m_problems("", command),
        m_losses("not saved: ", command) { }
};

void checkArguments(const CheckCommand& command) {
    checkStoreExists("check", command.m_storePath);
    if (command.m_isRepairing == command.m_outputPath.empty())
        throw UsageError(
            "check: --repair and -o belong together: the repaired store is a new file, and the damaged one stays");
    if (command.m_includeUnverified && !command.m_isRepairing)
        throw UsageError("check: --unconfirmed selects what --repair saves; add --repair -o NEW");
    std::error_code error;
    if (command.m_isRepairing && std::filesystem::equivalent(command.m_storePath, command.m_outputPath, error))
        throw UsageError("check: the repaired store needs another file than the damaged one, which stays");
}

/// @param repairedFile  null unless the command repairs
void checkAndRepair(const CheckCommand& command, uint64_t budget, ReplacingFile* repairedFile, CheckResult& result) {
    std::optional<ProgressDisplay> display;
    if (!command.m_options.m_isQuiet)
        display.emplace([&](double seconds) {
            return fmt::format("checking {}, {}", command.m_storePath, formatDuration(seconds));
        });
    const bool useHugePages = !command.m_options.m_isWithoutHugePages;
    const MappedFile file(command.m_storePath);
    const DamagedStore store(file.getData(), file.getLength());
    checkStore(file, store, budget, useHugePages, [&result](std::string&& problem) {
        result.m_problems.add(std::move(problem));
    });
    result.m_problems.finish();
    if (repairedFile == nullptr || !store.isReadable())
        return;
    const std::unique_ptr<Dictionary> dictionary =
        StoreRepair(store, command.m_includeUnverified).rebuild(budget, useHugePages, [&result](std::string&& loss) {
            result.m_losses.add(std::move(loss));
        });
    result.m_losses.finish();
    result.m_numberOfSaved = countResources(*dictionary);
    saveStoreFile(*dictionary, *repairedFile, true);
    result.m_isWritten = true;
}

JSON toJSON(const CheckCommand& command, const CheckResult& result) {
    JSON object;
    object["store"] = command.m_storePath;
    object["numberOfProblems"] = result.m_problems.getCount();
    object["problems"] = result.m_problems.getProblems();
    if (command.m_isRepairing) {
        JSON& repair = object["repair"];
        repair["store"] = result.m_isWritten ? JSON(command.m_outputPath) : JSON();
        repair["saved"] = result.m_numberOfSaved;
        repair["lost"] = result.m_losses.getCount();
        repair["losses"] = result.m_losses.getProblems();
    }
    return object;
}

std::string formatResult(const CheckCommand& command, const CheckResult& result) {
    const uint64_t count = result.m_problems.getCount();
    std::string text = command.m_storePath + ": ";
    text += count == 0 ? "intact\n" : count == 1 ? "1 problem\n" : formatCount(count) + " problems\n";
    if (result.m_isWritten)
        text += fmt::format(
            "{}: {} values saved, {} not\n", command.m_outputPath, formatCount(result.m_numberOfSaved),
            formatCount(result.m_losses.getCount()));
    else if (command.m_isRepairing)
        text += "nothing can be saved, and no file was written\n";
    return text;
}

}

int runCheckCommand(const CheckCommand& command) {
    checkArguments(command);
    const uint64_t budget = getMemoryBudget("check", command.m_options.m_memory);
    std::optional<ReplacingFile> repairedFile;
    if (command.m_isRepairing)
        repairedFile.emplace(command.m_outputPath);
    CheckResult result(command);
    checkAndRepair(command, budget, repairedFile ? &*repairedFile : nullptr, result);
    writeStandardOutput(command.m_isJSON ? formatJSON(toJSON(command, result)) : formatResult(command, result));
    flushStandardOutput(); // before the file, so that it is unchanged if this fails
    if (result.m_isWritten)
        repairedFile->commit();
    const bool isWell = command.m_isRepairing ? result.m_isWritten && result.m_losses.getCount() == 0
                                              : result.m_problems.getCount() == 0;
    return isWell ? EXIT_ALL_WELL : EXIT_DAMAGED_INPUT;
}

}
