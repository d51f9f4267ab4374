#include "core/data-store/numbers/XSDDecimal.h"

#include "support/ExpectError.h"
#include "support/TestTable.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>

namespace kavix {

using test::TestRow;
using test::TestTable;

namespace {

using namespace std::string_literals;

constexpr int64_t SMALLEST = std::numeric_limits<int64_t>::min();
constexpr int64_t LARGEST = std::numeric_limits<int64_t>::max();

constexpr const char* FORMS = "data-store/numbers/XSDDecimalForms.tsv";

// Parses from a buffer of exactly the length of the text, so that a sanitizer reports a read outside it.
LexicalFormStatus tryParse(const std::string& text, XSDDecimal& value) {
    const auto copy = std::make_unique<char[]>(text.size());
    text.copy(copy.get(), text.size());
    return XSDDecimal::tryParse(copy.get(), text.size(), value);
}

XSDDecimal parse(const std::string& text) {
    return XSDDecimal(text.data(), text.size());
}

}

TEST(XSDDecimal, FormsOfTheLexicalSpaceAreParsedAndNormalised) {
    for (const TestRow& row : TestTable(FORMS).getRows("status", "valid")) {
        SCOPED_TRACE(row.getPlace());
        const std::string& form = row.getText("form");
        XSDDecimal value;
        ASSERT_EQ(tryParse(form, value), LexicalFormStatus::VALID);
        EXPECT_EQ(value.getUnscaledValue(), row.getNumber("unscaled value"));
        EXPECT_EQ(value.getFractionDigits(), row.getNumber("fraction digits"));
        EXPECT_EQ(value.isInteger(), row.getNumber("fraction digits") == 0);
        EXPECT_TRUE(XSDDecimal::areNormalisedFields(value.getUnscaledValue(), value.getFractionDigits()));
        EXPECT_EQ(parse(form), value);
    }
}

TEST(XSDDecimal, NumbersBeyondTheCapacityHaveTheirOwnError) {
    for (const TestRow& row : TestTable(FORMS).getRows("status", "beyond capacity")) {
        SCOPED_TRACE(row.getPlace());
        const std::string& form = row.getText("form");
        XSDDecimal value(42L);
        EXPECT_EQ(tryParse(form, value), LexicalFormStatus::BEYOND_CAPACITY);
        EXPECT_EQ(value, XSDDecimal(42L));
        test::expectError(
            "Engine/core/data-store/dictionary/XSDDecimal", 60,
            "Value '" + form +
                "' exceeds the capacity of datatype xsd:decimal: at most 19 fraction digits and a signed 64-bit "
                "unscaled value.",
            [&] { parse(form); });
    }
}

TEST(XSDDecimal, OtherFormsAreRefused) {
    for (const TestRow& row : TestTable(FORMS).getRows("status", "malformed")) {
        SCOPED_TRACE(row.getPlace());
        const std::string& form = row.getText("form");
        XSDDecimal value(42L);
        EXPECT_EQ(tryParse(form, value), LexicalFormStatus::MALFORMED);
        EXPECT_EQ(value, XSDDecimal(42L));
        if (form.find('\0') == std::string::npos) // what() ends at a NUL
            test::expectError(
                "Engine/core/data-store/dictionary/XSDDecimal", 58,
                "Lexical form '" + form + "' is invalid for datatype xsd:decimal.", [&] { parse(form); });
        else
            EXPECT_THROW(parse(form), KavixException);
    }
}

TEST(XSDDecimal, NothingIsReadFromNoText) {
    XSDDecimal value;
    EXPECT_EQ(XSDDecimal::tryParse(nullptr, 0, value), LexicalFormStatus::MALFORMED);
}

TEST(XSDDecimal, EveryByteAtEveryPositionIsClassified) {
    for (size_t length = 1; length <= 20; ++length)
        for (size_t pointPosition = 0; pointPosition <= length; ++pointPosition) { // the last one: no point
            std::string text(length, '1');
            const bool hasPoint = pointPosition < length;
            if (hasPoint)
                text[pointPosition] = '.';
            for (size_t position = 0; position < length; ++position) {
                if (position == pointPosition)
                    continue;
                for (int byte = 0; byte < 256; ++byte) {
                    text[position] = static_cast<char>(byte);
                    const size_t digits = length - (hasPoint ? 1 : 0) - (byte >= '0' && byte <= '9' ? 0 : 1);
                    const bool isSign = position == 0 && (byte == '+' || byte == '-');
                    const bool isPoint = byte == '.' && !hasPoint;
                    const bool isWellFormed = digits > 0 && ((byte >= '0' && byte <= '9') || isSign || isPoint);
                    XSDDecimal value;
                    ASSERT_EQ(tryParse(text, value) != LexicalFormStatus::MALFORMED, isWellFormed)
                        << "byte " << byte << " at " << position << " of " << length << ", point at " << pointPosition;
                }
                text[position] = '1';
            }
        }
}

TEST(XSDDecimal, TextsAreCanonical) {
    const struct {
        const char* name;
        int64_t unscaledValue;
        uint8_t fractionDigits;
        const char* lexicalForm;
        const char* turtleForm;
    } rows[] = {
        {"zero", 0, 0, "0", "0.0"},
        {"integer", 7, 0, "7", "7.0"},
        {"negative integer", -7, 0, "-7", "-7.0"},
        {"integer that ends in zeros", 1200, 0, "1200", "1200.0"},
        {"fraction", 5, 1, "0.5", "0.5"},
        {"negative fraction", -5, 1, "-0.5", "-0.5"},
        {"both parts", 25, 1, "2.5", "2.5"},
        {"negative, both parts", -12345, 2, "-123.45", "-123.45"},
        {"zeros after the point", 1, 3, "0.001", "0.001"},
        {"as many digits as fraction digits", 123, 3, "0.123", "0.123"},
        {"one digit more than fraction digits", 1234, 3, "1.234", "1.234"},
        {"largest integer", LARGEST, 0, "9223372036854775807", "9223372036854775807.0"},
        {"smallest integer, the longest token", SMALLEST, 0, "-9223372036854775808", "-9223372036854775808.0"},
        {"smallest with one fraction digit", SMALLEST, 1, "-922337203685477580.8", "-922337203685477580.8"},
        {"smallest with 18 fraction digits", SMALLEST, 18, "-9.223372036854775808", "-9.223372036854775808"},
        {"smallest with 19 fraction digits, the longest form", SMALLEST, 19, "-0.9223372036854775808",
         "-0.9223372036854775808"},
        {"smallest fraction", 1, 19, "0.0000000000000000001", "0.0000000000000000001"},
        {"smallest fraction, negative", -1, 19, "-0.0000000000000000001", "-0.0000000000000000001"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const XSDDecimal value = XSDDecimal::fromNormalisedFields(row.unscaledValue, row.fractionDigits);
        for (const bool turtleForm : {false, true}) {
            const std::string expected = turtleForm ? row.turtleForm : row.lexicalForm;
            std::array<char, 40> buffer;
            buffer.fill('#');
            const size_t length = value.toString(buffer.data(), turtleForm);
            EXPECT_EQ(std::string(buffer.data(), length), expected);
            EXPECT_LE(length, XSDDecimal::MAX_TEXT_LENGTH);
            EXPECT_EQ(
                std::string(buffer.data() + length, buffer.size() - length), std::string(buffer.size() - length, '#'));
            EXPECT_EQ(value.toString(turtleForm), expected);
            EXPECT_EQ(parse(expected), value);
        }
    }
}

TEST(XSDDecimal, IntegersBecomeDecimalsWithoutFractionDigits) {
    for (const long integer : {0L, 7L, -7L, 1200L, LARGEST, SMALLEST}) {
        const XSDDecimal value(integer);
        EXPECT_EQ(value.getUnscaledValue(), integer);
        EXPECT_EQ(value.getFractionDigits(), 0);
        EXPECT_EQ(value.toString(false), std::to_string(integer));
    }
    EXPECT_EQ(XSDDecimal(), XSDDecimal(0L));
}

TEST(XSDDecimal, FieldsHaveFixedOffsetsAndPaddingIsZero) {
    const auto bytes = std::bit_cast<std::array<uint8_t, sizeof(XSDDecimal)>>(parse("-0.0000000000000000001"));
    int64_t unscaledValue;
    std::memcpy(&unscaledValue, bytes.data(), sizeof(unscaledValue));
    EXPECT_EQ(unscaledValue, -1);
    EXPECT_EQ(bytes[8], 19);
    for (size_t index = 9; index < bytes.size(); ++index)
        EXPECT_EQ(bytes[index], 0);
    // Equal numbers have equal bytes, however they were spelt.
    const auto first = std::bit_cast<std::array<uint8_t, sizeof(XSDDecimal)>>(parse("+02.50"));
    const auto second = std::bit_cast<std::array<uint8_t, sizeof(XSDDecimal)>>(parse("2.5"));
    EXPECT_EQ(first, second);
}

TEST(XSDDecimal, NormalisedFieldsAreRecognised) {
    EXPECT_TRUE(XSDDecimal::areNormalisedFields(0, 0));
    EXPECT_TRUE(XSDDecimal::areNormalisedFields(10, 0));
    EXPECT_TRUE(XSDDecimal::areNormalisedFields(1, 1));
    EXPECT_TRUE(XSDDecimal::areNormalisedFields(SMALLEST, 19));
    EXPECT_TRUE(XSDDecimal::areNormalisedFields(-11, 19));
    EXPECT_FALSE(XSDDecimal::areNormalisedFields(0, 1));
    EXPECT_FALSE(XSDDecimal::areNormalisedFields(10, 1));
    EXPECT_FALSE(XSDDecimal::areNormalisedFields(-10, 1));
    EXPECT_FALSE(XSDDecimal::areNormalisedFields(1, 20));
    EXPECT_FALSE(XSDDecimal::areNormalisedFields(1, 255));
}

TEST(XSDDecimal, ConversionsAreRoundedOnce) {
    const struct {
        const char* name;
        const char* text;
        double expectedDouble;
        float expectedFloat;
    } rows[] = {
        {"zero", "0", 0.0, 0.0f},
        {"minus zero", "-0", 0.0, 0.0f},
        {"a half", "2.5", 2.5, 2.5f},
        {"a tenth", "0.1", 0.1, 0.1f},
        {"negative", "-0.3", -0.3, -0.3f},
        {"beyond the exact integers of double", "9007199254740993", 9007199254740992.0, 9007199254740992.0f},
        {"the same with a fraction", "900719925474099.3", 900719925474099.3, 900719925474099.3f},
        {"largest", "9223372036854775807", 9223372036854775808.0, 9223372036854775808.0f},
        {"smallest", "-9223372036854775808", -9223372036854775808.0, -9223372036854775808.0f},
        {"largest fraction", "0.9223372036854775807", 0.9223372036854775807, 0.9223372036854775807f},
        {"smallest fraction", "0.0000000000000000001", 1e-19, 1e-19f},
        // Just above the middle of two floats: double rounds it to the middle, from where it would go to the even side.
        {"above the middle of two floats", "1.000000059604644776", 1.000000059604644776, 1.000000059604644776f},
        {"integer above the middle of two floats", "36028799166447617", 36028799166447616.0, 36028801313931264.0f},
        {"integer below the middle of two floats", "36028799166447615", 36028799166447616.0, 36028797018963968.0f},
        {"exact integer, inexact power for float", "0.00000000001", 1e-11, 1e-11f},
        {"inexact integer for float", "1677721.7", 1677721.7, 1677721.7f},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const XSDDecimal value = parse(row.text);
        EXPECT_EQ(std::bit_cast<uint64_t>(value.toDouble()), std::bit_cast<uint64_t>(row.expectedDouble));
        EXPECT_EQ(std::bit_cast<uint32_t>(value.toFloat()), std::bit_cast<uint32_t>(row.expectedFloat));
    }
    // The case that a float by way of double gets wrong.
    EXPECT_NE(parse("1.000000059604644776").toFloat(), static_cast<float>(parse("1.000000059604644776").toDouble()));
}

TEST(XSDDecimal, DecimalsAreOrderedAsNumbers) {
    const char* const ascending[] = {
        "-9223372036854775808",
        "-9223372036854775807",
        "-922337203685477580.8",
        "-10",
        "-9.223372036854775808",
        "-1.1",
        "-1",
        "-0.9223372036854775808",
        "-0.10",
        "-0.0000000000000000001",
        "0",
        "0.0000000000000000001",
        "0.0000000000000000002",
        "0.1",
        "0.11",
        "0.9",
        "0.9223372036854775807",
        "1",
        "1.000000000000000001",
        "1.5",
        "2",
        "9.223372036854775807",
        "10",
        "922337203685477580.7",
        "9223372036854775806",
        "9223372036854775807"};
    for (size_t first = 0; first < std::size(ascending); ++first)
        for (size_t second = 0; second < std::size(ascending); ++second) {
            SCOPED_TRACE(ascending[first] + " and "s + ascending[second]);
            EXPECT_EQ(parse(ascending[first]) <=> parse(ascending[second]), first <=> second);
            EXPECT_EQ(parse(ascending[first]) == parse(ascending[second]), first == second);
            EXPECT_EQ(parse(ascending[first]) < parse(ascending[second]), first < second);
        }
}

TEST(XSDDecimal, EqualDecimalsHaveEqualHashesAndOthersDiffer) {
    const std::hash<XSDDecimal> hash;
    EXPECT_EQ(hash(parse("2.50")), hash(parse("+002.5")));
    EXPECT_NE(hash(parse("2.5")), hash(parse("25")));
    EXPECT_NE(hash(parse("0.1")), hash(parse("0.01")));
    EXPECT_NE(hash(parse("1")), hash(parse("-1")));
}

}
