#include "core/data-store/dictionary/NumericDatatypeFactory.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "core/data-store/dictionary/Prefixes.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/stream/OutputStream.h"
#include "support/ExpectError.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace kavix {

namespace {

using namespace std::string_literals;

constexpr int64_t SMALLEST = std::numeric_limits<int64_t>::min();
constexpr int64_t LARGEST = std::numeric_limits<int64_t>::max();

const DictionaryDatatypeFactory& factory = s_NumericDatatypeFactory;

/// Keeps every write apart.
class WritesRecorder : public OutputStream {

public:

    void flush() override { }

    void write(const void* data, size_t numberOfBytes) override {
        m_writes.emplace_back(static_cast<const char*>(data), numberOfBytes);
    }

    std::string getText() const {
        std::string text;
        for (const std::string& write : m_writes)
            text += write;
        return text;
    }

    std::vector<std::string> m_writes;
};

ResourceValue makeInteger(uint8_t datatypeID, int64_t integer) {
    ResourceValue value;
    value.setBinaryValue(datatypeID, integer);
    return value;
}

ResourceValue makeDecimal(const std::string& text) {
    ResourceValue value;
    value.setBinaryValue(D_XSD_DECIMAL, XSDDecimal(text.data(), text.size()));
    return value;
}

// The lexical form where it is: the text must outlive the value.
ResourceValue makeLexicalForm(const std::string& text) {
    ResourceValue value;
    value.data = reinterpret_cast<const uint8_t*>(text.c_str());
    value.dataSize = text.size() + 1;
    return value;
}

// The lexical form in the buffer of the value itself.
ResourceValue makeLexicalFormInBuffer(const std::string& text) {
    ResourceValue value;
    value.data = value.buffer;
    value.dataSize = text.size() + 1;
    std::memcpy(value.buffer, text.c_str(), text.size() + 1);
    return value;
}

std::string getLexicalForm(const ResourceValue& value) {
    std::string text = "x";
    factory.appendLexicalForm(value.datatypeID, value.data, value.dataSize, nullptr, 0, text);
    EXPECT_EQ(text[0], 'x');
    WritesRecorder output;
    factory.printLexicalForm(value.datatypeID, value.data, value.dataSize, nullptr, 0, output);
    EXPECT_EQ(output.m_writes, std::vector<std::string>{text.substr(1)});
    return text.substr(1);
}

std::string getTurtleLiteral(const ResourceValue& value, const Prefixes& prefixes) {
    std::string text = "x";
    factory.appendTurtleLiteral(value.datatypeID, value.data, value.dataSize, nullptr, 0, prefixes, text);
    EXPECT_EQ(text[0], 'x');
    WritesRecorder output;
    factory.printTurtleLiteral(value.datatypeID, value.data, value.dataSize, nullptr, 0, prefixes, output);
    EXPECT_EQ(output.getText(), text.substr(1));
    return text.substr(1);
}

// A value as one readable word, with the exact bits where text would hide them.
std::string describe(const ResourceValue& value) {
    EXPECT_EQ(value.data, value.buffer);
    EXPECT_EQ(value.auxiliaryData, nullptr);
    EXPECT_EQ(value.auxiliaryDataSize, 0u);
    const std::string start = std::to_string(value.datatypeID) + ":";
    switch (value.datatypeID) {
    case D_XSD_DOUBLE:
        EXPECT_EQ(value.dataSize, 8u);
        return std::bit_cast<uint64_t>(value.getBinaryValue<double>()) == 0x8000000000000000
                   ? start + "-0"
                   : start + XSDDecimal(static_cast<long>(value.getBinaryValue<double>() * 1000)).toString(false) +
                         "/1000";
    case D_XSD_FLOAT:
        EXPECT_EQ(value.dataSize, 4u);
        return std::bit_cast<uint32_t>(value.getBinaryValue<float>()) == 0x80000000
                   ? start + "-0"
                   : start + XSDDecimal(static_cast<long>(value.getBinaryValue<float>() * 1000)).toString(false) +
                         "/1000";
    case D_XSD_DECIMAL:
        EXPECT_EQ(value.dataSize, 16u);
        return start + value.getBinaryValue<XSDDecimal>().toString(false);
    default:
        EXPECT_EQ(value.dataSize, 8u);
        return start + std::to_string(value.getBinaryValue<int64_t>());
    }
}

std::vector<std::string> getEqualValues(const ResourceValue& value) {
    std::vector<ResourceValue> values;
    EXPECT_TRUE(factory.enumerateEqualResourceValues(value, values));
    std::vector<std::string> descriptions;
    for (const ResourceValue& equalValue : values)
        descriptions.push_back(describe(equalValue));
    return descriptions;
}

// Double, float and decimal of an integer, perhaps the negative zeros, and the integer datatypes that hold it.
std::vector<std::string> expectedValues(int64_t integer, const std::vector<int>& datatypeIDs) {
    const std::string text = std::to_string(integer);
    const std::string thousandths = std::to_string(integer * 1000) + "/1000";
    std::vector<std::string> descriptions{"20:" + thousandths, "21:" + thousandths, "22:" + text};
    if (integer == 0) {
        descriptions.push_back("20:-0");
        descriptions.push_back("21:-0");
    }
    for (const int datatypeID : datatypeIDs)
        descriptions.push_back(std::to_string(datatypeID) + ":" + text);
    return descriptions;
}

const struct IntegerDatatype {
    uint8_t datatypeID;
    const char* name;
} TYPED_DATATYPES[] = {
    {24, "nonNegativeInteger"},
    {25, "nonPositiveInteger"},
    {26, "negativeInteger"},
    {27, "positiveInteger"},
    {28, "long"},
    {29, "int"},
    {30, "short"},
    {31, "byte"},
    {32, "unsignedLong"},
    {33, "unsignedInt"},
    {34, "unsignedShort"},
    {35, "unsignedByte"}};

}

