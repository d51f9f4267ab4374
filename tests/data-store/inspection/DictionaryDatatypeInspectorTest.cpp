#include "core/data-store/inspection/DictionaryDatatypeInspector.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/inspection/NumericDatatypeInspector.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "support/ExpectError.h"

#include <gtest/gtest.h>

#include <limits>
#include <span>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

void expectInvalid(const ResourceValue& value, const std::string& reason) {
    SCOPED_TRACE(reason);
    expectError(
        "Engine/core/data-store/dictionary/Dictionary", 60,
        "The binary value of the datatype with ID " + std::to_string(value.datatypeID) + " is invalid: " + reason + ".",
        [&] { s_NumericDatatypeInspector.checkBinaryValue(value); });
    ResourceValue valid;
    valid.setBinaryValue(D_XSD_BYTE, int64_t(-128));
    const ResourceValue values[] = {valid, valid, value, valid};
    const DictionaryDatatypeInspector& inspector = s_NumericDatatypeInspector;
    EXPECT_EQ(inspector.countValidBinaryValues(values), 2u);
    EXPECT_EQ(inspector.countValidBinaryValues(std::span(values).first(2)), 2u);
    EXPECT_EQ(inspector.countValidBinaryValues(std::span(values).subspan(2)), 0u);
    EXPECT_EQ(inspector.countValidBinaryValues({}), 0u);
}

TEST(DictionaryDatatypeInspector, IntegersMustBeInTheRangeOfTheirDatatype) {
    for (const IntegerDatatypeInfo& info : s_integerDatatypeInfos) {
        ResourceValue value;
        for (const int64_t bound : {info.minimum, info.maximum}) {
            value.setBinaryValue(info.datatypeID, bound);
            EXPECT_NO_THROW(s_NumericDatatypeInspector.checkBinaryValue(value));
        }
        if (info.minimum != std::numeric_limits<int64_t>::min()) {
            value.setBinaryValue(info.datatypeID, info.minimum - 1);
            expectInvalid(
                value, "the value " + std::to_string(info.minimum - 1) + " is not in the range of the datatype");
        }
        if (info.maximum != std::numeric_limits<int64_t>::max()) {
            value.setBinaryValue(info.datatypeID, info.maximum + 1);
            expectInvalid(
                value, "the value " + std::to_string(info.maximum + 1) + " is not in the range of the datatype");
        }
    }
}

TEST(DictionaryDatatypeInspector, DecimalsMustBeNormalised) {
    const struct {
        int64_t unscaledValue;
        uint8_t fractionDigits;
        bool isValid;
    } rows[] = {
        {0, 0, true},  {10, 0, true},  {-1, 19, true},  {15, 1, true},  {std::numeric_limits<int64_t>::min(), 19, true},
        {0, 1, false}, {10, 1, false}, {-20, 3, false}, {1, 20, false}, {1, 255, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.unscaledValue) + " and " + std::to_string(row.fractionDigits));
        ResourceValue value;
        value.setBinaryValue(D_XSD_DECIMAL, XSDDecimal::fromNormalisedFields(row.unscaledValue, row.fractionDigits));
        if (row.isValid)
            EXPECT_NO_THROW(s_NumericDatatypeInspector.checkBinaryValue(value));
        else
            expectInvalid(value, "the decimal is not normalised, or has more than 19 fraction digits");
    }
}

TEST(DictionaryDatatypeInspector, SizesMustBeThoseOfTheDatatype) {
    for (const uint64_t size : {0u, 1u, 4u, 7u, 8u, 9u, 15u, 16u, 17u}) {
        ResourceValue value;
        value.setBinaryForm(D_XSD_INT, size);
        if (size != 8)
            expectInvalid(value, "it has " + std::to_string(size) + " bytes instead of 8");
        value.setBinaryForm(D_XSD_DECIMAL, size);
        if (size != 16)
            expectInvalid(value, "it has " + std::to_string(size) + " bytes instead of 16");
    }
}

TEST(DictionaryDatatypeInspector, AValueMustHaveData) {
    for (const uint64_t size : {0u, 8u}) {
        ResourceValue value;
        value.datatypeID = D_XSD_INT;
        value.dataSize = size;
        expectInvalid(value, "it has no data");
    }
}

}

}
