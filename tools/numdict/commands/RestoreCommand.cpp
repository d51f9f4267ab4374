#include "core/data-store/embedding/Restoration.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/commands/StoreCommands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/console/WorkerThreads.h"
#include "numdict/stores/MemoryBudget.h"
#include "numdict/stores/RecordReader.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace kavix::numdict {

namespace {

/// Says what is wrong with the records; returns whether something is.
bool reportBadRecords(const RecordReader& reader, const std::string& path) {
    for (const BadRecord& record : reader.getBadRecords())
        std::fputs(fmt::format("numdict: {}:{}: {}\n", path, record.m_line, record.m_message).c_str(), stderr);
    const uint64_t count = reader.getNumberOfBadRecords();
    if (count > reader.getBadRecords().size())
        std::fputs(fmt::format("numdict: {} bad records in all\n", formatCount(count)).c_str(), stderr);
    if (count != 0)
        std::fputs("numdict: nothing was written\n", stderr);
    return count != 0;
}

/// Restores a record unless it contradicts another one, which is that record's fault and nobody else's.
void restoreRecord(Restoration& restoration, const ResourceRecord& record) {
    try {
        restoration.restore(record.m_resourceID, record.m_value);
    }
    catch (const KavixException& exception) {
        if (comesFrom(exception, ErrorSites::CONTRADICTING_RECORD) || comesFrom(exception, ErrorSites::INVALID_OPTION))
            throw RecordFailure(exception.getMessage());
        throw;
    }
}

}

int runRestoreCommand(const RestoreCommand& command) {
    std::error_code error;
    const bool isStandardInput = command.m_recordsPath == "-";
    if (!isStandardInput && (!std::filesystem::exists(command.m_recordsPath, error) ||
                             std::filesystem::is_directory(command.m_recordsPath, error)))
        throw UsageError(fmt::format("restore: there is no file '{}'", command.m_recordsPath));
    const std::string name = isStandardInput ? "standard input" : command.m_recordsPath;
    const unsigned numberOfThreads =
        command.m_numberOfThreads != 0 ? command.m_numberOfThreads : getNumberOfProcessors();
    Dictionary::Options options;
    options.memoryBudgetBytes = getMemoryBudget("restore", command.m_options.m_memory);
    options.resourceIDWidth = command.m_resourceIDWidth == 64 ? ResourceIDWidth::BITS_64 : ResourceIDWidth::BITS_32;
    options.useHugePages = !command.m_options.m_isWithoutHugePages;
    ReplacingFile file(command.m_storePath);
    Dictionary dictionary(options);

    std::vector<uint64_t> counts(256, 0);
    if (!isStandardInput && std::filesystem::is_regular_file(command.m_recordsPath, error)) {
        // The first pass finds what is malformed, and how many resources of each datatype the tables must hold. What
        // cannot be read twice is restored into tables that grow.
        RecordReader reader(command.m_recordsPath, numberOfThreads, "counting " + name, command.m_options.m_isQuiet);
        std::array<std::atomic<uint64_t>, 256> sharedCounts{};
        reader.read([&sharedCounts](const ResourceRecord& record) {
            sharedCounts[record.m_value.datatypeID].fetch_add(1, std::memory_order_relaxed);
        });
        if (reportBadRecords(reader, name))
            return EXIT_DAMAGED_INPUT;
        for (size_t index = 0; index < counts.size(); ++index)
            counts[index] = sharedCounts[index].load(std::memory_order_relaxed);
    }
    {
        Restoration restoration(dictionary, std::move(counts));
        RecordReader reader(command.m_recordsPath, numberOfThreads, "restoring " + name, command.m_options.m_isQuiet);
        reader.read([&restoration](const ResourceRecord& record) { restoreRecord(restoration, record); });
        if (reportBadRecords(reader, name))
            return EXIT_DAMAGED_INPUT;
        try {
            restoration.finish();
        }
        catch (const KavixException& exception) {
            if (!comesFrom(exception, ErrorSites::CONTRADICTING_RECORD))
                throw;
            std::fputs(
                fmt::format("numdict: {}: two records have the same resource ID\nnumdict: nothing was written\n", name)
                    .c_str(),
                stderr);
            return EXIT_DAMAGED_INPUT;
        }
    }
    const uint64_t size = saveStoreFile(dictionary, file, command.m_options.m_isQuiet);
    const uint64_t numberOfValues = countResources(dictionary);
    if (command.m_isJSON) {
        nlohmann::ordered_json object;
        object["store"] = command.m_storePath;
        object["values"] = numberOfValues;
        object["bytes"] = size;
        writeStandardOutput(object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    }
    else
        writeStandardOutput(fmt::format(
            "{}: {} values restored, {}\n", command.m_storePath, formatCount(numberOfValues), formatSize(size)));
    flushStandardOutput(); // before the file, so that it is as it was if this fails
    file.commit();
    return EXIT_ALL_WELL;
}

}
