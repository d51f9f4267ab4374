#include "core/data-store/dictionary/DatatypeIDs.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/JSON.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/input/LineList.h"
#include "numdict/literals/LiteralDescription.h"

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace kavix::numdict {

namespace {

std::string formatBinary(const ResourceValue& value) {
    std::string text;
    for (uint64_t index = 0; index < value.dataSize; ++index)
        text += fmt::format("{:02x}", value.data[index]);
    return text;
}

std::string formatAsJSON(const LiteralDescription& description) {
    JSON object;
    object["literal"] = description.m_literal;
    object["datatype"] = toJSONOrNull(description.m_datatype);
    object["datatypeID"] = description.m_datatypeID == D_NONE ? JSON() : JSON(description.m_datatypeID);
    object["valid"] = description.m_isValid;
    if (description.m_isValid) {
        object["lexicalForm"] = description.m_lexicalForm;
        object["turtle"] = description.m_turtle;
        object["binary"] = formatBinary(description.m_value);
    }
    else {
        object["reason"] = description.m_reason;
        object["message"] = description.m_message;
        if (!description.m_explanation.empty())
            object["explanation"] = description.m_explanation;
    }
    return formatJSONLine(object);
}

std::string formatForPeople(const LiteralDescription& description) {
    if (!description.m_isValid)
        return fmt::format(
            "{}\n  error      {} ({})\n", description.m_literal, description.getFullMessage(), description.m_reason);
    return fmt::format(
        "{}\n  datatype   {} (ID {})\n  value      {}\n  Turtle     {}\n  binary     {}\n", description.m_literal,
        description.m_datatype, description.m_datatypeID, description.m_lexicalForm, description.m_turtle,
        formatBinary(description.m_value));
}

/// Describes literals one after the other and remembers whether all were valid.
class Describer {

public:

    explicit Describer(bool isJSON) :
        m_isJSON(isJSON) { }

    void describe(std::string_view literal) {
        const LiteralDescription description = describeLiteral(literal);
        writeStandardOutput(m_isJSON ? formatAsJSON(description) : formatForPeople(description));
        m_areAllValid = m_areAllValid && description.m_isValid;
    }

    bool areAllValid() const noexcept { return m_areAllValid; }

private:

    const bool m_isJSON;
    bool m_areAllValid = true;
};

}

int runParseCommand(const ParseCommand& command) {
    if (command.m_literals.empty() && command.m_file.empty())
        throw UsageError("parse: specify at least one literal, or a file of literals with --file");
    Describer describer(command.m_isJSON);
    for (const std::string& literal : command.m_literals)
        describer.describe(literal);
    // Every line gets its answer, so that answers and lines can be matched; an empty one has nothing to answer.
    if (!command.m_file.empty())
        forEachLine(
            "parse", command.m_file, [&describer](std::string_view line, uint64_t) { describer.describe(line); });
    return describer.areAllValid() ? EXIT_ALL_WELL : EXIT_DAMAGED_INPUT;
}

}
