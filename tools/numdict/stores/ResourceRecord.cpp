#include "numdict/stores/ResourceRecord.h"

#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "numdict/console/Trim.h"
#include "numdict/literals/Datatypes.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/literals/TurtleLiteral.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <iterator>

namespace kavix::numdict {

namespace {

/// The longest name of a numeric datatype.
constexpr size_t DATATYPE_WIDTH = sizeof("xsd:nonNegativeInteger") - 1;

void appendQuoted(std::string_view text, std::string_view escapedQuote, std::string& result) {
    result += '"';
    for (const char character : text)
        if (character == '"')
            result += escapedQuote;
        else
            result += character;
    result += '"';
}

/// Cuts the first word off a text.
std::string_view takeWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(LINE_BLANKS), text.size()));
    const size_t end = std::min(text.find_first_of(LINE_BLANKS), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

/// Cuts a field of CSV off a line; returns false if its quotes are wrong.
bool takeField(std::string_view& line, std::string& field) {
    field.clear();
    if (!line.starts_with('"')) {
        const size_t end = std::min(line.find(','), line.size());
        field = line.substr(0, end);
        line.remove_prefix(std::min(end + 1, line.size()));
        return field.find('"') == std::string::npos;
    }
    for (size_t index = 1; index < line.size(); ++index) {
        if (line[index] != '"')
            field += line[index];
        else if (index + 1 < line.size() && line[index + 1] == '"') {
            field += '"';
            ++index;
        }
        else {
            line.remove_prefix(index + 1);
            const bool isEnded = line.empty() || line.front() == ',';
            line.remove_prefix(std::min<size_t>(1, line.size()));
            return isEnded;
        }
    }
    return false;
}

std::variant<ResourceRecord, std::string> makeRecord(
    std::string_view resourceID, std::string_view datatype, std::string_view literal) {
    ResourceRecord record;
    const std::optional<uint64_t> parsedID = tryParseResourceID(resourceID);
    if (!parsedID)
        return fmt::format("'{}' is not a resource ID", resourceID);
    record.m_resourceID = *parsedID;
    const auto parsed = parseTurtleLiteral(literal);
    if (const auto* error = std::get_if<TurtleLiteralError>(&parsed))
        return fmt::format("'{}' is not a Turtle literal: {}", literal, error->m_message);
    const TurtleLiteral& turtle = std::get<TurtleLiteral>(parsed);
    const uint8_t datatypeID = findNumericDatatype(turtle.m_datatypeIRI);
    if (datatypeID == D_NONE ||
        tryParseNumericValue(datatypeID, turtle.m_lexicalForm.data(), turtle.m_lexicalForm.size(), record.m_value) !=
            LexicalFormStatus::VALID)
        return describeLiteral(literal).getFullMessage();
    if (const std::string name = getDatatypeName(datatypeID); name != datatype)
        return fmt::format("the literal {} is of datatype {}, not '{}'", literal, name, datatype);
    return record;
}

std::variant<ResourceRecord, std::string> parseJSONRecord(std::string_view line) {
    const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
    if (!object.is_object())
        return "not a JSON object";
    const auto id = object.find("id");
    const auto datatype = object.find("datatype");
    const auto literal = object.find("literal");
    if (id == object.end() || !id->is_number_unsigned() || datatype == object.end() || !datatype->is_string() ||
        literal == object.end() || !literal->is_string())
        return "the object needs 'id' (a number), 'datatype' and 'literal' (texts)";
    return makeRecord(
        std::to_string(id->get<uint64_t>()), datatype->get_ref<const std::string&>(),
        literal->get_ref<const std::string&>());
}

std::variant<ResourceRecord, std::string> parseCSVRecord(std::string_view line) {
    std::string resourceID, datatype, literal;
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    if (!takeField(line, resourceID) || !takeField(line, datatype) || !takeField(line, literal) || !line.empty())
        return "expected three comma-separated fields: ID, datatype, literal";
    return makeRecord(resourceID, datatype, literal);
}

}

