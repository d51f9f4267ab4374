// Skipping: the position moves as if the bytes had been read.

#include "core/platform/stream/InputStream.h"

#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/FileInputStream.h"
#include "core/platform/stream/MemoryInputStream.h"
#include "support/ExpectError.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace kavix {

namespace {

constexpr size_t SIZE = 300'000; // several buffers

std::string makeBytes() {
    std::string bytes(SIZE, '\0');
    for (size_t i = 0; i < SIZE; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

/// Skips from a position that reading a few bytes left, and reads on.
void expectSkips(InputStream& input, const std::string& bytes) {
    for (const size_t readBefore : {0u, 1u, 100u, 65535u, 65536u, 70000u})
        for (const uint64_t skipped :
             {0u, 1u, 4095u, 4096u, 65435u, 65436u, 65535u, 65536u, 65537u, 131072u, 229999u}) {
            SCOPED_TRACE(std::to_string(readBefore) + " read, " + std::to_string(skipped) + " skipped");
            input.rewind();
            std::string before(readBefore, '\0');
            readExactly(input, before.data(), readBefore);
            input.skip(skipped);
            char after[10];
            const size_t position = readBefore + skipped;
            const size_t length = std::min<size_t>(sizeof(after), SIZE - position);
            readExactly(input, after, length);
            EXPECT_EQ(std::string(after, length), bytes.substr(position, length));
        }
    input.rewind();
    input.skip(SIZE);
    char byte;
    EXPECT_EQ(input.read(&byte, 1), 0u) << "the end";
}

/// The error may come with the skip or with the next read.
void expectPrematureEnd(InputStream& input) {
    for (const uint64_t skipped :
         {uint64_t(SIZE + 1), uint64_t(1) << 40, uint64_t(std::numeric_limits<int64_t>::max()),
          uint64_t(std::numeric_limits<int64_t>::max()) + 1, UINT64_MAX}) {
        SCOPED_TRACE(skipped);
        input.rewind();
        char byte;
        readExactly(input, &byte, 1);
        test::expectError("Engine/core/platform/stream/InputStream", 23, "Premature end of file.", [&] {
            input.skip(skipped);
            readExactly(input, &byte, 1);
        });
    }
    input.rewind();
    char byte;
    EXPECT_EQ(input.read(&byte, 1), 1u) << "usable again";
}

}

TEST(InputStreamSkip, MemoryStreamsSkip) {
    const std::string bytes = makeBytes();
    MemoryInputStream input(bytes);
    expectSkips(input, bytes);
    expectPrematureEnd(input);
}

TEST(InputStreamSkip, FilesSkip) {
    const test::TemporaryFolder folder;
    const std::string bytes = makeBytes();
    test::writeFile(folder / "file", bytes);
    FileInputStream input(folder / "file");
    expectSkips(input, bytes);
    expectPrematureEnd(input);
}

TEST(InputStreamSkip, PipesSkipByReading) {
    const test::TemporaryFolder folder;
    const std::string bytes = makeBytes();
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::thread writer([&] { test::writeFile(folder / "pipe", bytes); });
    FileInputStream input(folder / "pipe");
    char byte;
    readExactly(input, &byte, 1);
    input.skip(200'000);
    readExactly(input, &byte, 1);
    EXPECT_EQ(byte, bytes[200'001]);
    EXPECT_THROW(input.skip(SIZE), KavixException);
    writer.join();
}

}
