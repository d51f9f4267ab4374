#include "core/data-store/repair/StoreRepair.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/commands/StoreCommands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/ProgressDisplay.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/stores/MappedFile.h"
#include "numdict/stores/MemoryBudget.h"
#include "numdict/stores/StoreCheck.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace kavix::numdict {

namespace {

/// Counts problems; prints the first ones, or all, as they come, or keeps them for JSON.
class ProblemList {

public:

    static constexpr uint64_t LIMIT = 20;

    ProblemList(std::string prefix, bool isListingAll, bool isJSON) :
        m_prefix(std::move(prefix)),
        m_isListingAll(isListingAll),
        m_isJSON(isJSON) { }

    void add(std::string&& problem) {
        ++m_count;
        if (!m_isListingAll && m_count > LIMIT)
            return;
        if (m_isJSON)
            m_problems.push_back(std::move(problem));
        else
            writeStandardOutput(m_prefix + problem + "\n");
    }

    /// Says how many were not printed.
    void finish() const {
        if (!m_isJSON && !m_isListingAll && m_count > LIMIT)
            writeStandardOutput(
                fmt::format("{}... and {} more; --all lists them\n", m_prefix, formatCount(m_count - LIMIT)));
    }

    uint64_t getCount() const noexcept { return m_count; }

    const nlohmann::ordered_json& getProblems() const noexcept { return m_problems; }

private:

    const std::string m_prefix;
    const bool m_isListingAll;
    const bool m_isJSON;
    uint64_t m_count = 0;
    nlohmann::ordered_json m_problems = nlohmann::ordered_json::array();
};

std::string formatProblems(uint64_t count) {
    return count == 1 ? "1 problem" : formatCount(count) + " problems";
}

}

int runCheckCommand(const CheckCommand& command) {
    checkStoreExists("check", command.m_storePath);
    if (command.m_isRepairing == command.m_outputPath.empty())
        throw UsageError(
            "check: --repair and -o belong together: the repaired store is a new file, and the damaged one stays");
    if (command.m_isTakingUnconfirmed && !command.m_isRepairing)
        throw UsageError("check: --unconfirmed says what --repair saves; add --repair -o NEW");
    std::error_code error;
    if (command.m_isRepairing && std::filesystem::equivalent(command.m_storePath, command.m_outputPath, error))
        throw UsageError("check: the repaired store needs another file than the damaged one, which stays");
    const uint64_t budget = getMemoryBudget("check", command.m_options.m_memory);
    const bool useHugePages = !command.m_options.m_isWithoutHugePages;
    std::optional<ReplacingFile> repairedFile;
    if (command.m_isRepairing)
        repairedFile.emplace(command.m_outputPath);

    std::optional<ProgressDisplay> display;
    if (!command.m_options.m_isQuiet)
        display.emplace([&](double seconds) {
            return fmt::format("checking {}, {}", command.m_storePath, formatDuration(seconds));
        });
    const MappedFile file(command.m_storePath);
    const DamagedStore store(file.getData(), file.getLength());
    ProblemList problems("", command.m_isListingAll, command.m_isJSON);
    checkStore(
        file, store, budget, useHugePages, [&problems](std::string&& problem) { problems.add(std::move(problem)); });
    problems.finish();

    ProblemList losses("not saved: ", command.m_isListingAll, command.m_isJSON);
    uint64_t numberOfSaved = 0;
    const bool isWritten = command.m_isRepairing && store.isReadable();
    if (isWritten) {
        const std::unique_ptr<Dictionary> dictionary =
            StoreRepair(store, command.m_isTakingUnconfirmed)
                .rebuild(budget, useHugePages, [&losses](std::string&& loss) { losses.add(std::move(loss)); });
        losses.finish();
        numberOfSaved = countResources(*dictionary);
        saveStoreFile(*dictionary, *repairedFile, true);
    }
    display.reset();
    if (command.m_isJSON) {
        nlohmann::ordered_json object;
        object["store"] = command.m_storePath;
        object["numberOfProblems"] = problems.getCount();
        object["problems"] = problems.getProblems();
        if (command.m_isRepairing) {
            nlohmann::ordered_json& repair = object["repair"];
            repair["store"] = isWritten ? nlohmann::ordered_json(command.m_outputPath) : nlohmann::ordered_json();
            repair["saved"] = numberOfSaved;
            repair["lost"] = losses.getCount();
            repair["losses"] = losses.getProblems();
        }
        writeStandardOutput(object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    }
    else {
        writeStandardOutput(fmt::format(
            "{}: {}\n", command.m_storePath, problems.getCount() == 0 ? "sound" : formatProblems(problems.getCount())));
        if (isWritten)
            writeStandardOutput(fmt::format(
                "{}: {} values saved, {} not\n", command.m_outputPath, formatCount(numberOfSaved),
                formatCount(losses.getCount())));
        else if (command.m_isRepairing)
            writeStandardOutput("nothing can be saved, and no file was written\n");
    }
    flushStandardOutput();
    if (isWritten)
        repairedFile->commit();
    const bool isWell = command.m_isRepairing ? isWritten && losses.getCount() == 0 : problems.getCount() == 0;
    return isWell ? EXIT_ALL_WELL : EXIT_DAMAGED_INPUT;
}

}
