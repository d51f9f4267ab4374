#pragma once

#include "core/data-store/dictionary/ResourceValue.h"
#include "core/data-store/numbers/XSDDecimal.h"

#include <cstddef>
#include <cstdint>
#include <variant>

namespace kavix {

/// The binary form of a numeric value: an integer for the integer datatypes, a decimal for xsd:decimal.
using NumericValue = std::variant<int64_t, XSDDecimal>;

/// Parses a lexical form of an integer datatype (23 to 35) and checks its range.
/// @throws KavixException  "Lexical form '…' is invalid for datatype …." or
///                         "Value '…' is not in the range of datatype …."
int64_t parseIntegerValue(uint8_t datatypeID, const char* text, size_t length);

/// Parses a lexical form of a numeric datatype (22 to 35) and checks its range.
/// @throws KavixException  as parseIntegerValue() and XSDDecimal's constructor
NumericValue parseNumericValue(uint8_t datatypeID, const char* text, size_t length);

/// Parses like parseNumericValue() but neither throws nor allocates. If VALID, value is the binary form; otherwise it
/// is unchanged and the result says what is wrong, in more detail than the messages do: a well-formed integer outside
/// 64 bits is OUT_OF_RANGE if the datatype itself excludes it and BEYOND_CAPACITY if only the 64 bits do.
LexicalFormStatus tryParseNumericValue(
    uint8_t datatypeID, const char* text, size_t length, ResourceValue& value) noexcept;

/// The longest lexical form that is written for an integer: -9223372036854775808.
inline constexpr size_t MAX_INTEGER_LEXICAL_FORM_LENGTH = 20;

/// The longest lexical form that is written for a numeric value.
inline constexpr size_t MAX_NUMERIC_LEXICAL_FORM_LENGTH = XSDDecimal::MAX_TEXT_LENGTH;

/// Writes the canonical lexical form of a value of a numeric datatype (22 to 35), without NUL, and returns its length:
/// at most 20 for an integer, 22 for a decimal. No byte after the form is written.
/// @param data    the binary form, at any address
/// @param buffer  room for the longest form of the datatype
size_t writeNumericLexicalForm(uint8_t datatypeID, const uint8_t* data, char* buffer) noexcept;

/// Whether a lexical form of a numeric datatype (22 to 35) is the one that writeNumericLexicalForm() writes for its
/// value; if not, storing the value loses the original spelling. Decided from the text alone, without printing.
/// @param text  a form that tryParseNumericValue() accepts; for any other text the result is meaningless
bool isCanonicalNumericForm(uint8_t datatypeID, const char* text, size_t length) noexcept;

}
