#include "numdict/commands/AnswerPrinter.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "numdict/console/Failures.h"
#include "numdict/console/JSON.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/stores/Resources.h"

#include <optional>
#include <utility>

namespace kavix::numdict {

namespace {

constexpr char ABSENT[] = "absent";

constexpr char NOT_FOUND[] = "not found";

}

AnswerPrinter::AnswerPrinter(const Dictionary& dictionary, bool isJSON, bool isAligned, Write write) :
    m_dictionary(dictionary),
    m_isJSON(isJSON),
    m_recordWriter(
        isJSON ? RecordFormat::JSON_LINES : RecordFormat::TEXT, isAligned && !isJSON, getEndOfResourceIDs(dictionary)),
    m_write(std::move(write)) { }

void AnswerPrinter::resolve(std::string_view literal) {
    const LiteralDescription description = describeLiteral(literal);
    const uint64_t resourceID = description.m_isValid ? m_dictionary.tryResolve(description.m_value) : 0;
    if (resourceID != 0)
        print(resourceID, description.m_value);
    else if (description.m_isValid)
        print(Miss{"", description.m_datatype, description.m_turtle, ABSENT, NOT_FOUND, ""});
    else
        print(Miss{
            "", description.m_datatype, literal, description.m_reason, description.m_message,
            description.m_explanation});
}

void AnswerPrinter::get(uint64_t resourceID) {
    if (m_dictionary.tryGetResourceDatatypeID(resourceID) == D_NONE)
        print(Miss{std::to_string(resourceID), "", "", ABSENT, NOT_FOUND, ""});
    else
        print(resourceID, m_dictionary.getValue(resourceID));
}

void AnswerPrinter::get(std::string_view text) {
    if (const std::optional<uint64_t> resourceID = tryParseResourceID(text))
        get(*resourceID);
    else
        print(Miss{text, "", "", "syntax", "not a resource ID, which is a number", ""});
}

int AnswerPrinter::getExitCode() const noexcept {
    return m_areAllFound ? EXIT_ALL_WELL : EXIT_DAMAGED_INPUT;
}

void AnswerPrinter::print(uint64_t resourceID, const ResourceValue& value) {
    m_text.clear();
    m_recordWriter.appendRecord(resourceID, value, m_text);
    m_write(m_text);
}

void AnswerPrinter::print(const Miss& miss) {
    m_areAllFound = false;
    m_text.clear();
    if (m_isJSON) {
        JSON object;
        const std::optional<uint64_t> number = tryParseResourceID(miss.m_resourceID);
        object["id"] = number ? JSON(*number) : toJSONOrNull(miss.m_resourceID);
        object["datatype"] = toJSONOrNull(miss.m_datatype);
        object["literal"] = toJSONOrNull(miss.m_literal);
        object["reason"] = miss.m_reason;
        object["message"] = miss.m_message;
        if (!miss.m_explanation.empty())
            object["explanation"] = miss.m_explanation;
        m_text = formatJSONLine(object);
    }
    else {
        std::string message(miss.m_message);
        if (!miss.m_explanation.empty())
            message.append(" ").append(miss.m_explanation);
        m_recordWriter.appendMissing(miss.m_resourceID, miss.m_datatype, miss.m_literal, message, m_text);
    }
    m_write(m_text);
}

}
