#include "core/platform/stream/MemoryOutputStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace kavix {

namespace {

using namespace std::string_literals;

TEST(MemoryOutputStream, KeepsTheBytesInTheOrderOfTheWrites) {
    MemoryOutputStream output;
    EXPECT_EQ(output.getSize(), 0u);

    const uint64_t number = 0x0102030405060708;
    output.write("ab\0c", 4);
    output.write(nullptr, 0);
    output.write(&number, sizeof(number));
    output.flush();

    ASSERT_EQ(output.getSize(), 12u);
    EXPECT_EQ(output.getContent().substr(0, 4), "ab\0c"s);
    EXPECT_EQ(std::memcmp(output.getData() + 4, &number, sizeof(number)), 0);
}

TEST(MemoryOutputStream, CanWriteItsOwnContentAgain) {
    MemoryOutputStream output;
    output.write("0123456789", 10);
    for (int round = 0; round != 5; ++round)
        output.write(output.getData(), output.getSize());

    ASSERT_EQ(output.getSize(), 320u);
    for (size_t position = 0; position != output.getSize(); ++position)
        ASSERT_EQ(output.getData()[position], '0' + position % 10) << position;
}

TEST(MemoryOutputStream, IsEmptyAfterHandingOverOrClearing) {
    MemoryOutputStream output;
    output.write("abc", 3);
    EXPECT_EQ(output.takeContent(), "abc");
    EXPECT_EQ(output.getSize(), 0u);

    output.write("de", 2);
    EXPECT_EQ(output.getContent(), "de");
    output.clear();
    EXPECT_EQ(output.getContent(), "");
}

}

}
