#pragma once

#include "core/data-store/dictionary/DecimalDigits.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

namespace kavix {

/// The longest text of an unsigned 64-bit number.
inline constexpr size_t MAX_UNSIGNED_TEXT_LENGTH = 20;

/// Parses [+-]?[0-9]+, and nothing else, as a signed 64-bit number: no white space, any number of leading zeros.
/// Returns false, and an unspecified number, for another form and for a number outside the signed 64-bit range.
/// Neither allocates nor depends on the locale.
inline std::pair<bool, int64_t> parseIntegerSigned(const char* text, size_t length) noexcept {
    bool isNegative = false;
    if (length > 0 && !DecimalDigits::isDigit(*text)) {
        isNegative = *text == '-';
        if (!isNegative && *text != '+') [[unlikely]]
            return {false, 0};
        ++text;
        --length;
    }
    if (length == 0) [[unlikely]]
        return {false, 0};
    while (length > DecimalDigits::MAX_PARSED_DIGITS) [[unlikely]] {
        // Twenty digits that do not start with zero are 10^19 or more, and so beyond 64 bits with a sign.
        if (*text != '0')
            return {false, 0};
        ++text;
        --length;
    }
    uint64_t magnitude;
    if (!DecimalDigits::tryParse(text, length, magnitude)) [[unlikely]]
        return {false, 0};
    // The negative side reaches one further than the positive one.
    if (magnitude > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (isNegative ? 1 : 0)) [[unlikely]]
        return {false, 0};
    // Negated unsigned, so that the magnitude of the smallest number is no overflow.
    return {true, static_cast<int64_t>(isNegative ? 0 - magnitude : magnitude)};
}

/// Writes the decimal digits of value, without sign and without NUL, and returns how many they are (1 to 20).
inline size_t appendNumber(unsigned long value, char* buffer) noexcept {
    if (value < 10) { // the one case worth having inline at every caller
        *buffer = static_cast<char>('0' + value);
        return 1;
    }
    return DecimalDigits::write(value, buffer);
}

/// Appends the decimal digits of value.
void appendNumber(unsigned long value, std::string& text);

}
