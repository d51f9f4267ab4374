#include "numdict/literals/LiteralDescription.h"

#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "numdict/literals/Datatypes.h"
#include "numdict/literals/TurtleLiteral.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <regex>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

using namespace kavix;
using namespace kavix::numdict;

namespace {

template<typename T>
constexpr uint8_t DATATYPE_ID = std::is_same_v<T, double> ? D_XSD_DOUBLE : D_XSD_FLOAT;

template<typename T>
std::string format(T number) {
    ResourceValue value;
    value.setBinaryValue(DATATYPE_ID<T>, number);
    return formatTurtleLiteral(value);
}

template<typename T>
T read(const std::string& literal) {
    const std::string text = literal.substr(1, literal.find('"', 1) - 1);
    if constexpr (std::is_same_v<T, double>)
        return std::strtod(text.c_str(), nullptr);
    else
        return std::strtof(text.c_str(), nullptr);
}

/// The text has the canonical form and reads back to the same bits.
template<typename T>
void expectRoundTrip(T number) {
    static const std::regex FORM(R"FORM("-?[0-9]\.([0-9]*[1-9]|0)E(0|-?[1-9][0-9]*)"\^\^xsd:(double|float))FORM");
    const std::string literal = format(number);
    EXPECT_TRUE(std::regex_match(literal, FORM)) << literal;
    using Bits = std::conditional_t<std::is_same_v<T, double>, uint64_t, uint32_t>;
    EXPECT_EQ(std::bit_cast<Bits>(read<T>(literal)), std::bit_cast<Bits>(number)) << literal;
}

template<typename T>
void expectRoundTripsOfBoundaries() {
    using Limits = std::numeric_limits<T>;
    for (const T number :
         {T(0), T(1), T(10), T(0.1), T(1) / T(3), T(2.5), T(1e21), T(123456789), T(16777217), T(9007199254740993),
          Limits::min(), Limits::max(), Limits::denorm_min(), Limits::epsilon(), T(-0x1p63), T(0x1p63)})
        for (const T sign : {T(1), T(-1)})
            for (const T neighbour : {-Limits::infinity(), T(0), Limits::infinity()})
                if (const T near = std::isfinite(neighbour) ? number * sign : std::nextafter(number * sign, neighbour);
                    std::isfinite(near))
                    expectRoundTrip(near);
}

}

TEST(LiteralDescription, ReasonsAreToldApart) {
    const struct {
        const char* text;
        bool isValid;
        const char* turtleOrReason;
    } rows[] = {
        {"\"+007\"^^xsd:short", true, "\"7\"^^xsd:short"},
        {"5.00", true, "5.0"},
        {"-0", true, "0"},
        {"\" 5\"^^xsd:int", false, "malformed"},
        {"\"5\\u0000\"^^xsd:int", false, "malformed"},
        {"\"128\"^^xsd:byte", false, "outOfRange"},
        {"\"-1\"^^xsd:unsignedLong", false, "outOfRange"},
        {"99999999999999999999", false, "beyondCapacity"},
        {"\"9223372036854775808\"^^xsd:long", false, "outOfRange"},
        {"\"9223372036854775808\"^^xsd:unsignedLong", false, "beyondCapacity"},
        {"0.12345678901234567891", false, "beyondCapacity"},
        {"5e0", false, "notNumeric"},
        {"\"5\"", false, "notNumeric"},
        {"\"5", false, "syntax"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const LiteralDescription description = describeLiteral(row.text);
        EXPECT_EQ(description.m_isValid, row.isValid);
        EXPECT_EQ(row.isValid ? description.m_turtle : description.m_reason, row.turtleOrReason);
        EXPECT_EQ(description.m_message.empty(), row.isValid);
    }
}

TEST(LiteralDescription, FloatingPointNumbersHaveTheCanonicalForm) {
    const struct {
        double number;
        const char* asDouble;
        const char* asFloat;
    } rows[] = {
        {0.0, "0.0E0", "0.0E0"},
        {-0.0, "-0.0E0", "-0.0E0"},
        {1, "1.0E0", "1.0E0"},
        {-2.5, "-2.5E0", "-2.5E0"},
        {0.001, "1.0E-3", "1.0E-3"},
        {1e21, "1.0E21", "1.0E21"},
        {1e-10, "1.0E-10", "1.0E-10"},
        {123456789, "1.23456789E8", "1.2345679E8"},
        {16777216, "1.6777216E7", "1.6777216E7"},
        {0.1, "1.0E-1", "1.0E-1"},
        {INFINITY, "INF", "INF"},
        {-INFINITY, "-INF", "-INF"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.asDouble);
        EXPECT_EQ(format(row.number), '"' + std::string(row.asDouble) + "\"^^xsd:double");
        EXPECT_EQ(format(static_cast<float>(row.number)), '"' + std::string(row.asFloat) + "\"^^xsd:float");
    }
}

TEST(LiteralDescription, FloatingPointNumbersReadBackToTheSameValue) {
    expectRoundTripsOfBoundaries<double>();
    expectRoundTripsOfBoundaries<float>();
    std::mt19937_64 random(20240607);
    for (int round = 0; round < 20000; ++round) {
        const auto number = std::bit_cast<double>(random());
        const auto smallNumber = std::bit_cast<float>(static_cast<uint32_t>(random()));
        if (std::isfinite(number))
            expectRoundTrip(number);
        if (std::isfinite(smallNumber))
            expectRoundTrip(smallNumber);
    }
}

TEST(LiteralDescription, EqualValuesOfRandomNumbersReadBack) {
    std::mt19937_64 random(7);
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS)
        for (int round = 0; round < 500; ++round) {
            // Shifted, so that there are as many short numbers as long ones.
            std::string form = std::to_string(static_cast<int64_t>(random()) >> (random() % 64));
            if (datatypeID == D_XSD_DECIMAL)
                form += '.' + std::to_string(random() % 100000);
            const LiteralDescription description = describeLiteral('"' + form + "\"^^" + getDatatypeName(datatypeID));
            if (!description.m_isValid)
                continue;
            std::vector<ResourceValue> values;
            s_NumericDatatypeFactory.enumerateEqualResourceValues(description.m_value, values);
            for (const ResourceValue& value : values) {
                SCOPED_TRACE(form);
                if (value.datatypeID == D_XSD_DOUBLE)
                    expectRoundTrip(value.getBinaryValue<double>());
                else if (value.datatypeID == D_XSD_FLOAT)
                    expectRoundTrip(value.getBinaryValue<float>());
                else
                    EXPECT_TRUE(describeLiteral(formatTurtleLiteral(value)).m_isValid);
            }
        }
}

