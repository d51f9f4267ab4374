// Of LineReader: many lines in one block read as each line in a block of its own.

#include "numdict/input/LineReader.h"

#include "numdict/input/ReadingSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using namespace kavix::numdict;

namespace {

/// Lines in blocks of the test's own.
class BlockReading {

public:

    explicit BlockReading(RDFFormat format) :
        m_reader(format, "file:///f", "f1_", m_sink) { }

    void read(const std::string& text, uint64_t firstLine) {
        m_block.m_bytes.assign(text.begin(), text.end());
        m_block.m_bytes.push_back('?'); // the reader's to overwrite
        m_block.m_length = text.size();
        m_block.m_firstLine = firstLine;
        const LineBlockResult result = m_reader.read(m_block, false);
        m_damagedLines += result.m_damagedLines;
        if (result.m_firstError && m_firstError.empty())
            m_firstError = describeError(*result.m_firstError);
    }

    std::string describe() const {
        return m_sink.m_text + std::to_string(m_sink.m_statements) + " statements, " + std::to_string(m_damagedLines) +
               " damaged lines\n" + m_firstError;
    }

private:

    RecordingSink m_sink;
    LineReader m_reader;
    LineBlock m_block;
    uint64_t m_damagedLines = 0;
    std::string m_firstError;
};

std::string readInOneBlock(const std::vector<std::string>& lines, RDFFormat format) {
    std::string text;
    for (const std::string& line : lines)
        text += line;
    BlockReading reading(format);
    reading.read(text, 1);
    return reading.describe();
}

std::string readInBlocksOfOneLine(const std::vector<std::string>& lines, RDFFormat format) {
    BlockReading reading(format);
    for (size_t index = 0; index < lines.size(); ++index)
        reading.read(lines[index], index + 1);
    return reading.describe();
}

/// Lines that the parser reads on from one to the next.
const std::string USUAL_LINES[] = {
    "<x:s> <x:p> \"1\"^^<x:int> .\n", "_:s <x:p> \"2\"^^<x:int> <x:g> .\n", "<x:s>\t<x:p>\t\"\"^^<x:int>\t.\r\n"};

const std::string UNUSUAL_LINES[] = {
    "",
    " \t\r",
    "# comment .",
    " # comment .", // no statement
    "<x:s> <x:p> \"5\"^^<x:int> . ",
    "<x:s> <x:p> \"5\"^^<x:int> .\r",
    " <x:s> <x:p> \"5\"^^<x:int> .",
    "<x:s><x:p>\"5\"^^<x:int>.",
    "<x:s>  <x:p>  \"5\"^^<x:int>  .", // other blanks
    "<x:s> <x:p> \"5\"^^<x:int> .\v",
    "<x:s> <x:p> \"5\"^^<x:int>\f.",
    "<x:s> <x:p> \"5\"^^<x:int> . # six .",
    "<x:s> <x:p> \"5\"^^<x:int> .#.",
    "# five\r<x:s> <x:p> \"6\"^^<x:int> .",
    "<x:s> <x:p> # five\r\"6\"^^<x:int> .",
    "<x:s> <x:p> \"5\"^^<x:int> . # six\r<x:s> <x:p> \"7\"^^<x:int> .",
    "<x:s> <x:p> \"5\"^^<x:int> .\r<x:s> <x:p> \"6\"^^<x:int> .",
    "<x:s> <x:p> \"5\"^^<x:int> . <x:s> <x:p> \"6\"^^<x:int> .",
    "<x:s><x:p><x:o>.<x:s><x:p>\"6\"^^<x:int> .",
    "_:a<x:p>\"\"._:a<x:p>\"\" .", // statements side by side
    "<x:s> <x:p> \"5\"^^<x:int> . <x:s> <x:p> 6 .",
    "<x:s> <x:p> \"5\"^^<x:int> . <x:s>",
    "<x:s> <x:p> \"5\"^^<x:int> .<x:s> .",
    "<x:s> <x:p> \"5\"^^<x:int> . <x:s> #.",
    "<x:s><x:p>\"5\"^^<x:int>.<x:s># .",
    "<x:s> <x:p> \"5\"^^<x:int> . .",
    "<x:s> <x:p> \"5\"^^<x:int>. .",
    "<x:s> <x:p>\"5\"^^<x:int>. .",
    "<x:s><x:p>\"5\"^^<x:int>.x .",
    "<x:s><x:p>\"5\"^^<x:int>._ .",
    "<x:s><x:p>\"5\"^^<x:int>.<> .",
    "<x:s> <x:p> \"5\"^^<x:int> ..",
    "<x:s> <x:p>",
    "<x:s> <x:p> #.",
    "<x:s>",
    "\"5\"^^<x:int> .",
    "<x:p> \"5\"^^<x:int> .",
    ".",
    " .", // statements over several lines
    "<x:s> <x:p> \"\"\"5 .",
    "6\"\"\"^^<x:int> .",
    "<x:s> <x:p> \"\"\"5\"\"\"^^<x:int> .",
    "<x:s> <x:p> '''5 .",
    "6'''^^<x:int> .",
    "<x:s> <x:p> '5'^^<x:int> .",
    "<x:s> <x:p> \"5 .",
    "6\"^^<x:int> .",
    "<x:s> <x:p> <x:o .",
    "o> .",
    "<x:s> <x:p> \"\\u0035\"^^<x:int> .",
    "<x:s> <x:p> \"5\\t\"^^<x:int> .",
    "<x:s> <x:p> \"\\\"\" .",
    "<x:\\u0073> <x:p> \"5\"^^<x:int> .",
    "<x:s> <x:p> \"\\x\" .",
    "<x:s> <x:p> \"5\\", // escapes
    "<x:s> <x:p> \"\xC3\xA9\" .",
    "<x:s> <x:p> \"\xff\" .",
    "<x:\xff> <x:p> \"5\"^^<x:int> .",
    "<x:s> <x:p> \"\xC3\" .",
    "<x:s> <x:p> \"5\"@en .",
    "<x:s> <x:p> \"5\"@en.",
    "<x:s> <x:p> _:b .",
    "<x:s> <x:p> _:b.",
    "_:b1 <x:p> _:genid2 .",
    "_:b. <x:p> <x:o> .",
    "<s> <x:p> <x:o> .",
    "<> <> <> .",
    "<x:s> <x:p> 5 .",
    "<x:s> <x:p> true .",
    "<x:s> a <x:o> .",
    "x:s <x:p> <x:o> .",
    "<x:s> <x:p> x:o .",
    "<x:s> <x:p> \"5\"^^x:int .",
    "[] <x:p> <x:o> .",
    "<x:s> <x:p> [] .",
    "() <x:p> <x:o> .",
    "<x:s> <x:p> () .",
    "@prefix x: <x:> .",
    "<x:s> <x:p> <x:o>, <x:q> .", // Turtle
    "<x:s> <x:p> <x:o> <x:g> <x:h> .",
    "<x:s> <x:p> <x:o> \"g\" .",
    "hello",
    std::string("<x:s> <x:p> \"5\0\"^^<x:int> .", 28),
    std::string(1, '\0'),
    std::string("#\0", 2),
    "<x:s> <x:p> \"" + std::string(70000, '5') + "\" .",
    "<x:s> <x:p> \"" + std::string(70000, '5') + " .",
    std::string(70000, ' ') + "<x:s> <x:p> \"5\"^^<x:int> .", // longer than what one parser reads
};

}

