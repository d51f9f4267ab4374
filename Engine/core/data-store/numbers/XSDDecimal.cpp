#include "core/data-store/numbers/XSDDecimal.h"

#include "core/data-store/numbers/DecimalDigits.h"
#include "core/data-store/numbers/IntegerText.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <limits>

namespace kavix {

namespace {

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 UInt128;

// The integers up to the first are exact in the type, and so are the powers of ten up to the second. The quotient of
// two exact numbers is rounded once.
template<typename T>
constexpr uint64_t MAX_EXACT_INTEGER = uint64_t{1} << std::numeric_limits<T>::digits;

template<typename T>
constexpr uint8_t MAX_EXACT_POWER_OF_TEN = 0;

template<>
constexpr uint8_t MAX_EXACT_POWER_OF_TEN<double> = 22; // 5^22 < 2^53 < 5^23

template<>
constexpr uint8_t MAX_EXACT_POWER_OF_TEN<float> = 10; // 5^10 < 2^24 < 5^11

static_assert(MAX_EXACT_POWER_OF_TEN<double> >= XSDDecimal::MAX_FRACTION_DIGITS);

// Up to this many fraction digits, which a word of digits holds, a number is printed as two.
constexpr uint8_t MAX_SPLIT_FRACTION_DIGITS = 8;

// Divides by a number d other than a power of two, below 2^32, without the processor's division, which takes many times
// as long as a multiplication.
//
// With 2^(bits - 1) < d < 2^bits, the factor is 2^(63 + bits) / d rounded up, below 2^64: f * d = 2^(63 + bits) + e,
// 0 < e <= d. So n * f / 2^(63 + bits) = n / d + n * e / (d * 2^(63 + bits)), which is too much by less than 1 / d, and
// rounded down is the quotient, if n * e < 2^(63 + bits): for n <= 2^63, the largest magnitude, because e <= d <
// 2^bits.
struct Reciprocal {
    uint64_t m_factor;
    unsigned m_shift; // in addition to the lower 64 bits of the product