TEST(LiteralDescription, ACanonicalTurtleFormIsTheOneThatIsPrinted) {
    const struct {
        uint8_t datatypeID;
        const char* form;
        bool isCanonical;
    } rows[] = {
        {D_XSD_DECIMAL, "6.0", true},   {D_XSD_DECIMAL, "6", false},    {D_XSD_DECIMAL, "6.", false},
        {D_XSD_DECIMAL, "6.00", false}, {D_XSD_DECIMAL, "+6.0", false}, {D_XSD_DECIMAL, "06.0", false},
        {D_XSD_DECIMAL, "0.0", true},   {D_XSD_DECIMAL, "-0.0", false}, {D_XSD_DECIMAL, ".0", false},
        {D_XSD_DECIMAL, "0", false},    {D_XSD_DECIMAL, "-10.0", true}, {D_XSD_DECIMAL, "10", false},
        {D_XSD_DECIMAL, "1.5", true},   {D_XSD_DECIMAL, "1.50", false}, {D_XSD_DECIMAL, "10.05", true},
        {D_XSD_DECIMAL, "-.5", false},  {D_XSD_DECIMAL, "-0.5", true},  {D_XSD_DECIMAL, "100.0", true},
        {D_XSD_INTEGER, "6", true},     {D_XSD_INTEGER, "+6", false},   {D_XSD_INTEGER, "-0", false},
        {D_XSD_BYTE, "100", true},      {D_XSD_BYTE, "007", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.form);
        EXPECT_EQ(isCanonicalTurtleForm(row.datatypeID, row.form), row.isCanonical);
    }
}

TEST(LiteralDescription, RandomFormsAreCanonicalIfTheyAreWhatIsPrinted) {
    std::mt19937_64 random(11);
    int numberOfCanonical[2] = {0, 0};
    for (int round = 0; round < 100000; ++round) {
        std::string form;
        for (uint64_t length = 1 + random() % 6; length != 0; --length)
            form += "0015+-.."[random() % 8];
        const uint8_t datatypeID = random() % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INTEGER;
        const LiteralDescription description = describeLiteral('"' + form + "\"^^" + getDatatypeName(datatypeID));
        if (!description.m_isValid)
            continue;
        const auto printed = parseTurtleLiteral(description.m_turtle);
        const bool isCanonical = std::get<TurtleLiteral>(printed).m_lexicalForm == form;
        EXPECT_EQ(isCanonicalTurtleForm(datatypeID, form), isCanonical) << form;
        ++numberOfCanonical[isCanonical];
    }
    EXPECT_GT(numberOfCanonical[false], 1000);
    EXPECT_GT(numberOfCanonical[true], 1000);
}
