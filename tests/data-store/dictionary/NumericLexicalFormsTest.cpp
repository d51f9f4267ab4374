#include "core/data-store/dictionary/NumericLexicalForms.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "data-store/dictionary/IntegerDatatypeRows.h"
#include "support/ExpectError.h"
#include "support/TestTable.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kavix {

using test::BEYOND;
using test::DatatypeRow;
using test::DATATYPES;
using test::OUT;

namespace {

using namespace std::string_literals;

const char* const NUMERIC_DATATYPE = "Engine/core/data-store/dictionary/NumericDatatype";

int64_t parse(uint8_t datatypeID, const std::string& text) {
    return parseIntegerValue(datatypeID, text.data(), text.size());
}

LexicalFormStatus classify(uint8_t datatypeID, const std::string& text) {
    ResourceValue value;
    return tryParseNumericValue(datatypeID, text.data(), text.size(), value);
}

bool isCanonical(uint8_t datatypeID, const std::string& text) {
    ResourceValue value;
    EXPECT_EQ(tryParseNumericValue(datatypeID, text.data(), text.size(), value), LexicalFormStatus::VALID) << text;
    const bool result = isCanonicalNumericForm(datatypeID, text.data(), text.size());
    char printed[MAX_NUMERIC_LEXICAL_FORM_LENGTH];
    EXPECT_EQ(result, text == std::string_view(printed, writeNumericLexicalForm(datatypeID, value.data, printed)))
        << text;
    return result;
}

}

TEST(NumericLexicalForms, BothEndsOfEveryRangeAreAcceptedAndTheNextNumbersAreNot) {
    for (const DatatypeRow& row : DATATYPES) {
        SCOPED_TRACE(row.m_name);
        for (const int64_t end : {row.m_minimum, row.m_maximum}) {
            const std::string text = std::to_string(end);
            EXPECT_EQ(parse(row.m_datatypeID, text), end);
            EXPECT_EQ(std::get<int64_t>(parseNumericValue(row.m_datatypeID, text.data(), text.size())), end);
            ResourceValue value;
            EXPECT_EQ(
                tryParseNumericValue(row.m_datatypeID, text.data(), text.size(), value), LexicalFormStatus::VALID);
            EXPECT_EQ(value.datatypeID, row.m_datatypeID);
            EXPECT_EQ(value.data, value.buffer);
            EXPECT_EQ(value.dataSize, 8u);
            EXPECT_EQ(value.getBinaryValue<int64_t>(), end);
        }
        EXPECT_EQ(classify(row.m_datatypeID, row.m_belowMinimum), row.m_belowMinimumStatus);
        EXPECT_EQ(classify(row.m_datatypeID, row.m_aboveMaximum), row.m_aboveMaximumStatus);
        for (const std::string text : {row.m_belowMinimum, row.m_aboveMaximum}) {
            // What does not even fit 64 bits is refused by the integer parser, as a form.
            const bool fits64Bits = text.size() < 19;
            test::expectError(
                NUMERIC_DATATYPE, fits64Bits ? 78 : 76,
                fits64Bits ? "Value '" + text + "' is not in the range of datatype " + row.m_name + "."
                           : "Lexical form '" + text + "' is invalid for datatype " + row.m_name + ".",
                [&] { parse(row.m_datatypeID, text); });
        }
    }
}

TEST(NumericLexicalForms, MinusZeroIsZeroWhereTheRangeContainsZero) {
    for (const DatatypeRow& row : DATATYPES) {
        SCOPED_TRACE(row.m_name);
        const bool containsZero = row.m_minimum <= 0 && row.m_maximum >= 0;
        EXPECT_EQ(
            containsZero, row.m_datatypeID != D_XSD_NEGATIVE_INTEGER && row.m_datatypeID != D_XSD_POSITIVE_INTEGER);
        for (const std::string& text : {"0"s, "-0"s, "+0"s, "-000"s, "-" + std::string(40, '0')}) {
            EXPECT_EQ(classify(row.m_datatypeID, text), containsZero ? LexicalFormStatus::VALID : OUT);
            if (containsZero)
                EXPECT_EQ(parse(row.m_datatypeID, text), 0);
            else
                test::expectError(
                    NUMERIC_DATATYPE, 78, "Value '" + text + "' is not in the range of datatype " + row.m_name + ".",
                    [&] { parse(row.m_datatypeID, text); });
        }
    }
}

