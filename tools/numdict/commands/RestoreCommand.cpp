#include "core/data-store/embedding/Restoration.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/JSON.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardError.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/console/WorkerThreads.h"
#include "numdict/input/LineList.h"
#include "numdict/stores/RecordReader.h"
#include "numdict/stores/Resources.h"
#include "numdict/stores/StoreFile.h"

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <system_error>
#include <utility>

namespace kavix::numdict {

namespace {

/// Reads all records, on as many threads as the command says, and reports the bad ones; returns whether all are good.
/// @param task  "counting", for the progress
bool readRecords(const RestoreCommand& command, const std::string& task, const RecordReader::Consumer& consume) {
    const std::string name = getShownName(command.m_recordsPath);
    const unsigned numberOfThreads =
        command.m_numberOfThreads != 0 ? command.m_numberOfThreads : getNumberOfProcessors();
    RecordReader reader(command.m_recordsPath, numberOfThreads, task + " " + name, command.m_options.m_isQuiet);
    reader.read(consume);
    for (const BadRecord& record : reader.getBadRecords())
        printMessage(fmt::format("{}:{}: {}", name, record.m_line, record.m_message));
    const uint64_t count = reader.getNumberOfBadRecords();
    if (count > reader.getBadRecords().size())
        printMessage(fmt::format("{} bad records in all", formatCount(count)));
    if (count != 0)
        printMessage("nothing was written");
    return count == 0;
}

/// Counts the resources by datatype ID, so that the tables can be sized; returns whether all records are well formed.
bool countRecords(const RestoreCommand& command, std::vector<uint64_t>& counts) {
    std::array<std::atomic<uint64_t>, 256> sharedCounts{};
    const bool areAllGood = readRecords(command, "counting", [&sharedCounts](const ResourceRecord& record) {
        sharedCounts[record.m_value.datatypeID].fetch_add(1, std::memory_order_relaxed);
    });
    counts.assign(sharedCounts.begin(), sharedCounts.end()); // the threads have ended
    return areAllGood;
}

/// Restores a record unless it contradicts another one, which is that record's fault only.
void restoreRecord(Restoration& restoration, const ResourceRecord& record) {
    try {
        restoration.restore(record.m_resourceID, record.m_value);
    }
    catch (const KavixException& exception) {
        if (comesFrom(exception, ErrorSites::CONTRADICTING_RECORD) ||
            comesFrom(exception, ErrorSites::RESOURCE_ID_OUT_OF_RANGE))
            throw RecordFailure(exception.getMessage());
        throw;
    }
}

/// Returns whether all records were restored; the dictionary is empty otherwise.
bool restoreRecords(const RestoreCommand& command, Dictionary& dictionary, std::vector<uint64_t>&& counts) {
    Restoration restoration(dictionary, std::move(counts));
    if (!readRecords(
            command, "restoring", [&restoration](const ResourceRecord& record) { restoreRecord(restoration, record); }))
        return false;
    restoration.finish();
    return true;
}

void printResult(const RestoreCommand& command, uint64_t numberOfValues, uint64_t numberOfBytes) {
    if (command.m_isJSON) {
        JSON object;
        object["store"] = command.m_storePath;
        object["values"] = numberOfValues;
        object["bytes"] = numberOfBytes;
        writeStandardOutput(formatJSON(object));
    }
    else
        writeStandardOutput(fmt::format(
            "{}: {} values restored, {}\n", command.m_storePath, formatCount(numberOfValues),
            formatSize(numberOfBytes)));
}

}

int runRestoreCommand(const RestoreCommand& command) {
    checkFileExists("restore", command.m_recordsPath);
    const uint64_t budget = getMemoryBudget("restore", command.m_options.m_memory);
    ReplacingFile file(command.m_storePath);
    Dictionary dictionary(makeDictionaryOptions(budget, command.m_options, command.m_resourceIDWidth));
    std::vector<uint64_t> counts;
    std::error_code error;
    // What cannot be read twice is restored into tables that grow.
    const bool canBeReadTwice =
        command.m_recordsPath != "-" && std::filesystem::is_regular_file(command.m_recordsPath, error);
    if ((canBeReadTwice && !countRecords(command, counts)) || !restoreRecords(command, dictionary, std::move(counts)))
        return EXIT_DAMAGED_INPUT;
    const uint64_t numberOfBytes = saveStoreFile(dictionary, file, command.m_options.m_isQuiet);
    printResult(command, countResources(dictionary), numberOfBytes);
    flushStandardOutput(); // before the file, so that it is unchanged if this fails
    file.commit();
    return EXIT_ALL_WELL;
}

}
