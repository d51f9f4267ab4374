#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/literals/LiteralDescription.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <iostream>
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
    nlohmann::ordered_json object;
    object["literal"] = description.m_literal;
    object["datatype"] =
        description.m_datatype.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(description.m_datatype);
    object["datatypeID"] =
        description.m_datatypeID == 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(description.m_datatypeID);
    object["valid"] = description.m_isValid;
    if (description.m_isValid) {
        object["lexicalForm"] = description.m_lexicalForm;
        object["turtle"] = description.m_turtle;
        object["binary"] = formatBinary(description.m_value);
    }
    else {
        object["reason"] = description.m_reason;
        object["message"] = description.m_message;
    }
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string formatForPeople(const LiteralDescription& description) {
    if (!description.m_isValid)
        return fmt::format(
            "{}\n  error      {} ({})\n", description.m_literal, description.m_message, description.m_reason);
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

void describeLines(std::istream& input, const std::string& name, Describer& describer) {
    std::string line;
    while (std::getline(input, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        // Every line gets its answer, so that answers and lines can be matched; an empty one has nothing to answer.
        if (line.find_first_not_of(" \t") != std::string::npos)
            describer.describe(line);
    }
    if (input.bad())
        throw SystemFailure(fmt::format("cannot read '{}'", name));
}

}

int runParseCommand(const ParseCommand& command) {
    if (command.m_literals.empty() && command.m_file.empty())
        throw UsageError("parse: name at least one literal, or a file of literals with --file");
    Describer describer(command.m_isJSON);
    for (const std::string& literal : command.m_literals)
        describer.describe(literal);
    if (command.m_file == "-") {
        std::ios::sync_with_stdio(false);
        describeLines(std::cin, "standard input", describer);
    }
    else if (!command.m_file.empty()) {
        std::ifstream file(command.m_file, std::ios::binary);
        if (!file)
            throw UsageError(fmt::format("parse: the file '{}' cannot be opened", command.m_file));
        describeLines(file, command.m_file, describer);
    }
    return describer.areAllValid() ? EXIT_ALL_WELL : EXIT_DAMAGED_INPUT;
}

}