TEST(NumericDatatypeFactory, FourteenDatatypesAreServedInTheOrderOfTheirIDs) {
    const DictionaryDatatypeFactory::DatatypeIDsAndIRIs expected{
        {22, XSD_DECIMAL},
        {23, XSD_INTEGER},
        {24, XSD_NON_NEGATIVE_INTEGER},
        {25, XSD_NON_POSITIVE_INTEGER},
        {26, XSD_NEGATIVE_INTEGER},
        {27, XSD_POSITIVE_INTEGER},
        {28, XSD_LONG},
        {29, XSD_INT},
        {30, XSD_SHORT},
        {31, XSD_BYTE},
        {32, XSD_UNSIGNED_LONG},
        {33, XSD_UNSIGNED_INT},
        {34, XSD_UNSIGNED_SHORT},
        {35, XSD_UNSIGNED_BYTE}};
    EXPECT_EQ(factory.getDatatypeIDsAndIRIs(), expected);
}

TEST(NumericDatatypeFactory, ParsedValuesAreInTheOwnBufferUnderTheRequestedDatatype) {
    ResourceValue value;
    value.auxiliaryData = reinterpret_cast<const uint8_t*>("x");
    value.auxiliaryDataSize = 1;
    factory.parseResourceValue(value, "127", 3, D_XSD_BYTE);
    EXPECT_EQ(value.datatypeID, 31);
    EXPECT_EQ(describe(value), "31:127");

    factory.parseResourceValue(value, "4294967295", 10, D_XSD_UNSIGNED_INT);
    EXPECT_EQ(describe(value), "33:4294967295");

    factory.parseResourceValue(value, "1.50", 4, D_XSD_DECIMAL);
    EXPECT_EQ(describe(value), "22:1.5");
}

TEST(NumericDatatypeFactory, AnIntegerThatCannotBeParsedLeavesTheValueUnchanged) {
    for (const std::string text : {"128", "abc"}) {
        ResourceValue value = makeInteger(D_XSD_LONG, 42);
        EXPECT_THROW(factory.parseResourceValue(value, text.data(), text.size(), D_XSD_BYTE), KavixException);
        EXPECT_EQ(describe(value), "28:42");
    }
    ResourceValue value;
    test::expectError(
        "Engine/core/data-store/dictionary/NumericDatatype", 78,
        "Value '128' is not in the range of datatype xsd:byte.",
        [&] { factory.parseResourceValue(value, "128", 3, D_XSD_BYTE); });
}

TEST(NumericDatatypeFactory, ADecimalThatCannotBeParsedLeavesTheFieldsOfADecimal) {
    ResourceValue value = makeInteger(D_XSD_LONG, 42);
    test::expectError(
        "Engine/core/data-store/dictionary/XSDDecimal", 58, "Lexical form 'abc' is invalid for datatype xsd:decimal.",
        [&] { factory.parseResourceValue(value, "abc", 3, D_XSD_DECIMAL); });
    EXPECT_EQ(value.datatypeID, D_XSD_DECIMAL);
    EXPECT_EQ(value.data, value.buffer);
    EXPECT_EQ(value.dataSize, 16u);
}

