#include "core/data-store/dictionary/ResourceValue.h"

#include "core/data-store/dictionary/DatatypeIDs.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace kavix {

TEST(ResourceValue, ADefaultConstructedValueIsAllZeroes) {
    const ResourceValue value;
    EXPECT_EQ(value.datatypeID, 0);
    EXPECT_EQ(value.data, nullptr);
    EXPECT_EQ(value.dataSize, 0u);
    EXPECT_EQ(value.auxiliaryData, nullptr);
    EXPECT_EQ(value.auxiliaryDataSize, 0u);
    for (const uint8_t byte : value.buffer)
        EXPECT_EQ(byte, 0);
}

TEST(ResourceValue, ABinaryValueIsInTheOwnBuffer) {
    const uint8_t foreignData[] = "12";
    ResourceValue value;
    value.datatypeID = D_XSD_BYTE;
    value.data = foreignData;
    value.dataSize = sizeof(foreignData);
    value.auxiliaryData = foreignData;
    value.auxiliaryDataSize = 1;

    value.setBinaryValue(D_XSD_INTEGER, int64_t{-12});

    EXPECT_EQ(value.datatypeID, D_XSD_INTEGER);
    EXPECT_EQ(value.data, value.buffer);
    EXPECT_EQ(value.dataSize, 8u);
    EXPECT_EQ(value.auxiliaryData, nullptr);
    EXPECT_EQ(value.auxiliaryDataSize, 0u);
    EXPECT_EQ(value.getBinaryValue<int64_t>(), -12);
}

TEST(ResourceValue, ValuesAreReadFromAnyAddress) {
    uint8_t bytes[9] = {};
    const int64_t integer = -1234567890123;
    std::memcpy(bytes + 1, &integer, sizeof(integer));
    ResourceValue value;
    value.data = bytes + 1;
    value.dataSize = sizeof(integer);
    EXPECT_EQ(value.getBinaryValue<int64_t>(), integer);
}

TEST(ResourceValue, CopiesPointIntoTheirOwnBuffer) {
    ResourceValue original;
    original.setBinaryValue(D_XSD_INT, int64_t{5});
    ResourceValue copy(original);
    ResourceValue assigned;
    assigned = original;
    ResourceValue moved(std::move(original));
    original.setBinaryValue(D_XSD_INT, int64_t{6});

    for (const ResourceValue* value : {&copy, &assigned, &moved}) {
        EXPECT_EQ(value->data, value->buffer);
        EXPECT_EQ(value->datatypeID, D_XSD_INT);
        EXPECT_EQ(value->dataSize, 8u);
        EXPECT_EQ(value->getBinaryValue<int64_t>(), 5);
    }
}

TEST(ResourceValue, CopiesShareDataThatTheyDoNotOwn) {
    const uint8_t foreignData[] = "12";
    const uint8_t auxiliaryData[] = "x";
    ResourceValue original;
    original.datatypeID = D_XSD_BYTE;
    original.data = foreignData;
    original.dataSize = sizeof(foreignData);
    original.auxiliaryData = auxiliaryData;
    original.auxiliaryDataSize = sizeof(auxiliaryData);
    const ResourceValue copy(original);
    EXPECT_EQ(copy.data, foreignData);
    EXPECT_EQ(copy.dataSize, sizeof(foreignData));
    EXPECT_EQ(copy.auxiliaryData, auxiliaryData);
    EXPECT_EQ(copy.auxiliaryDataSize, sizeof(auxiliaryData));
}

TEST(ResourceValue, AssigningAValueToItselfChangesNothing) {
    ResourceValue value;
    value.setBinaryValue(D_XSD_LONG, int64_t{77});
    const ResourceValue& alias = value;
    value = alias;
    EXPECT_EQ(value.data, value.buffer);
    EXPECT_EQ(value.getBinaryValue<int64_t>(), 77);
}

TEST(ResourceValue, ElementsOfAGrowingVectorKeepPointingAtThemselves) {
    std::vector<ResourceValue> values;
    for (int64_t number = 0; number < 100; ++number)
        values.emplace_back().setBinaryValue(D_XSD_INTEGER, number);
    for (size_t index = 0; index < values.size(); ++index) {
        ASSERT_EQ(values[index].data, values[index].buffer);
        ASSERT_EQ(values[index].getBinaryValue<int64_t>(), static_cast<int64_t>(index));
    }
}

TEST(ResourceValue, CopyingCannotFail) {
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<ResourceValue>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<ResourceValue>);
    EXPECT_TRUE(std::is_nothrow_copy_assignable_v<ResourceValue>);
}

}