// The parser continues from one usual line to the next. All others must be read as if each were a file by itself: also
// among usual lines, also if a statement seems to continue in the next line, and if what is left of a line would
// complete a statement there.
TEST(LineReader, WhatIsUnusualReadsAsInABlockOfItsOwn) {
    for (const RDFFormat format : {RDFFormat::N_TRIPLES, RDFFormat::N_QUADS})
        for (const std::string& first : UNUSUAL_LINES)
            for (const std::string& second : UNUSUAL_LINES) {
                const std::string last = first + "\n";
                const std::vector<std::string> lines = {last,           USUAL_LINES[0], last,           second + "\n",
                                                        USUAL_LINES[0], USUAL_LINES[1], USUAL_LINES[2], last,
                                                        USUAL_LINES[2], second}; // the last one without a line end
                if (first.size() + second.size() > 100 && first.size() != second.size())
                    continue; // long ones by themselves
                if (readInOneBlock(lines, format) != readInBlocksOfOneLine(lines, format)) {
                    SCOPED_TRACE(first.substr(0, 100) + "\n" + second.substr(0, 100));
                    EXPECT_EQ(readInOneBlock(lines, format), readInBlocksOfOneLine(lines, format));
                }
            }
}

TEST(LineReader, LineNumbersAreRightThroughManyBytes) {
    std::vector<std::string> lines;
    uint32_t state = 1;
    for (int index = 0; index < 20000; ++index) {
        state = state * 1664525 + 1013904223;
        lines.push_back(makeLine(std::to_string(state)));
        if (state >> 24 == 0)
            lines.push_back("<x:s> <x:p>\n");
        if (state >> 24 == 1)
            lines.push_back("<x:s> <x:p> \"7\"^^<x:int> . <x:s> <x:p> \"8\"^^<x:int> .\n");
        if (state >> 24 == 2)
            lines.push_back("\n");
    }
    EXPECT_TRUE(readInOneBlock(lines, RDFFormat::N_TRIPLES) == readInBlocksOfOneLine(lines, RDFFormat::N_TRIPLES));
}

// What was passed of a line before its error is not passed again, although the line is read again.
TEST(LineReader, StatementsOfADamagedLineArePassedOnce) {
    const std::string damaged =
        "<x:s> <x:p> \"5\"^^<x:int> . <x:s> <x:p> \"6\"^^<x:int> . <x:s> <x:p> 7 . <x:s> <x:p> \"8\"^^<x:int> .\n";
    EXPECT_EQ(
        readInOneBlock({makeLine("4"), damaged, makeLine("9")}, RDFFormat::N_TRIPLES),
        "1 4^^int\n2 5^^int\n2 6^^int\n3 9^^int\n4 statements, 1 damaged lines\n2:67 expected: ':', '<', or '_'\n");
}
