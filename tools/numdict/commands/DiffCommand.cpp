#include "core/data-store/dictionary/DatatypeIDs.h"
#include "numdict/commands/StoreCommands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/stores/MemoryBudget.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

namespace kavix::numdict {

namespace {

/// Writes differences, a line each, and counts them.
class DifferenceWriter {

public:

    explicit DifferenceWriter(bool isJSON) :
        m_isJSON(isJSON) { }

    /// @param firstID, secondID  0 where the store does not have the value
    void write(uint64_t firstID, uint64_t secondID, const ResourceValue& value) {
        ++(secondID == 0 ? m_onlyInFirst : firstID == 0 ? m_onlyInSecond : m_otherIDs);
        const std::string literal = formatTurtleLiteral(value);
        const auto toText = [](uint64_t resourceID) {
            return resourceID == 0 ? std::string("-") : std::to_string(resourceID);
        };
        if (m_isJSON) {
            nlohmann::ordered_json object;
            object["literal"] = literal;
            object["first"] = firstID == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(firstID);
            object["second"] = secondID == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(secondID);
            writeStandardOutput(object.dump() + "\n");
        }
        else
            writeStandardOutput(fmt::format(
                "{}\t{}\t{}\t{}\n",
                secondID == 0  ? '<'
                : firstID == 0 ? '>'
                               : '!',
                toText(firstID), toText(secondID), literal));
    }

    bool isAny() const noexcept { return m_onlyInFirst + m_onlyInSecond + m_otherIDs != 0; }

    std::string summarise() const {
        return fmt::format(
            "{} values only in the first store, {} only in the second, {} with other IDs", formatCount(m_onlyInFirst),
            formatCount(m_onlyInSecond), formatCount(m_otherIDs));
    }

private:

    const bool m_isJSON;
    uint64_t m_onlyInFirst = 0;
    uint64_t m_onlyInSecond = 0;
    uint64_t m_otherIDs = 0;
};

template<typename Function>
void forEachResource(const Dictionary& dictionary, Function function) {
    const uint64_t end = getEndOfResourceIDs(dictionary);
    for (uint64_t resourceID = 1; resourceID < end; ++resourceID)
        if (dictionary.tryGetResourceDatatypeID(resourceID) != D_NONE)
            function(resourceID, dictionary.getValue(resourceID));
}

}

int runDiffCommand(const DiffCommand& command) {
    checkStoreExists("diff", command.m_firstPath);
    checkStoreExists("diff", command.m_secondPath);
    const uint64_t budget = getMemoryBudget("diff", command.m_options.m_memory);
    const std::unique_ptr<Dictionary> first = openStoreFile(command.m_firstPath, budget, command.m_options);
    const std::unique_ptr<Dictionary> second =
        openStoreFile(command.m_secondPath, budget - std::min(budget, first->getUsedBytes()), command.m_options);
    DifferenceWriter writer(command.m_isJSON);
    forEachResource(*first, [&](uint64_t resourceID, const ResourceValue& value) {
        const uint64_t secondID = second->tryResolve(value);
        if (secondID != resourceID)
            writer.write(resourceID, secondID, value);
    });
    forEachResource(*second, [&](uint64_t resourceID, const ResourceValue& value) {
        if (first->tryResolve(value) == 0)
            writer.write(0, resourceID, value);
    });
    if (writer.isAny() && !command.m_options.m_isQuiet)
        std::fputs(fmt::format("numdict: {}\n", writer.summarise()).c_str(), stderr);
    return writer.isAny() ? EXIT_DAMAGED_INPUT : EXIT_ALL_WELL;
}

}
