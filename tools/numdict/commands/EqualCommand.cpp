#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/StandardError.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/literals/LiteralDescription.h"

#include <fmt/format.h>

#include <vector>

namespace kavix::numdict {

int runEqualCommand(const EqualCommand& command) {
    const LiteralDescription description = describeLiteral(command.m_literal);
    if (!description.m_isValid) {
        if (description.m_reason == "syntax")
            throw UsageError(fmt::format("'{}' is not a literal. {}", description.m_literal, description.m_message));
        printMessage(fmt::format("{}: {}", description.m_literal, description.getFullMessage()));
        return EXIT_DAMAGED_INPUT;
    }
    std::vector<ResourceValue> values;
    s_NumericDatatypeFactory.enumerateEqualResourceValues(description.m_value, values);
    for (const ResourceValue& value : values)
        if (value.datatypeID != description.m_datatypeID)
            writeStandardOutput(formatTurtleLiteral(value) + "\n");
    return EXIT_ALL_WELL;
}

}
