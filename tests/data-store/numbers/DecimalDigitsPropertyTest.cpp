// Through its users, IntegerText and XSDDecimal: one model judges both.

#include "core/data-store/numbers/DecimalDigits.h"

#include "core/data-store/numbers/IntegerText.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "support/GuardedText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

namespace {

__extension__ typedef unsigned __int128 UInt128;

constexpr uint64_t SEED = 0x5EEDF0;

/// What a form is, by a reader that takes one character after the other.
struct Reading {
    bool m_isWellFormed = false;
    bool m_hasPoint = false;
    bool m_isNegative = false;
    bool m_fits = false; // 64 bits with a sign, and 19 fraction digits
    int64_t m_unscaledValue = 0;
    size_t m_fractionDigits = 0;
};

Reading read(std::string text) {
    Reading reading;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        reading.m_isNegative = text[0] == '-';
        text.erase(0, 1);
    }
    std::string digits;
    for (const char character : text) {
        if (character == '.') {
            if (reading.m_hasPoint)
                return reading;
            reading.m_hasPoint = true;
        }
        else {
            if (character < '0' || character > '9')
                return reading;
            digits += character;
            reading.m_fractionDigits += reading.m_hasPoint ? 1 : 0;
        }
    }
    reading.m_isWellFormed = !digits.empty();
    for (; reading.m_fractionDigits > 0 && digits.back() == '0'; --reading.m_fractionDigits)
        digits.pop_back();
    UInt128 magnitude = 0;
    for (const char digit : digits)
        if (magnitude <= std::numeric_limits<uint64_t>::max())
            magnitude = magnitude * 10 + static_cast<unsigned>(digit - '0');
    reading.m_fits = reading.m_isWellFormed && reading.m_fractionDigits <= 19 &&
                     magnitude <= (UInt128{1} << 63) - (reading.m_isNegative ? 0 : 1);
    if (reading.m_fits)
        reading.m_unscaledValue = static_cast<int64_t>(
            reading.m_isNegative ? 0 - static_cast<uint64_t>(magnitude) : static_cast<uint64_t>(magnitude));
    return reading;
}

/// Compares both parsers with the reader, on texts that end and that start where memory does.
class Checker {

public:

    void check(const std::string& text) {
        const Reading reading = read(text);
        for (const bool isAtEnd : {true, false}) {
            const char* const place = isAtEnd ? m_guardedText.placeAtEnd(text) : m_guardedText.placeAtStart(text);

            const XSDDecimal mark = XSDDecimal::fromNormalisedFields(-77, 7);
            XSDDecimal decimal = mark;
            const LexicalFormStatus status = XSDDecimal::tryParse(place, text.size(), decimal);
            const LexicalFormStatus expectedStatus = !reading.m_isWellFormed ? LexicalFormStatus::MALFORMED
                                                     : reading.m_fits        ? LexicalFormStatus::VALID
                                                                             : LexicalFormStatus::BEYOND_CAPACITY;
            ASSERT_EQ(status, expectedStatus) << text;
            const XSDDecimal expectedDecimal =
                reading.m_fits ? XSDDecimal::fromNormalisedFields(
                                     reading.m_unscaledValue, static_cast<uint8_t>(reading.m_fractionDigits))
                               : mark;
            ASSERT_EQ(decimal, expectedDecimal) << text;

            const auto [isValid, integer] = parseIntegerSigned(place, text.size());
            ASSERT_EQ(isValid, reading.m_fits && !reading.m_hasPoint) << text;
            if (isValid) {
                ASSERT_EQ(integer, reading.m_unscaledValue) << text;
            }
        }
        ++m_statuses[reading.m_isWellFormed ? (reading.m_fits ? 1 : 2) : 0];
    }

    /// All kinds of forms have been met: malformed, valid, too large.
    void expectVariety(bool hasLargeForms) const {
        EXPECT_GT(m_statuses[0], 100u);
        EXPECT_GT(m_statuses[1], 100u);
        EXPECT_TRUE(!hasLargeForms || m_statuses[2] > 100);
    }

private:

