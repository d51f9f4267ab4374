#pragma once

#include "core/data-store/numbers/DecimalDigits.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

namespace kavix {

/// The longest text of an unsigned 64-bit number.
inline constexpr size_t MAX_UNSIGNED_TEXT_LENGTH = 20;

/// Parses 0 to 19 characters, [0-9]*, after a sign; no digits are 0. Returns like parseIntegerSigned().
inline std::pair<bool, int64_t> parseIntegerDigits(const char* text, size_t length, bool isNegative) noexcept {
    uint64_t magnitude;
    if (!DecimalDigits::tryParse(text, length, magnitude)) [[unlikely]]
        return {false, 0};
    // The negative side reaches one further than the positive one.
    if (magnitude > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (isNegative ? 1 : 0)) [[unlikely]]
        return {false, 0};
    // Negated as unsigned, so that the magnitude of the smallest number does not overflow.
    return {true, static_cast<int64_t>(isNegative ? 0 - magnitude : magnitude)};
}

/// Parses more than 19 characters, [0-9]+, after a sign. Returns like parseIntegerSigned().
std::pair<bool, int64_t> parseLongInteger(const char* text, size_t length, bool isNegative) noexcept;

/// Parses [+-]?[0-9]+, and nothing else, as a signed 64-bit number: no white space, any number of leading zeros.
/// Returns false, and an unspecified number, for another form and for a number outside the signed 64-bit range.
/// Neither allocates nor depends on the locale.
inline std::pair<bool, int64_t> parseIntegerSigned(const char* text, size_t length) noexcept {
    if (length < 4) {
        // Short numbers, which need neither sign handling nor a range check. Inline, and so limited to a few
        // instructions.
        if (length == 0) [[unlikely]]
            return {false, 0};
        const uint32_t first = DecimalDigits::getDigit(text[0]);
        if (length == 1)
            return {first <= 9, first};
        if (first <= 9) {
            const uint32_t second = DecimalDigits::getDigit(text[1]);
            const uint32_t firstTwo = first * 10 + second;
            if (length == 2)
                return {second <= 9, firstTwo};
            const uint32_t third = DecimalDigits::getDigit(text[2]);
            return {second <= 9 && third <= 9, firstTwo * 10 + third};
        }
    }
    bool isNegative = false;
    if (!DecimalDigits::isDigit(*text)) {
        isNegative = *text == '-';
        if (!isNegative && *text != '+') [[unlikely]]
            return {false, 0};
        ++text;
        --length; // 1 or more
    }
    if (length > DecimalDigits::MAX_PARSED_DIGITS) [[unlikely]]
        return parseLongInteger(text, length, isNegative);
    return parseIntegerDigits(text, length, isNegative);
}

/// Writes the decimal digits of value, without sign and without NUL, and returns how many they are (1 to 20).
inline size_t appendNumber(unsigned long value, char* buffer) noexcept {
    if (value < 100) [[likely]] { // worth inlining at every caller; without the jump, a third of the time
        if (value < 10) {
            *buffer = static_cast<char>('0' + value);
            return 1;
        }
        DecimalDigits::writeTwo(static_cast<uint32_t>(value), buffer);
        return 2;
    }
    if (value < 10000) // here 100 or more
        return DecimalDigits::writeUpToFour(static_cast<uint32_t>(value), buffer);
    return DecimalDigits::write(value, buffer);
}

/// Appends the decimal digits of value.
void appendNumber(unsigned long value, std::string& text);

}
