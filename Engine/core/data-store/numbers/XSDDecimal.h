#pragma once

#include "core/data-store/numbers/LexicalFormStatus.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>

namespace kavix {

/// An exact decimal number: a signed 64-bit unscaled value and 0 to 19 fraction digits; its value is
/// unscaledValue / 10^fractionDigits.
///
/// Invariant: normalised. The unscaled value does not end in a zero digit unless there are no fraction digits, and zero
/// has no fraction digits; so equal numbers have equal fields, and the padding is zero, so they have equal bytes.
/// The 16 bytes are the binary form of xsd:decimal values and are copied as such. Immutable; thread-safe.
class XSDDecimal {

public:

    static constexpr uint8_t MAX_FRACTION_DIGITS = 19;

    /// The longest text that toString() writes.
    static constexpr size_t MAX_TEXT_LENGTH = 22;

    XSDDecimal() noexcept = default;

    /// Parses [+-]?([0-9]+(\.[0-9]*)?|\.[0-9]+), and nothing else.
    /// @throws KavixException  "Lexical form '…' is invalid for datatype xsd:decimal." for another form;
    ///                         "Value '…' exceeds the capacity of datatype xsd:decimal: …" for a number that does not
    ///                         fit
    XSDDecimal(const char* text, size_t length);

    /// The decimal equal to an integer.
    explicit XSDDecimal(long value) noexcept :
        m_unscaledValue(value) { }

    /// Parses like the constructor but reports the error; value is changed only for VALID.
    /// Returns VALID, MALFORMED or BEYOND_CAPACITY. Neither allocates nor throws.
    static LexicalFormStatus tryParse(const char* text, size_t length, XSDDecimal& value) noexcept;

    /// The decimal with exactly these fields, which must be normalised: they come from a stored record.
    static XSDDecimal fromNormalisedFields(int64_t unscaledValue, uint8_t fractionDigits) noexcept {
        XSDDecimal result;
        result.m_unscaledValue = unscaledValue;
        result.m_fractionDigits = fractionDigits;
        return result;
    }

    /// Whether fields are those of a decimal: at most 19 fraction digits, and no trailing fraction zero.
    static bool areNormalisedFields(int64_t unscaledValue, uint8_t fractionDigits) noexcept;

    int64_t getUnscaledValue() const noexcept { return m_unscaledValue; }

    uint8_t getFractionDigits() const noexcept { return m_fractionDigits; }

    bool isInteger() const noexcept { return m_fractionDigits == 0; }

    /// Writes the canonical text, without NUL, and returns its length, at most 22.
    /// @param turtleForm  write an integer with ".0", so that Turtle reads it back as xsd:decimal
    size_t toString(char* buffer, bool turtleForm) const noexcept;

    std::string toString(bool turtleForm) const;

    /// The nearest double, rounded once, ties to even.
    double toDouble() const noexcept;

    /// The nearest float, rounded once, ties to even.
    float toFloat() const noexcept;

    friend bool operator==(const XSDDecimal& first, const XSDDecimal& second) noexcept {
        return first.m_unscaledValue == second.m_unscaledValue && first.m_fractionDigits == second.m_fractionDigits;
    }

    /// The order of the numbers.
    friend std::strong_ordering operator<=>(const XSDDecimal& first, const XSDDecimal& second) noexcept;

private:

    /// Parses a form after its sign, whose length requires this number of words: 1 to 8, 9 to 16, 17 to 20 characters.
    template<size_t NUMBER_OF_WORDS>
    static LexicalFormStatus tryParseWords(
        const char* text, size_t length, bool isNegative, XSDDecimal& value) noexcept;

    int64_t m_unscaledValue = 0;
    uint8_t m_fractionDigits = 0;
    uint8_t m_padding[7] = {};
};

static_assert(
    sizeof(XSDDecimal) == 16 && std::is_trivially_copyable_v<XSDDecimal> && std::is_standard_layout_v<XSDDecimal>);

}

/// Equal decimals have equal hashes. Not the hash of the tables, which is part of the image format.
template<>
struct std::hash<kavix::XSDDecimal> {
    size_t operator()(const kavix::XSDDecimal& value) const noexcept;
};
