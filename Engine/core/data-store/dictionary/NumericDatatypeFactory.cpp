#include "core/data-store/dictionary/NumericDatatypeFactory.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "core/data-store/dictionary/Prefixes.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/stream/OutputStream.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace kavix {

namespace {

static_assert(
    std::numeric_limits<double>::is_iec559 && sizeof(double) == 8 && std::numeric_limits<float>::is_iec559 &&
    sizeof(float) == 4);

// A quote, the longest integer, a quote and the two characters ^^.
constexpr size_t MAX_TURTLE_TEXT_LENGTH = MAX_INTEGER_LEXICAL_FORM_LENGTH + 4;

static_assert(MAX_TURTLE_TEXT_LENGTH >= XSDDecimal::MAX_TEXT_LENGTH);

// Turtle reads only integers and decimals without quotes, and reads them as xsd:integer and xsd:decimal.
bool isBareInTurtle(uint8_t datatypeID) noexcept {
    return datatypeID == D_XSD_DECIMAL || datatypeID == D_XSD_INTEGER;
}

// Writes the Turtle literal, up to the datatype's IRI if there is one.
size_t writeTurtleText(uint8_t datatypeID, const uint8_t* data, char* buffer) noexcept {
    if (datatypeID == D_XSD_DECIMAL) {
        XSDDecimal decimal;
        std::memcpy(static_cast<void*>(&decimal), data, sizeof(decimal));
        return decimal.toString(buffer, true);
    }
    if (datatypeID == D_XSD_INTEGER)
        return writeNumericLexicalForm(datatypeID, data, buffer);
    buffer[0] = '"';
    const size_t length = writeNumericLexicalForm(datatypeID, data, buffer + 1);
    std::memcpy(buffer + 1 + length, "\"^^", 3);
    return length + 4;
}

template<typename T>
void appendValue(std::vector<ResourceValue>& values, uint8_t datatypeID, const T& value) {
    values.emplace_back().setBinaryValue(datatypeID, value);
}

// The negative zeros, and every integer datatype that holds the number.
void appendEqualIntegers(int64_t integer, std::vector<ResourceValue>& values) {
    if (integer == 0) {
        appendValue(values, D_XSD_DOUBLE, -0.0);
        appendValue(values, D_XSD_FLOAT, -0.0f);
    }
    for (const IntegerDatatypeInfo& info : s_integerDatatypeInfos)
        if (info.contains(integer))
            appendValue(values, info.datatypeID, integer);
}

}

NumericDatatypeFactory::NumericDatatypeFactory() :
    DictionaryDatatypeFactory({
        {D_XSD_DECIMAL, XSD_DECIMAL},
        {D_XSD_INTEGER, XSD_INTEGER},
        {D_XSD_NON_NEGATIVE_INTEGER, XSD_NON_NEGATIVE_INTEGER},
        {D_XSD_NON_POSITIVE_INTEGER, XSD_NON_POSITIVE_INTEGER},
        {D_XSD_NEGATIVE_INTEGER, XSD_NEGATIVE_INTEGER},
        {D_XSD_POSITIVE_INTEGER, XSD_POSITIVE_INTEGER},
        {D_XSD_LONG, XSD_LONG},
        {D_XSD_INT, XSD_INT},
        {D_XSD_SHORT, XSD_SHORT},
        {D_XSD_BYTE, XSD_BYTE},
        {D_XSD_UNSIGNED_LONG, XSD_UNSIGNED_LONG},
        {D_XSD_UNSIGNED_INT, XSD_UNSIGNED_INT},
        {D_XSD_UNSIGNED_SHORT, XSD_UNSIGNED_SHORT},
        {D_XSD_UNSIGNED_BYTE, XSD_UNSIGNED_BYTE},
    }) { }

NumericDatatypeFactory::~NumericDatatypeFactory() = default;

void NumericDatatypeFactory::inPlaceParseResourceValue(ResourceValue& value, uint8_t datatypeID) const {
    assert(value.dataSize > 0); // a lexical form has at least its NUL
    const char* const text = reinterpret_cast<const char*>(value.data);
    const size_t length = value.dataSize - 1;
    // The characters may be in the buffer that receives the binary form, so parsing finishes before anything is
    // written.
    if (datatypeID == D_XSD_DECIMAL)
        value.setBinaryValue(datatypeID, XSDDecimal(text, length));
    else
        value.setBinaryValue(datatypeID, parseIntegerValue(datatypeID, text, length));
}

