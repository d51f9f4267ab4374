#include "numdict/input/ByteSource.h"

#include "numdict/ProgramRunner.h"
#include "numdict/console/Failures.h"
#include "numdict/input/ReadingSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>

using namespace kavix::numdict;

TEST(ByteSource, GzipIsDecompressedByContentWithAnyNumberOfMembers) {
    const std::string compressedTwice = gzip("one\n") + gzip("") + gzip("two\n");
    const struct {
        const char* name;
        std::string content;
        std::string expected;
        std::string failure;
    } rows[] = {
        {"empty", "", "", ""},
        {"one byte", "x", "x", ""},
        {"plain", "a plain file\n", "a plain file\n", ""},
        {"only half of the magic", "\x1f", "\x1f", ""},
        {"one member", gzip("one\ntwo\n"), "one\ntwo\n", ""},
        {"three members", compressedTwice, "one\ntwo\n", ""},
        {"zero padding", compressedTwice + std::string(600, '\0'), "one\ntwo\n", ""},
        {"cut off in the header", gzip("one\n").substr(0, 6), "", "cut off"},
        {"cut off in the checksum", gzip("one\n").substr(0, gzip("one\n").size() - 3), "one\n", "cut off"},
        {"second member cut off", gzip("one\n") + gzip("two\n").substr(0, 5), "one\n", "cut off"},
        {"damaged checksum", gzip("one\n").substr(0, gzip("one\n").size() - 8) + std::string(8, 'x'), "", "damaged"},
        {"garbage after it", gzip("one\n") + "garbage", "one\n", "damaged"},
    };
    TemporaryDirectory directory;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string failure;
        EXPECT_EQ(readAll(directory.write("file", row.content), failure), row.expected);
        EXPECT_EQ(failure.find(row.failure) != std::string::npos, true) << failure;
        EXPECT_EQ(failure.empty(), row.failure.empty()) << failure;
    }
}

TEST(ByteSource, AFileThatCannotBeOpenedIsAnInputFailure) {
    std::atomic<uint64_t> bytesRead{0};
    EXPECT_THROW(ByteSource("/nonexistent/file.nt", bytesRead), InputFailure);
}