std::optional<RecordFormat> tryGetRecordFormat(std::string_view name) {
    if (name == "text")
        return RecordFormat::TEXT;
    if (name == "csv")
        return RecordFormat::CSV;
    if (name == "jsonl")
        return RecordFormat::JSON_LINES;
    if (name == "ntriples")
        return RecordFormat::N_TRIPLES;
    return std::nullopt;
}

std::optional<uint64_t> tryParseResourceID(std::string_view text) {
    uint64_t resourceID;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), resourceID);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(resourceID) : std::nullopt;
}

RecordWriter::RecordWriter(RecordFormat format, bool isAligned, uint64_t endOfResourceIDs) :
    m_format(format),
    m_isAligned(isAligned),
    m_resourceIDWidth(std::to_string(endOfResourceIDs).size()) { }

void RecordWriter::appendHeader(std::string& text) const {
    if (m_format == RecordFormat::CSV) {
        text += CSV_HEADER;
        text += '\n';
    }
}

void RecordWriter::appendCells(
    std::string_view resourceID, std::string_view datatype, std::string_view literal, std::string& text) const {
    if (m_isAligned)
        fmt::format_to(
            std::back_inserter(text), "{:>{}}  {:<{}}  {}", resourceID, m_resourceIDWidth, datatype, DATATYPE_WIDTH,
            literal);
    else {
        text += resourceID;
        text += '\t';
        text += datatype;
        text += '\t';
        text += literal;
    }
}

void RecordWriter::appendRecord(uint64_t resourceID, const ResourceValue& value, std::string& text) const {
    const fmt::format_int id(resourceID);
    const std::string_view idText(id.data(), id.size());
    switch (m_format) {
    case RecordFormat::TEXT:
        appendCells(idText, getDatatypeName(value.datatypeID), formatTurtleLiteral(value), text);
        break;
    case RecordFormat::CSV:
        text += idText;
        text += ',';
        text += getDatatypeName(value.datatypeID);
        text += ',';
        if (const std::string literal = formatTurtleLiteral(value); literal.starts_with('"'))
            appendQuoted(literal, "\"\"", text);
        else
            text += literal;
        break;
    case RecordFormat::JSON_LINES:
        text += "{\"id\":";
        text += idText;
        text += ",\"datatype\":\"";
        text += getDatatypeName(value.datatypeID);
        text += "\",\"literal\":";
        appendQuoted(formatTurtleLiteral(value), "\\\"", text);
        text += '}';
        break;
    case RecordFormat::N_TRIPLES: {
        char lexicalForm[MAX_NUMERIC_LEXICAL_FORM_LENGTH];
        const size_t length = writeNumericLexicalForm(value.datatypeID, value.data, lexicalForm);
        text += "<urn:kavix:resource:";
        text += idText;
        text += "> <";
        text += RDF_NAMESPACE;
        text += "value> \"";
        text.append(lexicalForm, length);
        text += "\"^^<";
        text += getDatatypeIRI(value.datatypeID);
        text += "> .";
        break;
    }
    }
    text += '\n';
}

void RecordWriter::appendMissing(
    std::string_view resourceID, std::string_view datatype, std::string_view literal, std::string_view note,
    std::string& text) const {
    const auto orDash = [](std::string_view cell) { return cell.empty() ? std::string_view("-") : cell; };
    appendCells(orDash(resourceID), orDash(datatype), orDash(literal), text);
    text += m_isAligned ? "  " : "\t";
    text += note;
    text += '\n';
}

std::variant<ResourceRecord, std::string> parseRecord(std::string_view line) {
    const std::string_view trimmed = trim(line, LINE_BLANKS);
    if (trimmed.starts_with('{'))
        return parseJSONRecord(trimmed);
    const size_t endOfID = trimmed.find_first_not_of("0123456789");
    if (endOfID != std::string_view::npos && trimmed[endOfID] == ',')
        return parseCSVRecord(line);
    if (trimmed.starts_with('<'))
        return "N-Triples cannot be restored; dump the store as text, csv or jsonl";
    std::string_view rest = trimmed;
    const std::string_view resourceID = takeWord(rest);
    const std::string_view datatype = takeWord(rest);
    return makeRecord(resourceID, datatype, trim(rest, LINE_BLANKS));
}

}
