#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/JSON.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardError.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/console/Trim.h"
#include "numdict/input/LineList.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/stores/OutputFile.h"
#include "numdict/stores/ResourceRecord.h"
#include "numdict/stores/Resources.h"
#include "numdict/stores/StoreFile.h"

#include <fmt/format.h>

#include <iterator>
#include <memory>
#include <optional>
#include <string_view>

namespace kavix::numdict {

namespace {

/// The resources that a file lists, by ID or by literal.
class Selection {

public:

    explicit Selection(const Dictionary& dictionary) :
        m_dictionary(dictionary),
        m_isSelected(getEndOfResourceIDs(dictionary), false) { }

    /// Returns whether every line could be understood.
    bool read(const std::string& path) {
        bool isUnderstood = true;
        forEachLine("compact", path, [&](std::string_view line, uint64_t number) {
            isUnderstood &= readLine(trim(line, LINE_BLANKS), fmt::format("{}:{}", path, number));
        });
        return isUnderstood;
    }

    bool contains(uint64_t resourceID) const { return m_isSelected[resourceID]; }

    uint64_t getNumberOfMissing() const noexcept { return m_numberOfMissing; }

private:

    /// So many missing ones are shown.
    static constexpr uint64_t LIMIT = 10;

    bool readLine(std::string_view line, const std::string& place) {
        if (line.find_first_not_of("0123456789") == std::string_view::npos) {
            const uint64_t resourceID = tryParseResourceID(line).value_or(0); // beyond 64 bits there are none
            select(m_dictionary.tryGetResourceDatatypeID(resourceID) != D_NONE ? resourceID : 0, place, line);
            return true;
        }
        const LiteralDescription description = describeLiteral(line);
        if (description.m_isValid)
            select(m_dictionary.tryResolve(description.m_value), place, line);
        else
            printMessage(fmt::format("{}: {}: {}", place, line, description.getFullMessage()));
        return description.m_isValid;
    }

    /// @param resourceID  0 if there is none
    void select(uint64_t resourceID, const std::string& place, std::string_view line) {
        if (resourceID != 0)
            m_isSelected[resourceID] = true;
        else if (++m_numberOfMissing <= LIMIT)
            printMessage(fmt::format("{}: {} is not in the store", place, line));
        else if (m_numberOfMissing == LIMIT + 1)
            printMessage("and more that are not in the store");
    }

    const Dictionary& m_dictionary;
    std::vector<bool> m_isSelected; // by resource ID
    uint64_t m_numberOfMissing = 0;
};

void writeMap(const std::vector<uint64_t>& newResourceIDs, OutputFile& output) {
    for (uint64_t resourceID = 1; resourceID < newResourceIDs.size(); ++resourceID)
        if (newResourceIDs[resourceID] != 0)
            output.append([&](std::string& text) {
                fmt::format_to(std::back_inserter(text), "{}\t{}\n", resourceID, newResourceIDs[resourceID]);
            });
}

/// What the compaction has changed.
struct Compaction {
    uint64_t m_valuesBefore;
    uint64_t m_valuesAfter;
    uint64_t m_memoryBefore;
    uint64_t m_memoryAfter;
    std::vector<uint64_t> m_newResourceIDs; // by old resource ID; 0 for those that were dropped
};

template<typename IsKept>
Compaction compact(Dictionary& dictionary, const IsKept& isKept) {
    Compaction compaction{};
    compaction.m_valuesBefore = countResources(dictionary);
    compaction.m_memoryBefore = dictionary.getUsedBytes();
    compaction.m_newResourceIDs = dictionary.compact(isKept);
    compaction.m_valuesAfter = countResources(dictionary);
    compaction.m_memoryAfter = dictionary.getUsedBytes();
    return compaction;
}

void printResult(
    const CompactCommand& command, const Compaction& compaction, uint64_t numberOfMissing, uint64_t numberOfBytes) {
    const uint64_t numberOfDropped = compaction.m_valuesBefore - compaction.m_valuesAfter;
    if (command.m_isJSON) {
        JSON object;
        object["store"] = command.m_outputPath.empty() ? command.m_storePath : command.m_outputPath;
        object["kept"] = compaction.m_valuesAfter;
        object["dropped"] = numberOfDropped;
        object["missing"] = numberOfMissing;
        object["memoryBefore"] = compaction.m_memoryBefore;
        object["memoryAfter"] = compaction.m_memoryAfter;
        object["bytes"] = numberOfBytes;
        writeStandardOutput(formatJSON(object));
    }
    else if (command.m_mapPath != "-")
        writeStandardOutput(fmt::format(
            "{} values kept, {} dropped; memory {}, was {}; file {}\n", formatCount(compaction.m_valuesAfter),
            formatCount(numberOfDropped), formatSize(compaction.m_memoryAfter), formatSize(compaction.m_memoryBefore),
            formatSize(numberOfBytes)));
}

}

int runCompactCommand(const CompactCommand& command) {
    const bool isKeeping = !command.m_keepPath.empty();
    const bool isDropping = !command.m_dropPath.empty();
    checkStoreExists("compact", command.m_storePath);
    // Locked before the store is read, so that no changes of others in between are lost.
    ReplacingFile file(command.m_outputPath.empty() ? command.m_storePath : command.m_outputPath);
    const std::unique_ptr<Dictionary> dictionary = openStoreFile("compact", command.m_storePath, command.m_options);
    std::optional<OutputFile> map;
    if (!command.m_mapPath.empty())
        map.emplace(command.m_mapPath);

    Selection selection(*dictionary);
    if ((isKeeping || isDropping) && !selection.read(isKeeping ? command.m_keepPath : command.m_dropPath)) {
        printMessage("nothing was written");
        return EXIT_DAMAGED_INPUT;
    }
    const Compaction compaction =
        compact(*dictionary, [&](uint64_t resourceID) { return selection.contains(resourceID) == isKeeping; });
    const uint64_t numberOfBytes = saveStoreFile(*dictionary, file, command.m_options.m_isQuiet);
    if (map)
        writeMap(compaction.m_newResourceIDs, *map);
    printResult(command, compaction, selection.getNumberOfMissing(), numberOfBytes);
    flushStandardOutput(); // before the files, so that the store is unchanged if this fails
    // The map first: a store with new IDs and no map to them could not be understood.
    if (map)
        map->finish();
    file.commit();
    return selection.getNumberOfMissing() == 0 ? EXIT_ALL_WELL : EXIT_DAMAGED_INPUT;
}

}