    test::GuardedText m_guardedText;
    size_t m_statuses[3] = {};
};

}

TEST(DecimalDigits, EveryShortTextIsReadLikeTheModel) {
    const std::string alphabet = "0179.-+/:,\xB1";
    Checker checker;
    std::vector<std::string> texts = {""};
    for (size_t length = 0; length <= 5; ++length) {
        std::vector<std::string> longerTexts;
        for (const std::string& text : texts) {
            ASSERT_NO_FATAL_FAILURE(checker.check(text));
            if (length < 5)
                for (const char character : alphabet)
                    longerTexts.push_back(text + character);
        }
        texts = std::move(longerTexts);
    }
    checker.expectVariety(false);
}

TEST(DecimalDigits, EveryPlaceOfThePointAtEveryLengthIsReadLikeTheModel) {
    // Every number of leading zeros and trailing zeros around other digits, a point at every place or nowhere.
    Checker checker;
    for (size_t length = 1; length <= 24; ++length)
        for (size_t leadingZeros = 0; leadingZeros <= length; ++leadingZeros)
            for (size_t trailingZeros = 0; leadingZeros + trailingZeros <= length; ++trailingZeros)
                for (const char filler : {'1', '9'}) {
                    const std::string digits = std::string(leadingZeros, '0') +
                                               std::string(length - leadingZeros - trailingZeros, filler) +
                                               std::string(trailingZeros, '0');
                    for (size_t point = 0; point <= length + 1; ++point) {
                        std::string text = digits;
                        if (point <= length)
                            text.insert(point, 1, '.');
                        ASSERT_NO_FATAL_FAILURE(checker.check(text));
                        ASSERT_NO_FATAL_FAILURE(checker.check("-" + text));
                    }
                }
}

TEST(DecimalDigits, EveryPairOfOtherCharactersIsReadLikeTheModel) {
    const std::string others = ".-+/:e \x80\x8A\xB0\xFE"
                               "n\x0E";
    Checker checker;
    for (size_t length = 2; length <= 22; ++length)
        for (size_t first = 0; first < length; ++first)
            for (size_t second = first; second < length; ++second)
                for (const char firstCharacter : others)
                    for (const char secondCharacter : others) {
                        std::string text = std::string("1234567891234567891234").substr(0, length);
                        text[first] = firstCharacter;
                        text[second] = secondCharacter;
                        ASSERT_NO_FATAL_FAILURE(checker.check(text));
                    }
    checker.expectVariety(false);
}

TEST(DecimalDigits, NumbersAtTheLimitsAreReadLikeTheModel) {
    const std::string limits[] = {"9223372036854775807",  "9223372036854775808",  "9223372036854775809",
                                  "9999999999999999999",  "10000000000000000000", "18446744073709551615",
                                  "18446744073709551616", "18446744073709551617", "99999999999999999999",
                                  "27670116110564327424", "9223372036854775806",  "1000000000000000000",
                                  "999999999999999999"};
    Checker checker;
    for (const std::string& digits : limits)
        for (const char* const sign : {"", "+", "-"})
            for (size_t leadingZeros = 0; leadingZeros <= 21; ++leadingZeros)
                for (size_t trailingZeros = 0; trailingZeros <= 21; ++trailingZeros) {
                    const std::string zeroedDigits =
                        std::string(leadingZeros, '0') + digits + std::string(trailingZeros, '0');
                    for (size_t point = 0; point <= zeroedDigits.size() + 1; ++point) {
                        std::string text = zeroedDigits;
                        if (point <= zeroedDigits.size())
                            text.insert(point, 1, '.');
                        ASSERT_NO_FATAL_FAILURE(checker.check(sign + text));
                    }
                }
}

