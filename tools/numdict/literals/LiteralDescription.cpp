#include "numdict/literals/LiteralDescription.h"

#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "core/data-store/dictionary/Prefixes.h"
#include "numdict/literals/Datatypes.h"
#include "numdict/literals/RejectionReasons.h"
#include "numdict/literals/TurtleLiteral.h"

#include <fmt/format.h>

#include <array>
#include <cassert>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <variant>

namespace kavix::numdict {

namespace {

template<typename T>
std::string formatFloatingPoint(T value, const std::string& datatype) {
    if (std::isinf(value))
        return fmt::format("\"{}INF\"^^{}", value < 0 ? "-" : "", datatype);
    // The fewest digits that read back to the same value, as d.ddde+dd; the canonical form has a digit after the point
    // and an exponent without plus and leading zeros.
    std::array<char, 32> buffer;
    const std::to_chars_result result =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::scientific);
    assert(result.ec == std::errc()); // a double takes at most 24 characters
    const std::string_view text(buffer.data(), static_cast<size_t>(result.ptr - buffer.data()));
    const size_t exponent = text.find('e');
    const std::string_view mantissa = text.substr(0, exponent);
    return fmt::format(
        "\"{}{}E{}\"^^{}", mantissa, mantissa.find('.') == std::string_view::npos ? ".0" : "",
        std::stoi(std::string(text.substr(exponent + 1))), datatype);
}

}

std::string LiteralDescription::getFullMessage() const {
    return m_explanation.empty() ? m_message : m_message + " " + m_explanation;
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

bool isCanonicalTurtleForm(uint8_t datatypeID, std::string_view lexicalForm) noexcept {
    if (datatypeID == D_XSD_DECIMAL) {
        // An integral decimal is its lexical form and ".0"; every other one has a point anyway.
        constexpr std::string_view INTEGRAL_ENDING(".0");
        if (lexicalForm.ends_with(INTEGRAL_ENDING))
            lexicalForm.remove_suffix(INTEGRAL_ENDING.size());
        else if (lexicalForm.find('.') == std::string_view::npos)
            return false;
    }
    return isCanonicalNumericForm(datatypeID, lexicalForm.data(), lexicalForm.size());
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
        description.m_explanation = getRejectionExplanation(description.m_datatypeID, status);
    }
    return description;
}

}
