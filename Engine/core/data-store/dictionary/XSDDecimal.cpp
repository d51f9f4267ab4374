#include "core/data-store/dictionary/XSDDecimal.h"

#include "core/data-store/dictionary/DecimalDigits.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace kavix {

namespace {

__extension__ typedef __int128 Int128;

// The integers up to the first are exact in the type, and so are the powers of ten up to the second. The quotient of two
// exact numbers is rounded once.
template<typename T>
constexpr uint64_t MAX_EXACT_INTEGER = uint64_t{1} << std::numeric_limits<T>::digits;

template<typename T>
constexpr uint8_t MAX_EXACT_POWER_OF_TEN = 0;

template<>
constexpr uint8_t MAX_EXACT_POWER_OF_TEN<double> = 22; // 5^22 < 2^53 < 5^23

template<>
constexpr uint8_t MAX_EXACT_POWER_OF_TEN<float> = 10; // 5^10 < 2^24 < 5^11

static_assert(MAX_EXACT_POWER_OF_TEN<double> >= XSDDecimal::MAX_FRACTION_DIGITS);

// The unsigned negation, so that the smallest integer has a magnitude.
uint64_t getMagnitude(int64_t value) noexcept {
    return value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
}

template<typename T>
T convert(const XSDDecimal& decimal) noexcept {
    const int64_t unscaledValue = decimal.getUnscaledValue();
    const uint8_t fractionDigits = decimal.getFractionDigits();
    if (fractionDigits == 0)
        return static_cast<T>(unscaledValue); // rounded once, to nearest
    if (getMagnitude(unscaledValue) <= MAX_EXACT_INTEGER<T> && fractionDigits <= MAX_EXACT_POWER_OF_TEN<T>)
        return static_cast<T>(unscaledValue) / static_cast<T>(DecimalDigits::POWERS_OF_TEN[fractionDigits]);
    char text[XSDDecimal::MAX_TEXT_LENGTH];
    T result = 0;
    std::from_chars(text, text + decimal.toString(text, false), result);
    return result;
}

}

XSDDecimal::XSDDecimal(const char* text, size_t length) {
    const LexicalFormStatus status = tryParse(text, length, *this);
    if (status != LexicalFormStatus::VALID) [[unlikely]] {
        if (status == LexicalFormStatus::BEYOND_CAPACITY)
            Errors::throwDecimalBeyondCapacity(text, length);
        Errors::throwInvalidDecimal(text, length);
    }
}

LexicalFormStatus XSDDecimal::tryParse(const char* text, size_t length, XSDDecimal& value) noexcept {
    const char* const end = text + length;
    const bool isNegative = text != end && *text == '-';
    if (text != end && (isNegative || *text == '+'))
        ++text;
    const char* const point = std::find(text, end, '.');
    const char* const fraction = point == end ? end : point + 1;
    if (text == point && fraction == end) [[unlikely]]
        return LexicalFormStatus::MALFORMED;

    // Zeros that carry no value go first: they must not count against the capacity.
    while (text != point && *text == '0')
        ++text;
    const char* fractionEnd = end;
    while (fractionEnd != fraction && fractionEnd[-1] == '0')
        --fractionEnd;
    const size_t integerLength = static_cast<size_t>(point - text);
    const size_t fractionLength = static_cast<size_t>(fractionEnd - fraction);

    // With more than 19 digits left the number does not fit: either the fraction alone has more than 19, or the unscaled
    // value starts with a digit other than zero and is 10^19 or more. The lengths cannot wrap: both are at most length.
    if (integerLength + fractionLength > DecimalDigits::MAX_PARSED_DIGITS) [[unlikely]] {
        const bool isWellFormed = std::all_of(text, point, DecimalDigits::isDigit) && std::all_of(fraction, fractionEnd, DecimalDigits::isDigit);
        return isWellFormed ? LexicalFormStatus::BEYOND_CAPACITY : LexicalFormStatus::MALFORMED;
    }
    static_assert(MAX_FRACTION_DIGITS == DecimalDigits::MAX_PARSED_DIGITS);

    uint64_t integerPart;
    uint64_t fractionPart;
    if (!DecimalDigits::tryParse(text, integerLength, integerPart) || !DecimalDigits::tryParse(fraction, fractionLength, fractionPart)) [[unlikely]]
        return LexicalFormStatus::MALFORMED;
    // integerPart < 10^integerLength and fractionPart < 10^fractionLength, so the sum is below 10^19 < 2^64.
    const uint64_t magnitude = integerPart * DecimalDigits::POWERS_OF_TEN[fractionLength] + fractionPart;
    if (magnitude > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (isNegative ? 1 : 0)) [[unlikely]]
        return LexicalFormStatus::BEYOND_CAPACITY;
    // Normalised: a fraction that is left ends in a digit other than zero; and minus zero is zero.
    value = fromNormalisedFields(static_cast<int64_t>(isNegative ? 0 - magnitude : magnitude), static_cast<uint8_t>(fractionLength));
    return LexicalFormStatus::VALID;
}

