#include "numdict/input/LineReader.h"

#include "numdict/ProgramRunner.h"
#include "numdict/input/ReadingSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>

using namespace kavix::numdict;

namespace {

struct LineRow {
    const char* name;
    std::string content;
    std::string expected;
};

void expectResult(const LineRow& row) {
    TemporaryDirectory directory;
    const std::string path = directory.write("file", row.content);
    for (const RDFFormat format : {RDFFormat::N_TRIPLES, RDFFormat::N_QUADS}) {
        SCOPED_TRACE(row.name);
        RecordingSink sink;
        EXPECT_EQ(readLines(path, format, 1 << 20, sink), row.expected);
    }
}

}

TEST(LineReader, EachLineCountsByItself) {
    const std::string good = makeLine("5");
    const std::string unended = good.substr(0, good.size() - 1);
    const LineRow rows[] = {
        {"empty", "", ""},
        {"only comments and blank lines", "# one\n\n  \t\r\n#two", ""},
        {"carriage returns", "<x:s> <x:p> \"5\"^^<x:int> .\r\n\r\n<x:s> <x:p> \"6\"^^<x:int> .\r\n",
         "1 5^^int\n3 6^^int\n"},
        {"no final newline", good + unended, "1 5^^int\n2 5^^int\n"},
        {"byte order mark", "\xEF\xBB\xBF" + good, "1 5^^int\n"},
        {"comment after a statement", unended + " # six\n" + good, "1 5^^int\n2 5^^int\n"},
        {"escapes", makeLine("\\u0035\\t"), "1 5\t^^int\n"},
        {"blank nodes", "_:a <x:p> _:b.\n_:a <x:p> \"5\"^^<x:int>.\n", "2 5^^int\n"},
        {"unfinished at the end", good + "<x:s> <x:p> \"6\"^^<x:int>",
         "1 5^^int\n2:25 the line ends in the middle of a statement\n"},
        {"unfinished in the middle", "<x:s> <x:p> \"6\"^^<x:int>\n" + good,
         "2 5^^int\n1:25 the line ends in the middle of a statement\n"},
        {"unclosed text", "<x:s> <x:p> \"6 .\n" + good, "2 5^^int\n1:17 the line ends in the middle of a statement\n"},
        {"a statement over two lines", "<x:s> <x:p>\n\"6\"^^<x:int> .\n" + good,
         "3 5^^int\n1:12 the line ends in the middle of a statement\n"},
        {"not a statement", "hello\n" + good, "2 5^^int\n1:1 not a statement\n"},
        {"a NUL byte", good + std::string("<x:s> <x:p> \0 .\n", 16) + good,
         "1 5^^int\n3 5^^int\n2:13 NUL byte: not a text file\n"},
        {"a relative IRI", "<s> <x:p> \"6\"^^<x:int> .\n" + good, "2 5^^int\n1:3 missing IRI scheme\n"},
        {"invalid UTF-8", makeLine("\xff") + good, "2 5^^int\n1:15 invalid UTF-8 start 0xFF\n"},
        {"invalid UTF-8 in a subject", "<x:\xff> <x:p> \"6\"^^<x:int> .\n" + good,
         "2 5^^int\n1:5 invalid UTF-8 start 0xFF\n"},
        {"invalid UTF-8 in a graph", "<x:s> <x:p> \"6\"^^<x:int> <x:\xff> .\n" + good,
         "2 5^^int\n1:30 invalid UTF-8 start 0xFF\n"},
    };
    for (const LineRow& row : rows)
        expectResult(row);
}

TEST(LineReader, WhatOnlyTurtleHasIsAnError) {
    const std::string good = makeLine("5");
    const LineRow rows[] = {
        {"Turtle: prefixed name", "x:s <x:p> \"6\"^^<x:int> .\n" + good,
         "2 5^^int\n1:1 prefixed names are Turtle, not N-Triples or N-Quads\n"},
        {"Turtle: prefixed predicate", "<x:s> x:p \"6\"^^<x:int> .\n" + good, "2 5^^int\n1:7 expected '<', not 'x'\n"},
        {"Turtle: prefixed graph", "<x:s> <x:p> \"6\"^^<x:int> x:g .\n" + good,
         "2 5^^int\n1:26 expected '<', not 'x'\n"},
        {"Turtle: a", "<x:s> a <x:g> <x:h> .\n" + good, "2 5^^int\n1:7 expected '<', not 'a'\n"},
        {"Turtle: brackets", "[] <x:p> \"6\"^^<x:int> .\n" + good,
         "2 5^^int\n1:1 brackets are Turtle, not N-Triples or N-Quads\n"},
        {"Turtle: directive", "@prefix x: <x:> .\n" + good, "2 5^^int\n1:1 syntax does not support directives\n"},
        {"Turtle: number", "<x:s> <x:p> 6 .\n" + good, "2 5^^int\n1:13 expected: ':', '<', or '_'\n"},
    };
    for (const LineRow& row : rows)
        expectResult(row);
}

