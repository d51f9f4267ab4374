#include "core/data-store/numbers/XSDDecimal.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>

namespace kavix {

namespace {

__extension__ typedef unsigned __int128 UInt128;

constexpr uint64_t SEED = 0x5EEDDEC1;
constexpr int ROUNDS = 100000;

/// A decimal as a model too simple to be wrong: its digits one by one.
struct Model {
    bool m_isNegative;
    std::string m_digits; // no leading zeros; empty for zero
    size_t m_fractionDigits;

    explicit Model(const std::string& text) :
        m_isNegative(text[0] == '-'),
        m_fractionDigits(0) {
        bool isFraction = false;
        for (const char character : text)
            if (character == '.')
                isFraction = true;
            else if (character != '+' && character != '-') {
                m_digits += character;
                m_fractionDigits += isFraction ? 1 : 0;
            }
        while (m_fractionDigits > 0 && m_digits.back() == '0') {
            m_digits.pop_back();
            --m_fractionDigits;
        }
        m_digits.erase(0, m_digits.find_first_not_of('0'));
        if (m_digits.empty())
            m_isNegative = false;
    }

    std::optional<int64_t> getUnscaledValue() const {
        if (m_digits.size() > 20 || m_fractionDigits > 19)
            return std::nullopt;
        UInt128 magnitude = 0;
        for (const char digit : m_digits)
            magnitude = magnitude * 10 + static_cast<unsigned>(digit - '0');
        if (magnitude > (UInt128{1} << 63) - (m_isNegative ? 0 : 1))
            return std::nullopt;
        const uint64_t word = static_cast<uint64_t>(magnitude);
        return static_cast<int64_t>(m_isNegative ? 0 - word : word);
    }

    std::string getText() const {
        std::string text = m_digits;
        if (text.size() <= m_fractionDigits)
            text.insert(0, m_fractionDigits + 1 - text.size(), '0');
        if (m_fractionDigits > 0)
            text.insert(text.size() - m_fractionDigits, ".");
        return (m_isNegative ? "-" : "") + text;
    }
};

std::string makeDigits(std::mt19937_64& random, size_t length) {
    std::string digits;
    const uint64_t kind = random() % 4;
    for (size_t index = 0; index < length; ++index)
        digits += kind == 0   ? '0'
                  : kind == 1 ? (random() % 2 == 0 ? '0' : '9')
                              : static_cast<char>('0' + random() % 10);
    return digits;
}

std::string makeForm(std::mt19937_64& random) {
    const char* const signs[] = {"", "", "+", "-"};
    std::string text = signs[random() % 4];
    const size_t integerLength = random() % 22;
    const size_t fractionLength = random() % 22;
    text += makeDigits(random, integerLength);
    if (integerLength == 0 || random() % 4 != 0) {
        text += '.';
        text += makeDigits(random, integerLength == 0 ? fractionLength + 1 : fractionLength);
    }
    return text;
}

XSDDecimal makeDecimal(std::mt19937_64& random) {
    for (;;) {
        const int64_t unscaledValue = static_cast<int64_t>(random()) >> (random() % 64);
        const uint8_t fractionDigits = static_cast<uint8_t>(random() % 20);
        if (XSDDecimal::areNormalisedFields(unscaledValue, fractionDigits))
            return XSDDecimal::fromNormalisedFields(unscaledValue, fractionDigits);
    }
}

}

TEST(XSDDecimal, FormsAreParsedAndPrintedLikeTheModel) {
    std::mt19937_64 random(SEED);
    int validForms = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        const std::string text = makeForm(random);
        SCOPED_TRACE(text);
        const Model model(text);
        const std::optional<int64_t> unscaledValue = model.getUnscaledValue();
        XSDDecimal value;
        const LexicalFormStatus status = XSDDecimal::tryParse(text.data(), text.size(), value);
        ASSERT_EQ(status, unscaledValue ? LexicalFormStatus::VALID : LexicalFormStatus::BEYOND_CAPACITY);
        if (unscaledValue) {
            ++validForms;
            ASSERT_EQ(value.getUnscaledValue(), *unscaledValue);
            ASSERT_EQ(value.getFractionDigits(), model.m_fractionDigits);
            ASSERT_EQ(value.toString(false), model.getText());
        }
    }
    EXPECT_GT(validForms, ROUNDS / 4);
    EXPECT_LT(validForms, ROUNDS - ROUNDS / 8);
}

