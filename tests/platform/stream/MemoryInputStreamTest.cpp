#include "core/platform/stream/MemoryInputStream.h"

#include <gtest/gtest.h>

#include <string_view>

namespace kavix {

namespace {

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

TEST(MemoryInputStream, MayBeEmpty) {
    MemoryInputStream input(nullptr, 0);
    char byte;

    EXPECT_EQ(input.read(&byte, 1), 0u);
    EXPECT_EQ(input.read(nullptr, 0), 0u);
}

}

}
