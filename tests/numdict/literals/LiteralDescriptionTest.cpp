#include "numdict/literals/LiteralDescription.h"

#include <gtest/gtest.h>

using namespace kavix::numdict;

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
