#include "core/platform/stream/InputStream.h"

#include "core/platform/errors/KavixException.h"
#include "support/ShortReadInputStream.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace kavix {

using test::ShortReadInputStream;

namespace {

constexpr std::string_view CONTENT = "the bytes of a source that hands them out in small pieces";

TEST(InputStream, ReadingExactlyJoinsShortReads) {
    for (size_t maximumBytesPerRead = 1; maximumBytesPerRead <= CONTENT.size() + 1; ++maximumBytesPerRead) {
        SCOPED_TRACE(maximumBytesPerRead);
        ShortReadInputStream input(CONTENT, maximumBytesPerRead);
        std::string data(CONTENT.size() + 1, '#');

        readExactly(input, data.data(), CONTENT.size());

        EXPECT_EQ(data, std::string(CONTENT) + "#");
        EXPECT_EQ(input.getNumberOfReads(), (CONTENT.size() + maximumBytesPerRead - 1) / maximumBytesPerRead);
    }
}

TEST(InputStream, ReadingExactlyLeavesTheRestInTheStream) {
    ShortReadInputStream input(CONTENT, 2);
    char data[4] = {};
    readExactly(input, data, 3);
    EXPECT_STREQ(data, "the");

    readExactly(input, data, 3);
    EXPECT_STREQ(data, " by");
}

TEST(InputStream, ReadingExactlyNothingDoesNotTouchTheStream) {
    ShortReadInputStream input("", 1);
    readExactly(input, nullptr, 0);

    EXPECT_EQ(input.getNumberOfReads(), 0u);
}

TEST(InputStream, AnEndBeforeTheLastByteIsPremature) {
    for (size_t missingBytes = 1; missingBytes <= CONTENT.size(); ++missingBytes) {
        SCOPED_TRACE(missingBytes);
        ShortReadInputStream input(CONTENT.substr(missingBytes), 5);
        std::string data(CONTENT.size(), '\0');
        try {
            readExactly(input, data.data(), data.size());
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const KavixException& exception) {
            EXPECT_STREQ(exception.what(), "Premature end of file.");
            EXPECT_EQ(exception.getSourceFile(), "Engine/core/platform/stream/InputStream");
            EXPECT_EQ(exception.getLine(), 23);
        }
    }
}

}
}
