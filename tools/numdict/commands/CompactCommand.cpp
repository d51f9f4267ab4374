#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/commands/StoreCommands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/input/LineList.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/stores/OutputFile.h"
#include "numdict/stores/ResourceRecord.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
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
            const std::string place = fmt::format("{}:{}", path, number);
            if (line.find_first_not_of("0123456789") == std::string_view::npos) {
                const std::optional<uint64_t> resourceID = tryParseResourceID(line);
                select(
                    resourceID && m_dictionary.tryGetResourceDatatypeID(*resourceID) != D_NONE ? *resourceID : 0, place,
                    line);
                return;
            }
            const LiteralDescription description = describeLiteral(line);
            if (description.m_isValid)
                select(m_dictionary.tryResolve(description.m_value), place, line);
            else {
                isUnderstood = false;
                std::fputs(fmt::format("numdict: {}: {}: {}\n", place, line, description.m_message).c_str(), stderr);
            }
        });
        return isUnderstood;
    }

    bool contains(uint64_t resourceID) const { return m_isSelected[resourceID]; }

    uint64_t getNumberOfMissing() const noexcept { return m_numberOfMissing; }

private:

    /// As many missing ones are named.
    static constexpr uint64_t LIMIT = 10;

    void select(uint64_t resourceID, const std::string& place, std::string_view line) {
        if (resourceID != 0)
            m_isSelected[resourceID] = true;
        else if (++m_numberOfMissing <= LIMIT)
            std::fputs(fmt::format("numdict: {}: {} is not in the store\n", place, line).c_str(), stderr);
        else if (m_numberOfMissing == LIMIT + 1)
            std::fputs("numdict: and more that are not in the store\n", stderr);
    }

    const Dictionary& m_dictionary;
    std::vector<bool> m_isSelected; // by resource ID
    uint64_t m_numberOfMissing = 0;
};

void writeMap(const std::vector<uint64_t>& newResourceIDs, OutputFile& output) {
    constexpr size_t BUFFER_SIZE = size_t(1) << 18;
    std::string text;
    for (uint64_t resourceID = 1; resourceID < newResourceIDs.size(); ++resourceID)
        if (newResourceIDs[resourceID] != 0) {
            text += fmt::format("{}\t{}\n", resourceID, newResourceIDs[resourceID]);
            if (text.size() >= BUFFER_SIZE) {
                output.write(text);
                text.clear();
            }
        }
    output.write(text);
}

}

int runCompactCommand(const CompactCommand& command) {
    if (!command.m_keepPath.empty() && !command.m_dropPath.empty())
        throw UsageError("compact: name what to keep or what to drop, not both");
    checkStoreExists("compact", command.m_storePath);
    // Locked before the store is read, so that nobody's changes in between are lost.
    ReplacingFile file(command.m_outputPath.empty() ? command.m_storePath : command.m_outputPath);
    const std::unique_ptr<Dictionary> dictionary = openStoreFile("compact", command.m_storePath, command.m_options);
    std::optional<OutputFile> map;
    if (!command.m_mapPath.empty())
        map.emplace(command.m_mapPath);

    Selection selection(*dictionary);
    const bool isKeeping = !command.m_keepPath.empty();
    const bool isDropping = !command.m_dropPath.empty();
    if ((isKeeping || isDropping) && !selection.read(isKeeping ? command.m_keepPath : command.m_dropPath)) {
        std::fputs("numdict: nothing was written\n", stderr);
        return EXIT_DAMAGED_INPUT;
    }
    const uint64_t valuesBefore = countResources(*dictionary);
    const uint64_t memoryBefore = dictionary->getUsedBytes();
    const std::vector<uint64_t> newResourceIDs = dictionary->compact([&](uint64_t resourceID) {
        return isKeeping ? selection.contains(resourceID) : !selection.contains(resourceID);
    });
    const uint64_t valuesAfter = countResources(*dictionary);
    const uint64_t memoryAfter = dictionary->getUsedBytes();
    const uint64_t size = saveStoreFile(*dictionary, file, command.m_options.m_isQuiet);
    if (map)
        writeMap(newResourceIDs, *map);
    if (command.m_isJSON) {
        nlohmann::ordered_json object;
        object["store"] = command.m_outputPath.empty() ? command.m_storePath : command.m_outputPath;
        object["kept"] = valuesAfter;
        object["dropped"] = valuesBefore - valuesAfter;
        object["missing"] = selection.getNumberOfMissing();
        object["memoryBefore"] = memoryBefore;
        object["memoryAfter"] = memoryAfter;
        object["bytes"] = size;
        writeStandardOutput(object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    }
    else if (command.m_mapPath != "-")
        writeStandardOutput(fmt::format(
            "{} values kept, {} dropped; memory {}, was {}; file {}\n", formatCount(valuesAfter),
            formatCount(valuesBefore - valuesAfter), formatSize(memoryAfter), formatSize(memoryBefore),
            formatSize(size)));
    flushStandardOutput(); // before the files, so that the store is as it was if this fails
    // The map first: a store with new IDs and no map to them could not be understood.
    if (map)
        map->finish();
    file.commit();
    return selection.getNumberOfMissing() == 0 ? EXIT_ALL_WELL : EXIT_DAMAGED_INPUT;
}

}
