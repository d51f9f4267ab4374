#include "numdict/literals/LiteralDescription.h"

#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "core/data-store/dictionary/Prefixes.h"
#include "numdict/literals/Datatypes.h"
#include "numdict/literals/RejectionReasons.h"
#include "numdict/literals/TurtleLiteral.h"

#include <fmt/format.h>

#include <cmath>
#include <cstddef>
#include <variant>

namespace kavix::numdict {

namespace {

template<typename T>
std::string formatFloatingPoint(T value, const std::string& datatype) {
    if (std::isinf(value))
        return fmt::format("\"{}INF\"^^{}", value < 0 ? "-" : "", datatype);
    // The shortest digits that give the value back, in the form d.dE0.
    std::string text = fmt::format("{:e}", value);
    const size_t exponent = text.find('e');
    std::string mantissa = text.substr(0, exponent);
    while (mantissa.find('.') != std::string::npos && mantissa.back() == '0' && mantissa[mantissa.size() - 2] != '.')
        mantissa.pop_back();
    if (mantissa.find('.') == std::string::npos)
        mantissa += ".0";
    return fmt::format("\"{}E{}\"^^{}", mantissa, std::stoi(text.substr(exponent + 1)), datatype);
}

}

std::string formatTurtleLiteral(const ResourceValue& value) {
    if (value.datatypeID == D_XSD_DOUBLE)
        return formatFloatingPoint(value.getBinaryValue<double>(), getDatatypeName(value.datatypeID));
    if (value.datatypeID == D_XSD_FLOAT)
        return formatFloatingPoint(value.getBinaryValue<float>(), getDatatypeName(value.datatypeID));
    std::string text;
    s_NumericDatatypeFactory.appendTurtleLiteral(
        value.datatypeID, value.data, value.dataSize, value.auxiliaryData, value.auxiliaryDataSize,
        Prefixes::s_defaultPrefixes, text);
    return text;
}

LiteralDescription describeLiteral(std::string_view text) {
    LiteralDescription description;
    description.m_literal = text;
    const auto parsed = parseTurtleLiteral(text);
    if (const auto* error = std::get_if<TurtleLiteralError>(&parsed)) {
        description.m_reason = "syntax";
        description.m_message = fmt::format("Column {}: {}.", error->m_column, error->m_message);
        return description;
    }
    const TurtleLiteral& literal = std::get<TurtleLiteral>(parsed);
    description.m_datatype = getDatatypeName(literal.m_datatypeIRI);
    description.m_datatypeID = findNumericDatatype(literal.m_datatypeIRI);
    if (description.m_datatypeID == D_NONE) {
        description.m_reason = "notNumeric";
        description.m_message = fmt::format(
            "{} is not one of the numeric datatypes: xsd:decimal, xsd:integer and its derived types.",
            description.m_datatype);
        return description;
    }
    const std::string& form = literal.m_lexicalForm;
    const LexicalFormStatus status =
        tryParseNumericValue(description.m_datatypeID, form.data(), form.size(), description.m_value);
    description.m_isValid = status == LexicalFormStatus::VALID;
    if (description.m_isValid) {
        const ResourceValue& value = description.m_value;
        s_NumericDatatypeFactory.appendLexicalForm(
            value.datatypeID, value.data, value.dataSize, value.auxiliaryData, value.auxiliaryDataSize,
            description.m_lexicalForm);
        description.m_turtle = formatTurtleLiteral(value);
    }
    else {
        description.m_reason = getReasonName(status);
        description.m_message = getRejectionMessage(description.m_datatypeID, form);
    }
    return description;
}

}