    uint64_t divide(uint64_t dividend) const noexcept {
        return static_cast<uint64_t>(static_cast<UInt128>(dividend) * m_factor >> 64) >> m_shift;
    }
};

constexpr std::array<Reciprocal, MAX_SPLIT_FRACTION_DIGITS + 1> POWER_RECIPROCALS = [] {
    std::array<Reciprocal, MAX_SPLIT_FRACTION_DIGITS + 1> reciprocals{}; // that of 1 is not used
    for (size_t exponent = 1; exponent < reciprocals.size(); ++exponent) {
        const uint64_t power = DecimalDigits::POWERS_OF_TEN[exponent];
        const unsigned bits = static_cast<unsigned>(std::bit_width(power));
        reciprocals[exponent] = {static_cast<uint64_t>((UInt128{1} << (63 + bits)) / power + 1), bits - 1};
    }
    return reciprocals;
}();

// Negated as unsigned, so that the smallest integer has a magnitude.
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

// The longest text of digits and at most one point that is read as words: nineteen digits and the point.
constexpr size_t MAX_DIGITS_AND_POINT = DecimalDigits::MAX_PARSED_DIGITS + 1;

// Parses any form after its sign, one character at a time where necessary. Reached by: forms of 20 characters and more,
// whose zeros must not count against the capacity, numbers at the limit, and rejected forms, to find out what is wrong.
[[gnu::noinline]] LexicalFormStatus tryParseAny(
    const char* text, size_t length, bool isNegative, XSDDecimal& value) noexcept {
    const char* const end = text + length;
    const char* const point = std::find(text, end, '.');
    const char* const fraction = point == end ? end : point + 1;
    if (text == point && fraction == end) [[unlikely]]
        return LexicalFormStatus::MALFORMED;

    // Zeros that carry no value are removed first: they must not count against the capacity.
    while (text != point && *text == '0')
        ++text;
    const char* fractionEnd = end;
    while (fractionEnd != fraction && fractionEnd[-1] == '0')
        --fractionEnd;
    const size_t integerLength = static_cast<size_t>(point - text);
    const size_t fractionLength = static_cast<size_t>(fractionEnd - fraction);

    // With more than 19 digits left the number does not fit: either the fraction alone has more than 19, or the
    // unscaled value starts with a digit other than zero and is 10^19 or more. The lengths cannot wrap: both are at
    // most length.
    if (integerLength + fractionLength > DecimalDigits::MAX_PARSED_DIGITS) [[unlikely]] {
        const bool isWellFormed = std::all_of(text, point, DecimalDigits::isDigit) &&
                                  std::all_of(fraction, fractionEnd, DecimalDigits::isDigit);
        return isWellFormed ? LexicalFormStatus::BEYOND_CAPACITY : LexicalFormStatus::MALFORMED;
    }
    static_assert(XSDDecimal::MAX_FRACTION_DIGITS == DecimalDigits::MAX_PARSED_DIGITS);

    uint64_t integerPart;
    uint64_t fractionPart;
    if (!DecimalDigits::tryParse(text, integerLength, integerPart) ||
        !DecimalDigits::tryParse(fraction, fractionLength, fractionPart)) [[unlikely]]
        return LexicalFormStatus::MALFORMED;
    // integerPart < 10^integerLength and fractionPart < 10^fractionLength, so the sum is below 10^19 < 2^64.
    const uint64_t magnitude = integerPart * DecimalDigits::POWERS_OF_TEN[fractionLength] + fractionPart;
    if (magnitude > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (isNegative ? 1 : 0)) [[unlikely]]
        return LexicalFormStatus::BEYOND_CAPACITY;
    // Normalised: a remaining fraction ends in a digit other than zero; and minus zero is zero.
    value = XSDDecimal::fromNormalisedFields(
        static_cast<int64_t>(isNegative ? 0 - magnitude : magnitude), static_cast<uint8_t>(fractionLength));
    return LexicalFormStatus::VALID;
}

/// The digits and the point of a text, as words that end with the text; words that are not present are zero.
struct Words {
    uint64_t m_front = 0;
    uint64_t m_middle = 0;
    uint64_t m_last = 0;
};

/// Loads a text of 1 to 8, 9 to 16 or 17 to 20 characters. The first word is padded with leading zeros.
template<size_t NUMBER_OF_WORDS>
[[gnu::always_inline]] inline Words loadWords(const char* text, size_t length) noexcept {
    using namespace DecimalDigits;
    if constexpr (NUMBER_OF_WORDS == 1)
        return {0, 0, loadUpToEight(text, length)};
    else if constexpr (NUMBER_OF_WORDS == 2)
        return {0, loadEight(text) << (128 - 8 * length), loadEight(text + length - 8)};
    else
        return {loadEight(text) << (192 - 8 * length), loadEight(text + length - 16), loadEight(text + length - 8)};
}

/// Removes the byte that is not a digit, if there is one; the digits before it move up by one place, from word to word.
/// In a well-formed text that byte is the point: the words before its own have no marks, and its own word has exactly
/// one. Left to the caller to check: whether it is a point, and whether its word has only this mark.
/// @param mark            the marks of the word from which a byte was removed, 0 if there are only digits
/// @param fractionDigits  increased by the digits of the words after that one
/// @return whether at most one word has marks; if not, the result is meaningless
[[gnu::always_inline]] inline bool tryRemoveNonDigit(Words& words, uint64_t& mark, size_t& fractionDigits) noexcept {
    using namespace DecimalDigits;
    const uint64_t frontMark = markNonDigits(words.m_front);
    const uint64_t middleMark = markNonDigits(words.m_middle);
    mark = markNonDigits(words.m_last);
    if (mark != 0) {
        if ((middleMark | frontMark) != 0) [[unlikely]]
            return false;
        words.m_last = removeByte(words.m_last, mark) | words.m_middle >> 56;
        words.m_middle = words.m_middle << 8 | words.m_front >> 56;
        words.m_front <<= 8;
    }
    else if (middleMark != 0) {
        if (frontMark != 0) [[unlikely]]
            return false;
        words.m_middle = removeByte(words.m_middle, middleMark) | words.m_front >> 56;
        words.m_front <<= 8;
        mark = middleMark;
        fractionDigits += 8;
    }
    else if (frontMark != 0) {
        words.m_front = removeByte(words.m_front, frontMark);
        mark = frontMark;
        fractionDigits += 16;
    }
    return true;
}

/// The number that the digits represent, at most 19 of them: < 10^19 < 2^64.
template<size_t NUMBER_OF_WORDS>
[[gnu::always_inline]] inline uint64_t combineWords(const Words& words) noexcept {
    using namespace DecimalDigits;
    constexpr uint64_t EIGHT_DIGITS = 100000000;
    const uint64_t last = combineDigits(words.m_last);
    if constexpr (NUMBER_OF_WORDS == 1)
        return last;
    else if constexpr (NUMBER_OF_WORDS == 2)
        return combineDigits(words.m_middle) * EIGHT_DIGITS + last;
    else
        return (combineDigits(words.m_front) * EIGHT_DIGITS + combineDigits(words.m_middle)) * EIGHT_DIGITS + last;
}

// Writes a number with more fraction digits than are split off, and returns the length of the text.
[[gnu::noinline]] size_t writeLongFraction(uint64_t magnitude, size_t fractionDigits, char* buffer) noexcept {
    // The digits are written one place to the right of their final position, which leaves room for the point, and so
    // never after the end of the text: it has at least one character more than there are digits.
    const size_t numberOfDigits = DecimalDigits::write(magnitude, buffer + 1);
    if (numberOfDigits > fractionDigits) {
        const size_t integerLength = numberOfDigits - fractionDigits;
        std::memmove(buffer, buffer + 1, integerLength);
        buffer[integerLength] = '.';
        return numberOfDigits + 1;
    }
    const size_t numberOfZeros = fractionDigits - numberOfDigits;
    std::memmove(buffer + 2 + numberOfZeros, buffer + 1, numberOfDigits);
    std::memset(buffer + 2, '0', numberOfZeros);
    buffer[0] = '0';
    buffer[1] = '.';
    return 2 + fractionDigits;
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
    bool isNegative = false;
    // Signs are below '.', and no other characters of a decimal are.
    if (length != 0 && static_cast<unsigned char>(*text) < '.') {
        isNegative = *text == '-';
        if (!isNegative && *text != '+') [[unlikely]]
            return LexicalFormStatus::MALFORMED;
        ++text;
        --length;
    }
    // Each is a separate function, called last: together they would need more registers than there are.
    if (length <= 8)
        return length == 0 ? LexicalFormStatus::MALFORMED : tryParseWords<1>(text, length, isNegative, value);
    if (length <= 16)
        return tryParseWords<2>(text, length, isNegative, value);
    if (length <= MAX_DIGITS_AND_POINT)
        return tryParseWords<3>(text, length, isNegative, value);
    return tryParseAny(text, length, isNegative, value);
}

template<size_t NUMBER_OF_WORDS>
LexicalFormStatus XSDDecimal::tryParseWords(
    const char* text, size_t length, bool isNegative, XSDDecimal& value) noexcept {
    Words words = loadWords<NUMBER_OF_WORDS>(text, length);
    size_t fractionDigits = 0;
    uint64_t mark;
    if (!tryRemoveNonDigit(words, mark, fractionDigits) ||
        (NUMBER_OF_WORDS == 3 && mark == 0 && length > DecimalDigits::MAX_PARSED_DIGITS)) [[unlikely]]
        return tryParseAny(text, length, isNegative, value);
    uint64_t magnitude = combineWords<NUMBER_OF_WORDS>(words);
    if (mark != 0) {
        fractionDigits += static_cast<size_t>(std::countl_zero(mark)) / 8; // the mark is the top bit of its byte
        if ((mark & (mark - 1)) != 0 || text[length - 1 - fractionDigits] != '.' || length == 1) [[unlikely]]
            return tryParseAny(text, length, isNegative, value);
        if (text[length - 1] == '0') {
            // Normalise: zeros at the end of the fraction carry no value.
            do {
                magnitude /= 10;
                --fractionDigits;
            } while (fractionDigits != 0 && magnitude % 10 == 0);
        }
    }
    if (NUMBER_OF_WORDS == 3 && magnitude > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
        [[unlikely]] // may be the magnitude of the smallest number
        return tryParseAny(text, length, isNegative, value);
    // Field by field: a whole value would be assembled in memory first, and its load would wait for the pieces.
    value.m_unscaledValue = static_cast<int64_t>(isNegative ? 0 - magnitude : magnitude);
    value.m_fractionDigits = static_cast<uint8_t>(fractionDigits);
    return LexicalFormStatus::VALID;
}

bool XSDDecimal::areNormalisedFields(int64_t unscaledValue, uint8_t fractionDigits) noexcept {
    return fractionDigits == 0 || (fractionDigits <= MAX_FRACTION_DIGITS && unscaledValue % 10 != 0);
}

size_t XSDDecimal::toString(char* buffer, bool turtleForm) const noexcept {
    const uint64_t magnitude = getMagnitude(m_unscaledValue);
    const size_t fractionDigits = m_fractionDigits; // the text may alias the member
    char* position = buffer;
    if (m_unscaledValue < 0)
        *position++ = '-';
    if (fractionDigits > MAX_SPLIT_FRACTION_DIGITS)
        return static_cast<size_t>(position - buffer) + writeLongFraction(magnitude, fractionDigits, position);
    if (fractionDigits == 0) {
        position += appendNumber(magnitude, position);
        if (turtleForm) {
            *position++ = '.';
            *position++ = '0';
        }
        return static_cast<size_t>(position - buffer);
    }
    const uint64_t integerPart = POWER_RECIPROCALS[fractionDigits].divide(magnitude);
    const uint64_t fractionPart = magnitude - integerPart * DecimalDigits::POWERS_OF_TEN[fractionDigits];
    position += appendNumber(integerPart, position);
    *position++ = '.';
    DecimalDigits::writePadded(static_cast<uint32_t>(fractionPart), fractionDigits, position);
    return static_cast<size_t>(position - buffer) + fractionDigits;
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
    // Each side times the other's power of ten: at most 2^63 * 10^19 < 2^63 * 2^64 = 2^127 in magnitude.
    const Int128 firstScaled =
        static_cast<Int128>(first.m_unscaledValue) * DecimalDigits::POWERS_OF_TEN[second.m_fractionDigits];
    const Int128 secondScaled =
        static_cast<Int128>(second.m_unscaledValue) * DecimalDigits::POWERS_OF_TEN[first.m_fractionDigits];
    // Equal numbers have equal fields, so numbers with different fields are not equal.
    return firstScaled < secondScaled ? std::strong_ordering::less : std::strong_ordering::greater;
}

}

size_t std::hash<kavix::XSDDecimal>::operator()(const kavix::XSDDecimal& value) const noexcept {
    // The fraction digits go to the top bits, which few unscaled values use; the multiplier is 2^64 divided by the
    // golden ratio, which spreads consecutive numbers, and the shift brings the spread down to the low bits.
    const uint64_t word =
        (static_cast<uint64_t>(value.getUnscaledValue()) ^ static_cast<uint64_t>(value.getFractionDigits()) << 58) *
        0x9E3779B97F4A7C15;
    return word ^ word >> 32;
}