TEST(DecimalDigits, RandomTextsAreReadLikeTheModel) {
    std::mt19937_64 random(SEED);
    Checker checker;
    for (int round = 0; round < 300000; ++round) {
        std::string text;
        const size_t length = random() % 26;
        const uint64_t digitKind = random() % 3;
        for (size_t index = 0; index < length; ++index)
            text += static_cast<char>('0' + (digitKind == 0 ? random() % 2 * 9 : random() % 10));
        if (random() % 8 != 0)
            text.insert(random() % (text.size() + 1), 1, '.');
        if (random() % 3 == 0)
            text.insert(0, 1, random() % 2 == 0 ? '-' : '+');
        if (text.empty())
            continue;
        for (uint64_t mutations = random() % 4 == 0 ? 1 + random() % 3 : 0; mutations > 0; --mutations)
            text[random() % text.size()] = random() % 2 == 0 ? '.' : static_cast<char>(random());
        ASSERT_NO_FATAL_FAILURE(checker.check(text)) << "round " << round << ", seed " << SEED;
    }
    checker.expectVariety(true);
}

TEST(DecimalDigits, NumbersArePrintedLikeTheStandardLibraryAndAPoint) {
    constexpr char MARK = '#';
    std::vector<uint64_t> magnitudes;
    for (uint64_t number = 0; number <= 20000; ++number)
        magnitudes.push_back(number);
    uint64_t power = 1;
    for (size_t exponent = 0; exponent < 19; ++exponent, power *= 10)
        for (uint64_t factor = 1; factor <= 92 && factor <= (uint64_t{1} << 63) / power; ++factor)
            for (const uint64_t number : {factor * power - 1, factor * power, factor * power + 1})
                magnitudes.push_back(number);
    for (uint64_t distance = 0; distance < 2000; ++distance)
        magnitudes.push_back((uint64_t{1} << 63) - distance);
    std::mt19937_64 random(SEED + 1);
    for (int round = 0; round < 50000; ++round)
        magnitudes.push_back(random() >> (1 + random() % 63));

    for (const uint64_t magnitude : magnitudes) {
        if (magnitude > uint64_t{1} << 63)
            continue;
        const std::string digits = std::to_string(magnitude);
        char buffer[MAX_UNSIGNED_TEXT_LENGTH + 1];
        std::fill(std::begin(buffer), std::end(buffer), MARK);
        const size_t length = appendNumber(magnitude, buffer);
        ASSERT_EQ(std::string(buffer, length), digits);
        ASSERT_EQ(buffer[length], MARK) << digits;

        for (const bool isNegative : {false, true}) {
            if (!isNegative && magnitude == uint64_t{1} << 63)
                continue;
            const int64_t unscaledValue = static_cast<int64_t>(isNegative ? 0 - magnitude : magnitude);
            for (uint8_t fractionDigits = 0; fractionDigits <= XSDDecimal::MAX_FRACTION_DIGITS; ++fractionDigits) {
                if (!XSDDecimal::areNormalisedFields(unscaledValue, fractionDigits))
                    continue;
                std::string expected = digits;
                if (fractionDigits > 0) {
                    if (expected.size() <= fractionDigits)
                        expected.insert(0, fractionDigits + 1 - expected.size(), '0');
                    expected.insert(expected.size() - fractionDigits, 1, '.');
                }
                if (isNegative && magnitude != 0)
                    expected.insert(0, 1, '-');
                char decimalBuffer[XSDDecimal::MAX_TEXT_LENGTH + 1];
                std::fill(std::begin(decimalBuffer), std::end(decimalBuffer), MARK);
                const size_t decimalLength =
                    XSDDecimal::fromNormalisedFields(unscaledValue, fractionDigits).toString(decimalBuffer, false);
                ASSERT_EQ(std::string(decimalBuffer, decimalLength), expected);
                ASSERT_EQ(decimalBuffer[decimalLength], MARK) << expected;
            }
        }
    }
}

}