TEST(NumericDatatypeFactory, ValuesAreParsedInPlace) {
    const std::string digits = "127";
    for (ResourceValue value : {makeLexicalForm(digits), makeLexicalFormInBuffer(digits)}) {
        factory.inPlaceParseResourceValue(value, D_XSD_BYTE);
        EXPECT_EQ(describe(value), "31:127");
    }
    const std::string decimal = "-12.50000000000";
    for (ResourceValue value : {makeLexicalForm(decimal), makeLexicalFormInBuffer(decimal)}) {
        factory.inPlaceParseResourceValue(value, D_XSD_DECIMAL);
        EXPECT_EQ(describe(value), "22:-12.5");
    }
}

TEST(NumericDatatypeFactory, ParsingInPlaceLeavesOutExactlyTheLastCharacter) {
    ResourceValue value;
    value.data = reinterpret_cast<const uint8_t*>("12345");
    value.dataSize = 4;
    factory.inPlaceParseResourceValue(value, D_XSD_INTEGER);
    EXPECT_EQ(describe(value), "23:123");
}

TEST(NumericDatatypeFactory, AFailureInPlaceLeavesTheLexicalForm) {
    for (const uint8_t datatypeID : {D_XSD_DECIMAL, D_XSD_BYTE})
        for (const std::string text : {"abc", "", "1 2"}) {
            ResourceValue value = makeLexicalFormInBuffer(text);
            value.datatypeID = D_XSD_INT;
            EXPECT_THROW(factory.inPlaceParseResourceValue(value, datatypeID), KavixException);
            EXPECT_EQ(value.datatypeID, D_XSD_INT);
            EXPECT_EQ(value.data, value.buffer);
            EXPECT_EQ(value.dataSize, text.size() + 1);
            EXPECT_EQ(reinterpret_cast<const char*>(value.buffer), text);
        }
    const std::string outOfRange = "128";
    ResourceValue value = makeLexicalForm(outOfRange);
    EXPECT_THROW(factory.inPlaceParseResourceValue(value, D_XSD_BYTE), KavixException);
    EXPECT_EQ(value.dataSize, 4u);
}

TEST(NumericDatatypeFactory, LexicalFormsAreTheSameForAllIntegerDatatypes) {
    for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID) {
        EXPECT_EQ(getLexicalForm(makeInteger(datatypeID, 5)), "5");
        EXPECT_EQ(getLexicalForm(makeInteger(datatypeID, 0)), "0");
        EXPECT_EQ(getLexicalForm(makeInteger(datatypeID, -5)), "-5");
        EXPECT_EQ(getLexicalForm(makeInteger(datatypeID, SMALLEST)), "-9223372036854775808");
        EXPECT_EQ(getLexicalForm(makeInteger(datatypeID, LARGEST)), "9223372036854775807");
    }
    EXPECT_EQ(getLexicalForm(makeDecimal("7.0")), "7");
    EXPECT_EQ(getLexicalForm(makeDecimal("-.9223372036854775808")), "-0.9223372036854775808");
}

TEST(NumericDatatypeFactory, AsMuchOfTheLexicalFormAsFitsIsWrittenWithANul) {
    const ResourceValue values[] = {
        makeInteger(D_XSD_INT, 123456), makeInteger(D_XSD_INTEGER, SMALLEST), makeInteger(D_XSD_BYTE, 0),
        makeDecimal("-0.9223372036854775808"), makeDecimal("2.5")};
    const std::string forms[] = {"123456", "-9223372036854775808", "0", "-0.9223372036854775808", "2.5"};
    for (size_t row = 0; row < std::size(values); ++row)
        for (size_t capacity = 0; capacity <= 30; ++capacity) {
            SCOPED_TRACE(forms[row] + " into " + std::to_string(capacity));
            std::string buffer(40, '#');
            EXPECT_EQ(
                factory.appendLexicalForm(
                    values[row].datatypeID, values[row].data, values[row].dataSize, nullptr, 0, buffer.data(),
                    capacity),
                forms[row].size());
            std::string expected = capacity == 0 ? "" : forms[row].substr(0, capacity - 1) + '\0';
            EXPECT_EQ(buffer.substr(0, expected.size()), expected);
            // Nothing is written outside the capacity.
            EXPECT_EQ(buffer.substr(capacity), std::string(buffer.size() - capacity, '#'));
        }
    EXPECT_EQ(factory.appendLexicalForm(D_XSD_INT, values[0].data, 8, nullptr, 0, nullptr, 0), 6u);
}

