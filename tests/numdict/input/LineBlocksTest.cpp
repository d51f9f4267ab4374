#include "numdict/input/LineBlocks.h"

#include "numdict/ProgramRunner.h"
#include "numdict/input/ReadingSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

using namespace kavix::numdict;

TEST(LineBlocks, LinesStayWholeAndNumberedForEveryBlockSize) {
    std::string content = "\n# comment\n";
    std::string expected;
    for (int number = 3; number <= 60; ++number) {
        content += makeLine(std::string(static_cast<size_t>(number) * 7 % 90, '0') + std::to_string(number));
        expected += std::to_string(number) + " " + std::string(static_cast<size_t>(number) * 7 % 90, '0') +
                    std::to_string(number) + "^^int\n";
    }
    TemporaryDirectory directory;
    const std::string paths[] = {
        directory.write("plain.nt", content), directory.write("compressed.nt", gzip(content)),
        directory.write("unended.nt", content.substr(0, content.size() - 1))};
    for (const std::string& path : paths)
        for (const size_t blockSize : std::initializer_list<size_t>{1, 2, 16, 64, 100, 4096, 1 << 20}) {
            SCOPED_TRACE(path + " in blocks of " + std::to_string(blockSize));
            RecordingSink sink;
            EXPECT_EQ(readLines(path, RDFFormat::N_TRIPLES, blockSize, sink), expected);
        }
}

// Line ends are counted in pieces of a fixed length.
TEST(LineBlocks, ManyLineEndsInARowAreCounted) {
    TemporaryDirectory directory;
    for (const size_t count : {1u, 127u, 128u, 129u, 255u, 256u, 257u, 300u, 1000u}) {
        SCOPED_TRACE(count);
        RecordingSink sink;
        const std::string path = directory.write("empty-lines.nt", std::string(count, '\n') + makeLine("5"));
        EXPECT_EQ(readLines(path, RDFFormat::N_TRIPLES, count, sink), std::to_string(count + 1) + " 5^^int\n");
    }
}

TEST(LineBlocks, WhatWasWholeBeforeAFailureIsDelivered) {
    std::string content;
    uint32_t state = 1;
    for (int index = 0; index < 5000; ++index) {
        state = state * 1664525 + 1013904223;
        content += makeLine(std::to_string(state));
    }
    const std::string compressed = gzip(content);
    TemporaryDirectory directory;
    const std::string path = directory.write("cut.nt.gz", compressed.substr(0, compressed.size() / 2));
    std::string failure;
    const std::string readable = readAll(path, failure);
    const auto numberOfLines = static_cast<uint64_t>(std::count(readable.begin(), readable.end(), '\n'));
    ASSERT_GT(numberOfLines, 100u);
    for (const size_t blockSize : std::initializer_list<size_t>{100, 5000, 1 << 22}) {
        SCOPED_TRACE(blockSize);
        RecordingSink sink;
        const std::string result = readLines(path, RDFFormat::N_TRIPLES, blockSize, sink);
        EXPECT_EQ(sink.m_statements, numberOfLines);
        EXPECT_NE(
            result.find("\n" + std::to_string(numberOfLines + 1) + " the gzip data is cut off"), std::string::npos);
    }
}
