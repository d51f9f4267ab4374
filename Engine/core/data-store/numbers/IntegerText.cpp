#include "core/data-store/numbers/IntegerText.h"

#include <algorithm>

namespace kavix {

std::pair<bool, int64_t> parseLongInteger(const char* text, size_t length, bool isNegative) noexcept {
    // Twenty digits that do not start with zero are 10^19 or more, and so outside the signed 64-bit range.
    const char* const digits = text + (length - DecimalDigits::MAX_PARSED_DIGITS);
    if (!std::all_of(text, digits, [](char character) { return character == '0'; }))
        return {false, 0};
    return parseIntegerDigits(digits, DecimalDigits::MAX_PARSED_DIGITS, isNegative);
}

void appendNumber(unsigned long value, std::string& text) {
    char buffer[MAX_UNSIGNED_TEXT_LENGTH];
    text.append(buffer, appendNumber(value, buffer));
}

}
