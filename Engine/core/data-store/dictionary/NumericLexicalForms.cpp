#include "core/data-store/dictionary/NumericLexicalForms.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeNames.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/numbers/DecimalDigits.h"
#include "core/data-store/numbers/IntegerText.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace kavix {

namespace {

// Why parseIntegerSigned() rejects a form: it is not an integer, or is outside the signed 64-bit range.
LexicalFormStatus classifyRefusedInteger(uint8_t datatypeID, const char* text, size_t length) noexcept {
    const char* const end = text + length;
    const bool isNegative = text != end && *text == '-';
    if (text != end && (isNegative || *text == '+'))
        ++text;
    if (text == end || !std::all_of(text, end, DecimalDigits::isDigit))
        return LexicalFormStatus::MALFORMED;
    bool isInValueSpace = false;
    switch (datatypeID) {
    case D_XSD_INTEGER:
        isInValueSpace = true;
        break;
    case D_XSD_NON_NEGATIVE_INTEGER:
    case D_XSD_POSITIVE_INTEGER:
        isInValueSpace = !isNegative;
        break;
    case D_XSD_NON_POSITIVE_INTEGER:
    case D_XSD_NEGATIVE_INTEGER:
        isInValueSpace = isNegative;
        break;
    case D_XSD_UNSIGNED_LONG: {
        constexpr std::string_view UNSIGNED_LONG_MAXIMUM = "18446744073709551615";
        text = std::find_if(text, end, [](char digit) { return digit != '0'; });
        const std::string_view digits(text, static_cast<size_t>(end - text));
        // Of two numbers with the same number of digits, the larger one compares greater as text.
        isInValueSpace =
            !isNegative && (digits.size() < UNSIGNED_LONG_MAXIMUM.size() ||
                            (digits.size() == UNSIGNED_LONG_MAXIMUM.size() && digits <= UNSIGNED_LONG_MAXIMUM));
        break;
    }
    default: // the other datatypes hold signed 64-bit numbers or less
        break;
    }
    return isInValueSpace ? LexicalFormStatus::BEYOND_CAPACITY : LexicalFormStatus::OUT_OF_RANGE;
}

}

int64_t parseIntegerValue(uint8_t datatypeID, const char* text, size_t length) {
    const auto [isValid, value] = parseIntegerSigned(text, length);
    const IntegerDatatypeInfo& info = getIntegerDatatypeInfo(datatypeID);
    if (!isValid) [[unlikely]]
        Errors::throwInvalidLexicalForm(text, length, getDatatypeName(info.datatypeIRI));
    if (!info.contains(value)) [[unlikely]]
        Errors::throwValueOutOfRange(text, length, getDatatypeName(info.datatypeIRI));
    return value;
}

NumericValue parseNumericValue(uint8_t datatypeID, const char* text, size_t length) {
    if (datatypeID == D_XSD_DECIMAL)
        return XSDDecimal(text, length);
    return parseIntegerValue(datatypeID, text, length);
}

LexicalFormStatus tryParseNumericValue(
    uint8_t datatypeID, const char* text, size_t length, ResourceValue& value) noexcept {
    if (datatypeID == D_XSD_DECIMAL) {
        XSDDecimal decimal;
        const LexicalFormStatus status = XSDDecimal::tryParse(text, length, decimal);
        if (status == LexicalFormStatus::VALID)
            value.setBinaryValue(datatypeID, decimal);
        return status;
    }
    const auto [isValid, integer] = parseIntegerSigned(text, length);
    if (!isValid) [[unlikely]]
        return classifyRefusedInteger(datatypeID, text, length);
    if (!getIntegerDatatypeInfo(datatypeID).contains(integer)) [[unlikely]]
        return LexicalFormStatus::OUT_OF_RANGE;
    value.setBinaryValue(datatypeID, integer);
    return LexicalFormStatus::VALID;
}

size_t writeNumericLexicalForm(uint8_t datatypeID, const uint8_t* data, char* buffer) noexcept {
    if (datatypeID == D_XSD_DECIMAL) {
        XSDDecimal decimal;
        std::memcpy(static_cast<void*>(&decimal), data, sizeof(decimal));
        return decimal.toString(buffer, false);
    }
    uint64_t magnitude;
    std::memcpy(&magnitude, data, sizeof(magnitude));
    if (static_cast<int64_t>(magnitude) >= 0)
        return appendNumber(magnitude, buffer);
    buffer[0] = '-';
    return 1 + appendNumber(0 - magnitude, buffer + 1); // unsigned, so that the smallest integer has a magnitude
}

bool isCanonicalNumericForm(uint8_t datatypeID, const char* text, size_t length) noexcept {
    const char* const end = text + length;
    const bool isNegative = text != end && *text == '-';
    if (isNegative)
        ++text;
    if (text == end || *text == '+' || *text == '.')
        return false;
    // A leading zero is allowed only directly before a point or alone; and minus zero is printed as zero.
    if (*text == '0' && (text + 1 == end ? isNegative : text[1] != '.'))
        return false;
    if (datatypeID != D_XSD_DECIMAL)
        return true;
    // A fraction ends in a digit other than zero; an integral decimal has no point.
    return end[-1] != '.' && (end[-1] != '0' || std::find(text, end, '.') == end);
}

}
