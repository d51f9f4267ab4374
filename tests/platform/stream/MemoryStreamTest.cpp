#include "core/platform/stream/MemoryInputStream.h"
#include "core/platform/stream/MemoryOutputStream.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

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

TEST(MemoryInputStream, ReturnsWhatIsLeftAndThenTheEnd) {
    struct Row {
        const char* name;
        size_t bytesAskedFor;
        std::string_view expected;
        size_t remainingBytes;
    };
    const Row rows[] = {
        {"some", 3, "abc", 3},    {"none", 0, "", 3}, {"one", 1, "d", 2}, {"more than there are", 100, "ef", 0},
        {"at the end", 1, "", 0},
    };
    MemoryInputStream input("abcdef");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        char buffer[100] = {};
        EXPECT_EQ(input.read(buffer, row.bytesAskedFor), row.expected.size());
        EXPECT_EQ(std::string_view(buffer), row.expected);
        EXPECT_EQ(input.getRemainingBytes(), row.remainingBytes);
    }
}

TEST(MemoryInputStream, StartsAgainAfterRewinding) {
    MemoryInputStream input("abcdef", 6);
    char buffer[7] = {};
    EXPECT_EQ(input.read(buffer, 4), 4u);
    input.rewind();

    EXPECT_EQ(input.read(buffer, 6), 6u);
    EXPECT_STREQ(buffer, "abcdef");
    input.rewind();
    EXPECT_EQ(input.getRemainingBytes(), 6u);
}

TEST(MemoryInputStream, MayHaveNoBytesAtAll) {
    MemoryInputStream input(nullptr, 0);
    char byte;

    EXPECT_EQ(input.read(&byte, 1), 0u);
    EXPECT_EQ(input.read(nullptr, 0), 0u);
}

}
}