TEST(NumericDatatypeFactory, TheSmallestIntegerFitsTwentyOneBytes) {
    const ResourceValue value = makeInteger(D_XSD_INTEGER, SMALLEST);
    char buffer[21];
    EXPECT_EQ(factory.appendLexicalForm(D_XSD_INTEGER, value.data, 8, nullptr, 0, buffer, sizeof(buffer)), 20u);
    EXPECT_STREQ(buffer, "-9223372036854775808");
}

TEST(NumericDatatypeFactory, IntegersAndDecimalsAreBareInTurtle) {
    const Prefixes noPrefixes;
    for (const Prefixes* prefixes : {&noPrefixes, &Prefixes::s_defaultPrefixes}) {
        EXPECT_EQ(getTurtleLiteral(makeInteger(D_XSD_INTEGER, -7), *prefixes), "-7");
        EXPECT_EQ(getTurtleLiteral(makeInteger(D_XSD_INTEGER, SMALLEST), *prefixes), "-9223372036854775808");
        EXPECT_EQ(getTurtleLiteral(makeDecimal("7"), *prefixes), "7.0");
        EXPECT_EQ(getTurtleLiteral(makeDecimal("-2.5"), *prefixes), "-2.5");
        EXPECT_EQ(getTurtleLiteral(makeDecimal("-9223372036854775808"), *prefixes), "-9223372036854775808.0");
    }
    WritesRecorder output;
    const ResourceValue integer = makeInteger(D_XSD_INTEGER, -7);
    factory.printTurtleLiteral(D_XSD_INTEGER, integer.data, 8, nullptr, 0, noPrefixes, output);
    const ResourceValue decimal = makeDecimal("7");
    factory.printTurtleLiteral(D_XSD_DECIMAL, decimal.data, 16, nullptr, 0, noPrefixes, output);
    EXPECT_EQ(output.m_writes, (std::vector<std::string>{"-7", "7.0"}));
}

TEST(NumericDatatypeFactory, OtherDatatypesAreTypedLiteralsInTurtle) {
    const Prefixes noPrefixes;
    for (const auto& [datatypeID, name] : TYPED_DATATYPES) {
        SCOPED_TRACE(name);
        EXPECT_EQ(getTurtleLiteral(makeInteger(datatypeID, -7), Prefixes::s_defaultPrefixes), "\"-7\"^^xsd:"s + name);
        EXPECT_EQ(
            getTurtleLiteral(makeInteger(datatypeID, 5), noPrefixes),
            "\"5\"^^<http://www.w3.org/2001/XMLSchema#"s + name + ">");
        EXPECT_EQ(
            getTurtleLiteral(makeInteger(datatypeID, SMALLEST), Prefixes::s_defaultPrefixes),
            "\"-9223372036854775808\"^^xsd:"s + name);
    }
}

TEST(NumericDatatypeFactory, TheFormOfATypedLiteralIsOneWrite) {
    WritesRecorder output;
    const ResourceValue value = makeInteger(D_XSD_LONG, -7);
    factory.printTurtleLiteral(D_XSD_LONG, value.data, 8, nullptr, 0, Prefixes::s_defaultPrefixes, output);
    ASSERT_GE(output.m_writes.size(), 2u);
    EXPECT_EQ(output.m_writes[0], "\"-7\"^^");
}

TEST(NumericDatatypeFactory, ValuesAreTrueUnlessZero) {
    const auto getEffectiveBooleanValue = [](const ResourceValue& value) {
        return factory.getEffectiveBooleanValue(value.datatypeID, value.data, value.dataSize, nullptr, 0);
    };
    EXPECT_FALSE(getEffectiveBooleanValue(makeInteger(D_XSD_INTEGER, 0)));
    EXPECT_FALSE(getEffectiveBooleanValue(makeDecimal("0")));
    EXPECT_FALSE(getEffectiveBooleanValue(makeDecimal("-0.0")));
    EXPECT_TRUE(getEffectiveBooleanValue(makeInteger(D_XSD_INT, -1)));
    EXPECT_TRUE(getEffectiveBooleanValue(makeDecimal("0.001")));
    EXPECT_TRUE(getEffectiveBooleanValue(makeInteger(D_XSD_LONG, int64_t{1} << 40))); // not in the lower half
    EXPECT_TRUE(getEffectiveBooleanValue(makeInteger(D_XSD_LONG, SMALLEST)));
}

