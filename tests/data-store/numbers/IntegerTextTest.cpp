#include "core/data-store/numbers/IntegerText.h"

#include "support/TestTable.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>

namespace kavix {

using test::TestRow;
using test::TestTable;

namespace {

constexpr int64_t SMALLEST = std::numeric_limits<int64_t>::min();

constexpr const char* FORMS = "data-store/numbers/IntegerTextForms.tsv";

// Parses from a buffer of exactly the length of the text, so that a sanitizer reports a read outside it.
std::pair<bool, int64_t> parse(const std::string& text) {
    const auto copy = std::make_unique<char[]>(text.size());
    text.copy(copy.get(), text.size());
    return parseIntegerSigned(copy.get(), text.size());
}

// Prints into a buffer whose other bytes must keep their mark.
std::string print(unsigned long value) {
    constexpr char MARK = '#';
    std::string buffer(MAX_UNSIGNED_TEXT_LENGTH + 8, MARK);
    const size_t length = appendNumber(value, buffer.data());
    for (size_t index = length; index < buffer.size(); ++index)
        EXPECT_EQ(buffer[index], MARK) << "byte " << index << " after " << value;
    return buffer.substr(0, length);
}

// The digit at a position of a test number; never zero, and all different within ten.
char digitAt(size_t index) {
    return static_cast<char>('1' + index % 9);
}

}

TEST(IntegerText, FormsOfTheLexicalSpaceAreParsed) {
    for (const TestRow& row : TestTable(FORMS).getRows("status", "valid")) {
        SCOPED_TRACE(row.getPlace());
        const auto [isValid, value] = parse(row.getText("form"));
        EXPECT_TRUE(isValid);
        EXPECT_EQ(value, row.getNumber("value"));
    }
}

TEST(IntegerText, NumbersOutside64BitsAreRefused) {
    for (const TestRow& row : TestTable(FORMS).getRows("status", "outside 64 bits")) {
        SCOPED_TRACE(row.getPlace());
        const std::string& form = row.getText("form");
        EXPECT_FALSE(parse(form).first);
        const bool isNegative = form[0] == '-';
        EXPECT_FALSE(parse((isNegative ? "-000" : "000") + form.substr(isNegative || form[0] == '+' ? 1 : 0)).first);
    }
}

TEST(IntegerText, OtherFormsAreRefused) {
    for (const TestRow& row : TestTable(FORMS).getRows("status", "malformed")) {
        SCOPED_TRACE(row.getPlace());
        EXPECT_FALSE(parse(row.getText("form")).first);
    }
}

TEST(IntegerText, NothingIsReadFromNoText) {
    EXPECT_FALSE(parseIntegerSigned(nullptr, 0).first);
}

TEST(IntegerText, EveryByteAtEveryPositionOfEveryLengthIsClassified) {
    for (size_t length = 1; length <= 19; ++length) {
        std::string text(length, '1');
        for (size_t position = 0; position < length; ++position) {
            for (int byte = 0; byte < 256; ++byte) {
                text[position] = static_cast<char>(byte);
                const bool isSign = position == 0 && length > 1 && (byte == '+' || byte == '-');
                const bool isDigit = byte >= '0' && byte <= '9';
                ASSERT_EQ(parse(text).first, isDigit || isSign)
                    << "byte " << byte << " at " << position << " of " << length;
            }
            text[position] = '1';
        }
    }
}

TEST(IntegerText, NumbersOfEveryLengthAreParsedWhole) {
    std::string digits;
    int64_t expected = 0;
    for (size_t length = 1; length <= 25; ++length) {
        SCOPED_TRACE(length);
        digits += digitAt(length - 1);
        if (length <= 19) { // 1234567891234567891 is below 2^63
            expected = expected * 10 + (digits.back() - '0');
            EXPECT_EQ(parse(digits), std::pair(true, expected));
            EXPECT_EQ(parse("-" + digits), std::pair(true, -expected));
        }
        else
            EXPECT_FALSE(parse(digits).first);
    }
}

TEST(IntegerText, RandomNumbersAreParsedLikeTheStandardLibraryDoes) {
    std::mt19937_64 random(20240501);
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 3 == 0 ? "-" : "");
        const size_t length = 1 + random() % 21;
        for (size_t index = 0; index < length; ++index)
            text += static_cast<char>('0' + random() % 10);
        if (random() % 8 == 0)
            text[random() % text.size()] = static_cast<char>(random());
        if (text[0] == '+') // not in the syntax of from_chars
            continue;
        int64_t expected = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), expected);
        const auto [isValid, value] = parse(text);
        ASSERT_EQ(isValid, error == std::errc() && end == text.data() + text.size()) << text;
        if (isValid) {
            ASSERT_EQ(value, expected) << text;
        }
    }
}

TEST(IntegerText, NumbersAtPowersOfTenAndTwoArePrinted) {
    EXPECT_EQ(print(0), "0");
    unsigned long power = 1;
    for (size_t exponent = 0; exponent < 20; ++exponent, power *= 10) {
        EXPECT_EQ(print(power), "1" + std::string(exponent, '0'));
        EXPECT_EQ(print(power - 1), exponent == 0 ? "0" : std::string(exponent, '9'));
        EXPECT_EQ(print(power + 1), exponent == 0 ? "2" : "1" + std::string(exponent - 1, '0') + "1");
    }
    for (unsigned bit = 0; bit < 64; ++bit)
        for (const unsigned long value : {1UL << bit, (1UL << bit) - 1})
            EXPECT_EQ(print(value), std::to_string(value));
    EXPECT_EQ(print(std::numeric_limits<unsigned long>::max()), "18446744073709551615");
    EXPECT_EQ(print(static_cast<unsigned long>(SMALLEST)), "9223372036854775808");
}

TEST(IntegerText, NumbersOfEveryLengthArePrintedWhole) {
    unsigned long value = 0;
    std::string expected;
    for (size_t length = 1; length <= 20; ++length) { // 12345678912345678912 is below 2^64
        expected += digitAt(length - 1);
        value = value * 10 + static_cast<unsigned long>(expected.back() - '0');
        EXPECT_EQ(print(value), expected);
    }
}

TEST(IntegerText, AllSmallNumbersArePrinted) {
    for (unsigned long value = 0; value < 20000; ++value)
        ASSERT_EQ(print(value), std::to_string(value));
}

TEST(IntegerText, PrintingAppendsToText) {
    std::string text = "x";
    appendNumber(0, text);
    appendNumber(std::numeric_limits<unsigned long>::max(), text);
    EXPECT_EQ(text, "x018446744073709551615");
}

TEST(IntegerText, PrintedNumbersParseToThemselves) {
    std::mt19937_64 random(20240502);
    for (int round = 0; round < 20000; ++round) {
        const unsigned long value = random() >> (1 + random() % 63);
        ASSERT_EQ(print(value), std::to_string(value));
        ASSERT_EQ(parse(print(value)), std::pair(true, static_cast<int64_t>(value)));
    }
}

}
