#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/JSON.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardError.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/stores/Resources.h"
#include "numdict/stores/StoreFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>

namespace kavix::numdict {

namespace {

/// Writes differences, one line each, and counts them.
class DifferenceWriter {

public:

    explicit DifferenceWriter(bool isJSON) :
        m_isJSON(isJSON) { }

    /// @param firstID, secondID  0 if the store does not have the value
    void write(uint64_t firstID, uint64_t secondID, const ResourceValue& value) {
        ++(secondID == 0 ? m_onlyInFirst : firstID == 0 ? m_onlyInSecond : m_otherIDs);
        const std::string literal = formatTurtleLiteral(value);
        if (m_isJSON) {
            JSON object;
            object["literal"] = literal;
            object["first"] = firstID == 0 ? JSON() : JSON(firstID);
            object["second"] = secondID == 0 ? JSON() : JSON(secondID);
            writeStandardOutput(formatJSONLine(object));
            return;
        }
        const char mark = secondID == 0 ? '<' : firstID == 0 ? '>' : '!';
        writeStandardOutput(fmt::format("{}\t{}\t{}\t{}\n", mark, orDash(firstID), orDash(secondID), literal));
    }

    bool isAny() const noexcept { return m_onlyInFirst + m_onlyInSecond + m_otherIDs != 0; }

    std::string summarise() const {
        return fmt::format(
            "{} values only in the first store, {} only in the second, {} with other IDs", formatCount(m_onlyInFirst),
            formatCount(m_onlyInSecond), formatCount(m_otherIDs));
    }

private:

    static std::string orDash(uint64_t resourceID) { return resourceID == 0 ? "-" : std::to_string(resourceID); }

    const bool m_isJSON;
    uint64_t m_onlyInFirst = 0;
    uint64_t m_onlyInSecond = 0;
    uint64_t m_otherIDs = 0;
};

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
        printMessage(writer.summarise());
    return writer.isAny() ? EXIT_DAMAGED_INPUT : EXIT_ALL_WELL;
}

}