TEST(NumericDatatypeFactory, EqualValuesOfAnIntegerAreThoseOfTheDatatypesThatHoldIt) {
    for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID) {
        EXPECT_EQ(
            getEqualValues(makeInteger(datatypeID, 0)),
            expectedValues(0, {23, 24, 25, 28, 29, 30, 31, 32, 33, 34, 35}));
        EXPECT_EQ(getEqualValues(makeInteger(datatypeID, 0)).size(), 16u);
        EXPECT_EQ(getEqualValues(makeInteger(datatypeID, -1)), expectedValues(-1, {23, 25, 26, 28, 29, 30, 31}));
        EXPECT_EQ(
            getEqualValues(makeInteger(datatypeID, 200)),
            expectedValues(200, {23, 24, 27, 28, 29, 30, 32, 33, 34, 35}));
        EXPECT_EQ(
            getEqualValues(makeInteger(datatypeID, 127)),
            expectedValues(127, {23, 24, 27, 28, 29, 30, 31, 32, 33, 34, 35}));
        EXPECT_EQ(
            getEqualValues(makeInteger(datatypeID, 4294967296)), expectedValues(4294967296, {23, 24, 27, 28, 32}));
    }
}

TEST(NumericDatatypeFactory, EqualValuesOfADecimalIncludeItself) {
    EXPECT_EQ(getEqualValues(makeDecimal("2.5")), (std::vector<std::string>{"20:2500/1000", "21:2500/1000", "22:2.5"}));
    EXPECT_EQ(getEqualValues(makeDecimal("7")), expectedValues(7, {23, 24, 27, 28, 29, 30, 31, 32, 33, 34, 35}));
    EXPECT_EQ(getEqualValues(makeDecimal("0")), expectedValues(0, {23, 24, 25, 28, 29, 30, 31, 32, 33, 34, 35}));
    EXPECT_EQ(getEqualValues(makeDecimal("-200")), expectedValues(-200, {23, 25, 26, 28, 29, 30}));
}

TEST(NumericDatatypeFactory, EqualValuesOfLargeIntegersAreRoundedOnce) {
    std::vector<ResourceValue> values;
    // Just above the middle of two floats: by way of double it would go to the wrong one.
    factory.enumerateEqualResourceValues(makeInteger(D_XSD_LONG, 36028799166447617), values);
    EXPECT_EQ(values[0].getBinaryValue<double>(), 36028799166447616.0);
    EXPECT_EQ(values[1].getBinaryValue<float>(), 36028801313931264.0f);
    values.clear();
    factory.enumerateEqualResourceValues(makeInteger(D_XSD_LONG, SMALLEST), values);
    EXPECT_EQ(values[0].getBinaryValue<double>(), -9223372036854775808.0);
    EXPECT_EQ(values[2].getBinaryValue<XSDDecimal>(), XSDDecimal(SMALLEST));
}

TEST(NumericDatatypeFactory, EqualValuesAreAppendedToWhatIsThere) {
    std::vector<ResourceValue> values{makeInteger(D_XSD_INT, 99)};
    factory.enumerateEqualResourceValues(makeDecimal("2.5"), values);
    ASSERT_EQ(values.size(), 4u);
    EXPECT_EQ(describe(values[0]), "29:99");
    EXPECT_EQ(describe(values[3]), "22:2.5");
}

TEST(NumericDatatypeFactory, TheValueMayBeAnElementOfTheVectorThatGrows) {
    for (const ResourceValue& value :
         {makeInteger(D_XSD_INT, 7), makeInteger(D_XSD_BYTE, 0), makeDecimal("7"), makeDecimal("2.5")}) {
        std::vector<ResourceValue> values{value};
        values.shrink_to_fit();
        factory.enumerateEqualResourceValues(values[0], values);
        std::vector<std::string> descriptions;
        for (size_t index = 1; index < values.size(); ++index)
            descriptions.push_back(describe(values[index]));
        EXPECT_EQ(descriptions, getEqualValues(value));
    }
}

}
