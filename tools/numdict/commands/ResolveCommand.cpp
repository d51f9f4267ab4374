#include "core/data-store/dictionary/DatatypeIDs.h"
#include "numdict/commands/StoreCommands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/input/LineList.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/stores/OutputFile.h"
#include "numdict/stores/ResourceRecord.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string_view>

namespace kavix::numdict {

namespace {

/// Answers questions to a store, a line each, and remembers whether all were answered with a resource.
class Answerer {

public:

    Answerer(const Dictionary& dictionary, bool isJSON) :
        m_dictionary(dictionary),
        m_isJSON(isJSON),
        m_writer(
            isJSON ? RecordFormat::JSON_LINES : RecordFormat::TEXT, !isJSON && isStandardOutputTerminal(),
            getEndOfResourceIDs(dictionary)) { }

    void resolve(std::string_view literal) {
        const LiteralDescription description = describeLiteral(literal);
        const uint64_t resourceID = description.m_isValid ? m_dictionary.tryResolve(description.m_value) : 0;
        if (resourceID != 0)
            answer(resourceID, description.m_value);
        else if (description.m_isValid)
            answerNothing("", description.m_datatype, description.m_turtle, "absent", NOT_IN_STORE);
        else
            answerNothing("", description.m_datatype, literal, description.m_reason, description.m_message);
    }

    void get(std::string_view text) {
        const std::optional<uint64_t> resourceID = tryParseResourceID(text);
        if (!resourceID)
            answerNothing(text, "", "", "syntax", "this is no resource ID, which is a number");
        else if (m_dictionary.tryGetResourceDatatypeID(*resourceID) == D_NONE)
            answerNothing(text, "", "", "absent", NOT_IN_STORE);
        else
            answer(*resourceID, m_dictionary.getValue(*resourceID));
    }

    int getExitCode() const noexcept { return m_isAllFound ? EXIT_ALL_WELL : EXIT_DAMAGED_INPUT; }

private:

    static constexpr char NOT_IN_STORE[] = "not in the store";

    void answer(uint64_t resourceID, const ResourceValue& value) {
        m_text.clear();
        m_writer.appendRecord(resourceID, value, m_text);
        writeStandardOutput(m_text);
    }

    void answerNothing(
        std::string_view resourceID, std::string_view datatype, std::string_view literal, std::string_view reason,
        std::string_view message) {
        m_isAllFound = false;
        m_text.clear();
        if (m_isJSON) {
            const auto orNull = [](std::string_view text) {
                return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
            };
            nlohmann::ordered_json object;
            const std::optional<uint64_t> number = tryParseResourceID(resourceID);
            object["id"] = number ? nlohmann::ordered_json(*number) : orNull(resourceID);
            object["datatype"] = orNull(datatype);
            object["literal"] = orNull(literal);
            object["reason"] = reason;
            object["message"] = message;
            m_text = object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
        }
        else
            m_writer.appendMissing(resourceID, datatype, literal, message, m_text);
        writeStandardOutput(m_text);
    }

    const Dictionary& m_dictionary;
    const bool m_isJSON;
    const RecordWriter m_writer;
    bool m_isAllFound = true;
    std::string m_text;
};

}

int runResolveCommand(const ResolveCommand& command) {
    if (command.m_literals.empty() && command.m_file.empty())
        throw UsageError("resolve: name at least one literal, or a file of literals with --file");
    const std::unique_ptr<Dictionary> dictionary = openStoreFile("resolve", command.m_storePath, command.m_options);
    Answerer answerer(*dictionary, command.m_isJSON);
    for (const std::string& literal : command.m_literals)
        answerer.resolve(literal);
    if (!command.m_file.empty())
        forEachLine(
            "resolve", command.m_file, [&answerer](std::string_view line, uint64_t) { answerer.resolve(line); });
    return answerer.getExitCode();
}

int runGetCommand(const GetCommand& command) {
    if (command.m_resourceIDs.empty() && command.m_file.empty())
        throw UsageError("get: name at least one resource ID, or a file of them with --file");
    const std::unique_ptr<Dictionary> dictionary = openStoreFile("get", command.m_storePath, command.m_options);
    Answerer answerer(*dictionary, command.m_isJSON);
    for (const std::string& resourceID : command.m_resourceIDs)
        answerer.get(resourceID);
    if (!command.m_file.empty())
        forEachLine("get", command.m_file, [&answerer](std::string_view line, uint64_t) { answerer.get(line); });
    return answerer.getExitCode();
}

}