TEST(NumericLexicalForms, MalformedIntegersAreRefusedByEveryDatatype) {
    const test::TestTable malformedIntegers("data-store/dictionary/MalformedIntegers.tsv");
    for (const DatatypeRow& row : DATATYPES)
        for (const test::TestRow& malformedInteger : malformedIntegers.getRows()) {
            SCOPED_TRACE(row.m_name + " "s + malformedInteger.getPlace());
            const std::string& form = malformedInteger.getText("form");
            EXPECT_EQ(classify(row.m_datatypeID, form), LexicalFormStatus::MALFORMED);
            if (form.find('\0') == std::string::npos) // what() ends at a NUL
                test::expectError(
                    NUMERIC_DATATYPE, 76, "Lexical form '" + form + "' is invalid for datatype " + row.m_name + ".",
                    [&] { parse(row.m_datatypeID, form); });
            else
                EXPECT_THROW(parse(row.m_datatypeID, form), KavixException);
        }
}

TEST(NumericLexicalForms, ErrorsQuoteTheFormAsItWasWritten) {
    test::expectError(NUMERIC_DATATYPE, 78, "Value '128' is not in the range of datatype xsd:byte.", [] {
        parse(D_XSD_BYTE, "128");
    });
    test::expectError(NUMERIC_DATATYPE, 78, "Value '+00128' is not in the range of datatype xsd:byte.", [] {
        parse(D_XSD_BYTE, "+00128");
    });
    test::expectError(NUMERIC_DATATYPE, 78, "Value '-1' is not in the range of datatype xsd:unsignedInt.", [] {
        parse(D_XSD_UNSIGNED_INT, "-1");
    });
    test::expectError(
        NUMERIC_DATATYPE, 76, "Lexical form 'abc' is invalid for datatype xsd:int.", [] { parse(D_XSD_INT, "abc"); });
    test::expectError(NUMERIC_DATATYPE, 76, "Lexical form '1.5' is invalid for datatype xsd:integer.", [] {
        parseNumericValue(D_XSD_INTEGER, "1.5", 3);
    });
    test::expectError(
        "Engine/core/data-store/dictionary/XSDDecimal", 58, "Lexical form 'abc' is invalid for datatype xsd:decimal.",
        [] { parseNumericValue(D_XSD_DECIMAL, "abc", 3); });
}

TEST(NumericLexicalForms, ErrorsQuoteTheWholeFormAlsoAfterANul) {
    try {
        parse(D_XSD_INT, "1\0002"s);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const KavixException& exception) {
        EXPECT_EQ(exception.getMessage(), "Lexical form '1\0002' is invalid for datatype xsd:int."s);
    }
}

TEST(NumericLexicalForms, IntegersOutside64BitsAreClassifiedByTheirDatatype) {
    const std::string hugeNumber = "1" + std::string(30, '0');
    const struct {
        uint8_t datatypeID;
        std::string text;
        LexicalFormStatus expected;
    } rows[] = {
        {D_XSD_INTEGER, hugeNumber, BEYOND},
        {D_XSD_INTEGER, "-" + hugeNumber, BEYOND},
        {D_XSD_NON_NEGATIVE_INTEGER, hugeNumber, BEYOND},
        {D_XSD_NON_NEGATIVE_INTEGER, "-" + hugeNumber, OUT},
        {D_XSD_POSITIVE_INTEGER, "+" + hugeNumber, BEYOND},
        {D_XSD_POSITIVE_INTEGER, "-" + hugeNumber, OUT},
        {D_XSD_NON_POSITIVE_INTEGER, hugeNumber, OUT},
        {D_XSD_NON_POSITIVE_INTEGER, "-" + hugeNumber, BEYOND},
        {D_XSD_NEGATIVE_INTEGER, hugeNumber, OUT},
        {D_XSD_NEGATIVE_INTEGER, "-" + hugeNumber, BEYOND},
        {D_XSD_LONG, hugeNumber, OUT},
        {D_XSD_INT, "-" + hugeNumber, OUT},
        {D_XSD_SHORT, hugeNumber, OUT},
        {D_XSD_BYTE, hugeNumber, OUT},
        {D_XSD_UNSIGNED_INT, hugeNumber, OUT},
        {D_XSD_UNSIGNED_SHORT, hugeNumber, OUT},
        {D_XSD_UNSIGNED_BYTE, hugeNumber, OUT},
        {D_XSD_UNSIGNED_LONG, "9223372036854775807", LexicalFormStatus::VALID},
        {D_XSD_UNSIGNED_LONG, "9223372036854775808", BEYOND},
        {D_XSD_UNSIGNED_LONG, "+9223372036854775808", BEYOND},
        {D_XSD_UNSIGNED_LONG, "9999999999999999999", BEYOND},
        {D_XSD_UNSIGNED_LONG, "10000000000000000000", BEYOND},
        {D_XSD_UNSIGNED_LONG, "18446744073709551615", BEYOND},
        {D_XSD_UNSIGNED_LONG, "00000000000000000000018446744073709551615", BEYOND},
        {D_XSD_UNSIGNED_LONG, "18446744073709551616", OUT},
        {D_XSD_UNSIGNED_LONG, "0018446744073709551616", OUT},
        {D_XSD_UNSIGNED_LONG, "20000000000000000000", OUT},
        {D_XSD_UNSIGNED_LONG, hugeNumber, OUT},
        {D_XSD_UNSIGNED_LONG, "-9223372036854775809", OUT},
        {D_XSD_UNSIGNED_LONG, "-" + hugeNumber, OUT},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.datatypeID) + " " + row.text);
        EXPECT_EQ(classify(row.datatypeID, row.text), row.expected);
    }
}