TEST(XSDDecimal, PrintedDecimalsParseToThemselves) {
    std::mt19937_64 random(SEED + 1);
    for (int round = 0; round < ROUNDS; ++round) {
        const XSDDecimal value = makeDecimal(random);
        for (const bool turtleForm : {false, true}) {
            const std::string text = value.toString(turtleForm);
            ASSERT_LE(text.size(), XSDDecimal::MAX_TEXT_LENGTH);
            XSDDecimal parsed;
            ASSERT_EQ(XSDDecimal::tryParse(text.data(), text.size(), parsed), LexicalFormStatus::VALID) << text;
            ASSERT_EQ(parsed, value) << text;
            ASSERT_EQ(std::hash<XSDDecimal>()(parsed), std::hash<XSDDecimal>()(value));
            ASSERT_TRUE(!turtleForm || text.find('.') != std::string::npos) << text;
        }
    }
}

TEST(XSDDecimal, ConversionsAreThoseOfTheStandardLibrary) {
    std::mt19937_64 random(SEED + 2);
    for (int round = 0; round < ROUNDS; ++round) {
        const XSDDecimal value = makeDecimal(random);
        // By way of an exponent, and so by another text than the one that the class writes.
        const std::string text =
            std::to_string(value.getUnscaledValue()) + "e-" + std::to_string(value.getFractionDigits());
        double expectedDouble = 0;
        std::from_chars(text.data(), text.data() + text.size(), expectedDouble);
        float expectedFloat = 0;
        std::from_chars(text.data(), text.data() + text.size(), expectedFloat);
        ASSERT_EQ(std::bit_cast<uint64_t>(value.toDouble()), std::bit_cast<uint64_t>(expectedDouble)) << text;
        ASSERT_EQ(std::bit_cast<uint32_t>(value.toFloat()), std::bit_cast<uint32_t>(expectedFloat)) << text;
    }
}

TEST(XSDDecimal, TheOrderIsThatOfTheAlignedDigits) {
    std::mt19937_64 random(SEED + 3);
    // Without the sign: the integer part in 19 digits, the fraction in 19; then texts are ordered as numbers are.
    const auto align = [](const XSDDecimal& value) {
        std::string text = value.toString(true);
        if (text[0] == '-')
            text.erase(0, 1);
        const size_t point = text.find('.');
        text.append(19 - (text.size() - point - 1), '0');
        return std::string(19 - point, '0') + text;
    };
    for (int round = 0; round < ROUNDS; ++round) {
        const XSDDecimal first = makeDecimal(random);
        XSDDecimal second = makeDecimal(random);
        if (round % 4 == 0) // a neighbour
            second = XSDDecimal::areNormalisedFields(first.getUnscaledValue() ^ 1, first.getFractionDigits())
                         ? XSDDecimal::fromNormalisedFields(first.getUnscaledValue() ^ 1, first.getFractionDigits())
                         : first;
        const bool isFirstNegative = first.getUnscaledValue() < 0;
        const bool isSecondNegative = second.getUnscaledValue() < 0;
        std::strong_ordering expected = std::strong_ordering::equal;
        if (isFirstNegative != isSecondNegative)
            expected = isFirstNegative ? std::strong_ordering::less : std::strong_ordering::greater;
        else
            expected = isFirstNegative ? align(second) <=> align(first) : align(first) <=> align(second);
        ASSERT_EQ(first <=> second, expected) << first.toString(false) << " and " << second.toString(false);
        ASSERT_EQ(first == second, expected == 0);
    }
}

}