bool XSDDecimal::areNormalisedFields(int64_t unscaledValue, uint8_t fractionDigits) noexcept {
    return fractionDigits == 0 || (fractionDigits <= MAX_FRACTION_DIGITS && unscaledValue % 10 != 0);
}

size_t XSDDecimal::toString(char* buffer, bool turtleForm) const noexcept {
    char* position = buffer;
    if (m_unscaledValue < 0)
        *position++ = '-';
    const uint64_t magnitude = getMagnitude(m_unscaledValue);
    if (m_fractionDigits == 0) {
        position += DecimalDigits::write(magnitude, position);
        if (turtleForm) {
            *position++ = '.';
            *position++ = '0';
        }
        return static_cast<size_t>(position - buffer);
    }
    // The digits are written one place to the right of where they belong, which leaves room for the point, and so never
    // behind the end of the text: it has at least one character more than there are digits.
    const size_t numberOfDigits = DecimalDigits::write(magnitude, position + 1);
    if (numberOfDigits > m_fractionDigits) {
        const size_t integerLength = numberOfDigits - m_fractionDigits;
        std::memmove(position, position + 1, integerLength);
        position[integerLength] = '.';
        position += numberOfDigits + 1;
    }
    else {
        const size_t numberOfZeros = m_fractionDigits - numberOfDigits;
        std::memmove(position + 2 + numberOfZeros, position + 1, numberOfDigits);
        std::memset(position + 2, '0', numberOfZeros);
        position[0] = '0';
        position[1] = '.';
        position += 2 + m_fractionDigits;
    }
    return static_cast<size_t>(position - buffer);
}

std::string XSDDecimal::toString(bool turtleForm) const {
    char buffer[MAX_TEXT_LENGTH];
    return std::string(buffer, toString(buffer, turtleForm));
}

double XSDDecimal::toDouble() const noexcept {
    return convert<double>(*this);
}

float XSDDecimal::toFloat() const noexcept {
    return convert<float>(*this);
}

std::strong_ordering operator<=>(const XSDDecimal& first, const XSDDecimal& second) noexcept {
    if (first.m_fractionDigits == second.m_fractionDigits)
        return first.m_unscaledValue <=> second.m_unscaledValue;
    // Both times the other's power of ten: at most 2^63 * 10^19 < 2^63 * 2^64 = 2^127 in magnitude.
    const Int128 firstScaled = static_cast<Int128>(first.m_unscaledValue) * DecimalDigits::POWERS_OF_TEN[second.m_fractionDigits];
    const Int128 secondScaled = static_cast<Int128>(second.m_unscaledValue) * DecimalDigits::POWERS_OF_TEN[first.m_fractionDigits];
    // Equal numbers have equal fields, so numbers with different fields are not equal.
    return firstScaled < secondScaled ? std::strong_ordering::less : std::strong_ordering::greater;
}

}

size_t std::hash<kavix::XSDDecimal>::operator()(const kavix::XSDDecimal& value) const noexcept {
    // The fraction digits go to the top bits, which few unscaled values use; the multiplier is 2^64 divided by the golden
    // ratio, which spreads consecutive numbers, and the shift brings the spread down to the low bits.
    const uint64_t word = (static_cast<uint64_t>(value.getUnscaledValue()) ^ static_cast<uint64_t>(value.getFractionDigits()) << 58) * 0x9E3779B97F4A7C15;
    return word ^ word >> 32;
}