TEST(LineReader, AGraphBelongsInNQuadsOnly) {
    const std::string content =
        "<x:s> <x:p> \"5\"^^<x:int> <x:g> .\n<x:s> <x:p> \"6\"^^<x:int> _:g .\n" + makeLine("7");
    TemporaryDirectory directory;
    const std::string path = directory.write("file", content);
    RecordingSink quads;
    EXPECT_EQ(readLines(path, RDFFormat::N_QUADS, 1 << 20, quads), "1 5^^int\n2 6^^int\n3 7^^int\n");
    RecordingSink triples;
    EXPECT_EQ(
        readLines(path, RDFFormat::N_TRIPLES, 1 << 20, triples),
        "3 7^^int\n1:1 four terms in a line: this is N-Quads, not N-Triples (--format nq)\n");
}

TEST(LineReader, ItContinuesAfterManyErrorsAndManyBytes) {
    std::string content;
    for (int index = 0; index < 5000; ++index)
        content += makeLine("5") + "<x:s> <x:p> broken\n";
    TemporaryDirectory directory;
    RecordingSink sink;
    readLines(directory.write("file", content), RDFFormat::N_TRIPLES, 1 << 16, sink);
    EXPECT_EQ(sink.m_statements, 5000u);
}

TEST(LineReader, TheSinkCanStopAndCanThrow) {
    TemporaryDirectory directory;
    const std::string path = directory.write("file", makeLine("1") + makeLine("2") + makeLine("3"));
    std::atomic<uint64_t> bytesRead{0};
    RecordingSink sink;
    sink.m_stopAt = 2;
    LineReader reader(RDFFormat::N_TRIPLES, "file:///f", "", sink);
    LineBlock block;
    LineBlocks blocks(path, bytesRead);
    ASSERT_TRUE(blocks.next(block));
    const LineBlockResult result = reader.read(block, false);
    EXPECT_EQ(result.m_damagedLines, 0u);
    EXPECT_EQ(sink.m_statements, 2u);

    sink.m_throwAt = 4;
    LineBlocks again(path, bytesRead);
    ASSERT_TRUE(again.next(block));
    EXPECT_THROW(reader.read(block, false), std::runtime_error);
    EXPECT_EQ(sink.m_text, "1 1^^int\n2 2^^int\n1 1^^int\n2 2^^int\n");
}

TEST(LineReader, ItStopsAtTheFirstErrorIfAsked) {
    const struct {
        const char* name;
        std::string damaged;
        std::string expected;
    } rows[] = {
        {"in the middle", "<x:s> <x:p> 5 .\n", "1 1^^int\n2:13 expected: ':', '<', or '_'\n"},
        {"unfinished", "<x:s> <x:p>\n", "1 1^^int\n2:12 the line ends in the middle of a statement\n"},
        {"after a statement", "<x:s> <x:p> \"2\"^^<x:int> . .\n", "1 1^^int\n2 2^^int\n2:1 not a statement\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingSink sink;
        LineReader reader(RDFFormat::N_TRIPLES, "file:///f", "", sink);
        const std::string text = makeLine("1") + row.damaged + makeLine("3");
        LineBlock block;
        block.m_bytes.assign(text.begin(), text.end());
        block.m_bytes.push_back('?');
        block.m_length = text.size();
        const LineBlockResult result = reader.read(block, true);
        ASSERT_TRUE(result.m_firstError);
        EXPECT_EQ(sink.m_text + describeError(*result.m_firstError), row.expected);
        EXPECT_EQ(result.m_damagedLines, 1u);
    }
}