void NumericDatatypeFactory::parseResourceValue(
    ResourceValue& value, const char* text, size_t length, uint8_t datatypeID) const {
    if (datatypeID == D_XSD_DECIMAL) {
        value.setBinaryForm(datatypeID, sizeof(XSDDecimal));
        const XSDDecimal decimal(text, length);
        std::memcpy(value.buffer, &decimal, sizeof(decimal));
    }
    else
        value.setBinaryValue(datatypeID, parseIntegerValue(datatypeID, text, length));
}

size_t NumericDatatypeFactory::appendLexicalForm(
    uint8_t datatypeID, const uint8_t* data, size_t, const uint8_t*, size_t, char* buffer, size_t capacity) const {
    const size_t maximumLength =
        datatypeID == D_XSD_DECIMAL ? XSDDecimal::MAX_TEXT_LENGTH : MAX_INTEGER_LEXICAL_FORM_LENGTH;
    if (capacity > maximumLength) {
        const size_t length = writeNumericLexicalForm(datatypeID, data, buffer);
        buffer[length] = '\0';
        return length;
    }
    char form[MAX_NUMERIC_LEXICAL_FORM_LENGTH];
    const size_t length = writeNumericLexicalForm(datatypeID, data, form);
    if (capacity > 0) {
        const size_t copiedLength = std::min(capacity - 1, length);
        std::memcpy(buffer, form, copiedLength);
        buffer[copiedLength] = '\0';
    }
    return length;
}

void NumericDatatypeFactory::appendLexicalForm(
    uint8_t datatypeID, const uint8_t* data, size_t, const uint8_t*, size_t, std::string& text) const {
    char form[MAX_NUMERIC_LEXICAL_FORM_LENGTH];
    text.append(form, writeNumericLexicalForm(datatypeID, data, form));
}

void NumericDatatypeFactory::appendTurtleLiteral(
    uint8_t datatypeID, const uint8_t* data, size_t, const uint8_t*, size_t, const Prefixes& prefixes,
    std::string& text) const {
    char turtleText[MAX_TURTLE_TEXT_LENGTH];
    text.append(turtleText, writeTurtleText(datatypeID, data, turtleText));
    if (!isBareInTurtle(datatypeID)) {
        const std::string& datatypeIRI = getIntegerDatatypeInfo(datatypeID).datatypeIRI;
        prefixes.encodeIRI(datatypeIRI.data(), datatypeIRI.size(), text);
    }
}

void NumericDatatypeFactory::printLexicalForm(
    uint8_t datatypeID, const uint8_t* data, size_t, const uint8_t*, size_t, OutputStream& output) const {
    char form[MAX_NUMERIC_LEXICAL_FORM_LENGTH];
    output.write(form, writeNumericLexicalForm(datatypeID, data, form));
}

void NumericDatatypeFactory::printTurtleLiteral(
    uint8_t datatypeID, const uint8_t* data, size_t, const uint8_t*, size_t, const Prefixes& prefixes,
    OutputStream& output) const {
    char turtleText[MAX_TURTLE_TEXT_LENGTH];
    output.write(turtleText, writeTurtleText(datatypeID, data, turtleText));
    if (!isBareInTurtle(datatypeID)) {
        const std::string& datatypeIRI = getIntegerDatatypeInfo(datatypeID).datatypeIRI;
        prefixes.encodeIRI(datatypeIRI.data(), datatypeIRI.size(), output);
    }
}

bool NumericDatatypeFactory::getEffectiveBooleanValue(
    uint8_t, const uint8_t* data, size_t, const uint8_t*, size_t) const {
    // The first word of either binary form, the integer or the unscaled value, is zero exactly when the value is.
    int64_t word;
    std::memcpy(&word, data, sizeof(word));
    return word != 0;
}

bool NumericDatatypeFactory::enumerateEqualResourceValues(
    const ResourceValue& value, std::vector<ResourceValue>& values) const {
    // The value may be an element of the vector, which reallocates when it grows: the required parts are copied first.
    if (value.datatypeID == D_XSD_DECIMAL) {
        const ResourceValue decimalValue(value);
        const XSDDecimal decimal = decimalValue.getBinaryValue<XSDDecimal>();
        appendValue(values, D_XSD_DOUBLE, decimal.toDouble());
        appendValue(values, D_XSD_FLOAT, decimal.toFloat());
        values.push_back(decimalValue);
        if (decimal.isInteger())
            appendEqualIntegers(decimal.getUnscaledValue(), values);
    }
    else {
        const int64_t integer = value.getBinaryValue<int64_t>();
        appendValue(values, D_XSD_DOUBLE, static_cast<double>(integer));
        appendValue(values, D_XSD_FLOAT, static_cast<float>(integer));
        appendValue(values, D_XSD_DECIMAL, XSDDecimal(integer));
        appendEqualIntegers(integer, values);
    }
    return true;
}

}
