#pragma once

#include "core/data-store/dictionary/ResourceValue.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// What there is to say about a literal that was given as text.
struct LiteralDescription {
    std::string m_literal; // as given
    std::string m_datatype; // "xsd:int"; empty after a syntax error
    uint8_t m_datatypeID = 0; // 0 unless numeric
    bool m_isValid = false;
    ResourceValue m_value; // if valid, and what follows
    std::string m_lexicalForm; // canonical
    std::string m_turtle; // canonical, as Turtle writes it
    std::string m_reason; // if not valid: malformed, outOfRange, beyondCapacity, notNumeric, syntax
    std::string m_message;
    std::string m_explanation; // if the message does not tell the reason, else empty

    /// The message and the explanation, for people.
    std::string getFullMessage() const;
};

/// Reads a Turtle literal and says what the dictionary would make of it. Throws nothing for bad literals.
LiteralDescription describeLiteral(std::string_view text);

/// The literal of a value as Turtle writes it, xsd:double and xsd:float included.
std::string formatTurtleLiteral(const ResourceValue& value);

/// Whether a lexical form of a numeric datatype (22 to 35) is the one in the literal that formatTurtleLiteral() writes
/// for its value. This is the canonical lexical form, but for integral decimals: Turtle needs a point to tell 6.0 from
/// an integer, and the lexical form is 6. Decided from the text alone, without printing: called for every literal of an
/// import.
/// @param lexicalForm  a form that tryParseNumericValue() accepts; for any other text the result means nothing
bool isCanonicalTurtleForm(uint8_t datatypeID, std::string_view lexicalForm) noexcept;

}