TEST(NumericLexicalForms, DecimalsAreParsedAndClassified) {
    EXPECT_EQ(
        std::get<XSDDecimal>(parseNumericValue(D_XSD_DECIMAL, "1.5", 3)), XSDDecimal::fromNormalisedFields(15, 1));
    ResourceValue value;
    EXPECT_EQ(tryParseNumericValue(D_XSD_DECIMAL, "1.5", 3, value), LexicalFormStatus::VALID);
    EXPECT_EQ(value.datatypeID, D_XSD_DECIMAL);
    EXPECT_EQ(value.data, value.buffer);
    EXPECT_EQ(value.dataSize, 16u);
    EXPECT_EQ(value.getBinaryValue<XSDDecimal>(), XSDDecimal::fromNormalisedFields(15, 1));
    EXPECT_EQ(classify(D_XSD_DECIMAL, "1e5"), LexicalFormStatus::MALFORMED);
    EXPECT_EQ(classify(D_XSD_DECIMAL, "0.00000000000000000001"), BEYOND);
}

TEST(NumericLexicalForms, AnUnsuccessfulAttemptLeavesTheValueUnchanged) {
    for (const uint8_t datatypeID : {D_XSD_DECIMAL, D_XSD_BYTE})
        for (const std::string text : {"abc", "100000000000000000000"}) {
            ResourceValue value;
            value.setBinaryValue(D_XSD_LONG, int64_t{42});
            EXPECT_NE(tryParseNumericValue(datatypeID, text.data(), text.size(), value), LexicalFormStatus::VALID);
            EXPECT_EQ(value.datatypeID, D_XSD_LONG);
            EXPECT_EQ(value.data, value.buffer);
            EXPECT_EQ(value.dataSize, 8u);
            EXPECT_EQ(value.getBinaryValue<int64_t>(), 42);
        }
}

TEST(NumericLexicalForms, OnlyTheFormThatAValuePrintsAsIsCanonical) {
    for (const DatatypeRow& row : DATATYPES) {
        SCOPED_TRACE(row.m_name);
        EXPECT_TRUE(isCanonical(row.m_datatypeID, std::to_string(row.m_minimum)));
        EXPECT_TRUE(isCanonical(row.m_datatypeID, std::to_string(row.m_maximum)));
    }
    for (const std::string text :
         {"0", "7", "-7", "0.5", "-0.5", "2.5", "10", "-100", "10.5", "1000.0001", "0.01", "-0.01",
          "9223372036854775807", "-9223372036854775808", "922337203685477580.7", "0.0000000000000000001",
          "-0.9223372036854775808"}) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(isCanonical(D_XSD_DECIMAL, text));
    }
    for (const std::string text :
         {"+7", "07", "-0", "+0", "00", "-07", "+10", "010", "-00", "0000000000000000000000000000000000001"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(isCanonical(D_XSD_INTEGER, text));
        EXPECT_FALSE(isCanonical(D_XSD_DECIMAL, text));
    }
    for (const std::string text :
         {"7.0", "7.",   ".5",  "0.50", "00.5", "+0.5",   "0.0",  "-0.0",  "0.",    "-0.",
          "10.", "10.0", "-.5", "-.0",  ".0",   "100.10", "05.5", "-05.5", "-00.5", "0.5000000000000000000000000000"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(isCanonical(D_XSD_DECIMAL, text));
    }
}

}
