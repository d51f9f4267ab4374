#include "numdict/ProgramRunner.h"
#include "numdict/console/Failures.h"
#include "numdict/input/ByteSource.h"
#include "numdict/input/LineBlocks.h"
#include "numdict/input/LineReader.h"
#include "numdict/input/SerdHandles.h"
#include "numdict/input/TurtleReader.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using namespace kavix::numdict;

namespace {

std::string gzip(const std::string& text) {
    z_stream stream{};
    constexpr int GZIP_ONLY = 16;
    deflateInit2(&stream, 6, Z_DEFLATED, MAX_WBITS + GZIP_ONLY, 8, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, text.size()) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

/// Everything that a byte source delivers, in small pieces, and how it ended.
std::string readAll(const std::string& path, std::string& failure) {
    std::atomic<uint64_t> bytesRead{0};
    ByteSource source(path, bytesRead);
    std::string content;
    char buffer[7];
    try {
        while (const size_t count = source.read(buffer, sizeof(buffer)))
            content.append(buffer, count);
    }
    catch (const InputFailure& error) {
        failure = error.what();
    }
    return content;
}

/// What a file says, as text: "line lexical-form^^datatype" for each typed literal, "line:column message" for errors.
class RecordingSink final : public StatementSink {

public:

    bool receive(const Statement& statement, const StatementContext& context) override {
        ++m_statements;
        if (statement.m_object->type == SERD_LITERAL && !statement.m_datatypeIRI.empty()) {
            const std::string datatype(statement.m_datatypeIRI);
            m_text += std::to_string(context.getLine()) + " " + reinterpret_cast<const char*>(statement.m_object->buf) +
                      "^^" + datatype.substr(datatype.find_last_of("#:") + 1) + "\n";
        }
        if (m_statements == m_throwAt)
            throw std::runtime_error("thrown by the sink");
        return m_statements != m_stopAt;
    }

    std::string m_text;
    uint64_t m_statements = 0;
    uint64_t m_stopAt = UINT64_MAX;
    uint64_t m_throwAt = UINT64_MAX;
};

std::string describeError(const SyntaxError& error) {
    return std::to_string(error.m_line) + ":" + std::to_string(error.m_column) + " " + error.m_message + "\n";
}

std::string readLines(const std::string& path, RDFFormat format, size_t blockSize, RecordingSink& sink) {
    std::atomic<uint64_t> bytesRead{0};
    LineBlocks blocks(path, bytesRead, blockSize);
    LineReader reader(format, "file:///f", "f1_", sink);
    LineBlock block;
    std::string errors;
    try {
        while (blocks.next(block)) {
            const LineBlockResult result = reader.read(block, false);
            if (result.m_firstError)
                errors += describeError(*result.m_firstError);
        }
    }
    catch (const InputFailure& failure) {
        errors += std::to_string(failure.getLine()) + " " + failure.what() + "\n";
    }
    return sink.m_text + errors;
}

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

std::string readTurtle(const std::string& path, RDFFormat format, RecordingSink& sink) {
    std::atomic<uint64_t> bytesRead{0};
    ByteSource source(path, bytesRead);
    TurtleReader reader(source, format, "http://base/dir/file", "f1_", sink);
    try {
        const std::optional<SyntaxError> error = reader.read();
        return sink.m_text + (error ? describeError(*error) : std::string());
    }
    catch (const InputFailure& failure) {
        return sink.m_text + std::to_string(failure.getLine()) + " " + failure.what() + "\n";
    }
}

std::string makeLine(const std::string& form) {
    return "<x:s> <x:p> \"" + form + "\"^^<x:int> .\n";
}

}

TEST(ByteSource, GzipIsUnpackedByContentWithAnyNumberOfMembers) {
    const std::string packedTwice = gzip("one\n") + gzip("") + gzip("two\n");
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
        {"three members", packedTwice, "one\ntwo\n", ""},
        {"zero padding", packedTwice + std::string(600, '\0'), "one\ntwo\n", ""},
        {"cut off in the header", gzip("one\n").substr(0, 6), "", "cut off"},
        {"cut off in the checksum", gzip("one\n").substr(0, gzip("one\n").size() - 3), "one\n", "cut off"},
        {"second member cut off", gzip("one\n") + gzip("two\n").substr(0, 5), "one\n", "cut off"},
        {"damaged checksum", gzip("one\n").substr(0, gzip("one\n").size() - 8) + std::string(8, 'x'), "", "damaged"},
        {"rubbish behind", gzip("one\n") + "rubbish", "one\n", "damaged"},
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

TEST(LineBlocks, LinesStayWholeAndNumberedWhateverTheBlockSize) {
    std::string content = "\n# comment\n";
    std::string expected;
    for (int number = 3; number <= 60; ++number) {
        content += makeLine(std::string(static_cast<size_t>(number) * 7 % 90, '0') + std::to_string(number));
        expected += std::to_string(number) + " " + std::string(static_cast<size_t>(number) * 7 % 90, '0') +
                    std::to_string(number) + "^^int\n";
    }
    TemporaryDirectory directory;
    const std::string paths[] = {
        directory.write("plain.nt", content), directory.write("packed.nt", gzip(content)),
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
    const std::string packed = gzip(content);
    TemporaryDirectory directory;
    const std::string path = directory.write("cut.nt.gz", packed.substr(0, packed.size() / 2));
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

TEST(LineReader, EachLineCountsByItself) {
    const std::string good = makeLine("5");
    const std::string unended = good.substr(0, good.size() - 1);
    const struct {
        const char* name;
        std::string content;
        std::string expected;
    } rows[] = {
        {"empty", "", ""},
        {"only comments and blank lines", "# one\n\n  \t\r\n#two", ""},
        {"carriage returns", "<x:s> <x:p> \"5\"^^<x:int> .\r\n\r\n<x:s> <x:p> \"6\"^^<x:int> .\r\n",
         "1 5^^int\n3 6^^int\n"},
        {"no final newline", good + unended, "1 5^^int\n2 5^^int\n"},
        {"byte order mark", "\xEF\xBB\xBF" + good, "1 5^^int\n"},
        {"comment behind a statement", unended + " # six\n" + good, "1 5^^int\n2 5^^int\n"},
        {"escapes", makeLine("\\u0035\\t"), "1 5\t^^int\n"},
        {"blank nodes", "_:a <x:p> _:b.\n_:a <x:p> \"5\"^^<x:int>.\n", "2 5^^int\n"},
        {"unfinished at the end", good + "<x:s> <x:p> \"6\"^^<x:int>",
         "1 5^^int\n2:25 the line ends in the middle of a statement\n"},
        {"unfinished in the middle", "<x:s> <x:p> \"6\"^^<x:int>\n" + good,
         "2 5^^int\n1:25 the line ends in the middle of a statement\n"},
        {"unclosed text", "<x:s> <x:p> \"6 .\n" + good, "2 5^^int\n1:17 the line ends in the middle of a statement\n"},
        {"a statement over two lines", "<x:s> <x:p>\n\"6\"^^<x:int> .\n" + good,
         "3 5^^int\n1:12 the line ends in the middle of a statement\n"},
        {"no statement", "hello\n" + good, "2 5^^int\n1:1 not a statement\n"},
        {"a NUL byte", good + std::string("<x:s> <x:p> \0 .\n", 16) + good,
         "1 5^^int\n3 5^^int\n2:13 NUL byte: not a text file\n"},
        {"a relative IRI", "<s> <x:p> \"6\"^^<x:int> .\n" + good, "2 5^^int\n1:3 missing IRI scheme\n"},
        {"invalid UTF-8", makeLine("\xff") + good, "2 5^^int\n1:15 invalid UTF-8 start 0xFF\n"},
        {"Turtle: prefixed name", "x:s <x:p> \"6\"^^<x:int> .\n" + good,
         "2 5^^int\n1:1 prefixed names are Turtle, not N-Triples or N-Quads\n"},
        {"Turtle: prefixed predicate", "<x:s> x:p \"6\"^^<x:int> .\n" + good, "2 5^^int\n1:7 expected '<', not 'x'\n"},
        {"Turtle: prefixed graph", "<x:s> <x:p> \"6\"^^<x:int> x:g .\n" + good,
         "2 5^^int\n1:26 expected '<', not 'x'\n"},
        {"Turtle: a", "<x:s> a <x:g> <x:h> .\n" + good, "2 5^^int\n1:7 expected '<', not 'a'\n"},
        {"invalid UTF-8 in a subject", "<x:\xff> <x:p> \"6\"^^<x:int> .\n" + good,
         "2 5^^int\n1:5 invalid UTF-8 start 0xFF\n"},
        {"invalid UTF-8 in a graph", "<x:s> <x:p> \"6\"^^<x:int> <x:\xff> .\n" + good,
         "2 5^^int\n1:30 invalid UTF-8 start 0xFF\n"},
        {"Turtle: brackets", "[] <x:p> \"6\"^^<x:int> .\n" + good,
         "2 5^^int\n1:1 brackets are Turtle, not N-Triples or N-Quads\n"},
        {"Turtle: directive", "@prefix x: <x:> .\n" + good, "2 5^^int\n1:1 syntax does not support directives\n"},
        {"Turtle: number", "<x:s> <x:p> 6 .\n" + good, "2 5^^int\n1:13 expected: ':', '<', or '_'\n"},
    };
    TemporaryDirectory directory;
    for (const auto& row : rows)
        for (const RDFFormat format : {RDFFormat::N_TRIPLES, RDFFormat::N_QUADS}) {
            SCOPED_TRACE(row.name);
            RecordingSink sink;
            EXPECT_EQ(readLines(directory.write("file", row.content), format, 1 << 20, sink), row.expected);
        }
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

TEST(LineReader, ItGoesOnAfterManyErrorsAndManyBytes) {
    std::string content;
    for (int index = 0; index < 5000; ++index)
        content += makeLine("5") + "<x:s> <x:p> broken\n";
    TemporaryDirectory directory;
    RecordingSink sink;
    readLines(directory.write("file", content), RDFFormat::N_TRIPLES, 1 << 16, sink);
    EXPECT_EQ(sink.m_statements, 5000u);
}

// Where every line is what lines usually are, the parser reads on from one to the next. Whatever is not must be as if
// each line were a file by itself: also if it stands among such lines, if a statement seems to go on in the next one,
// or if the rest of one, left over, would make a statement of it.
TEST(LineReader, WhatIsUnusualReadsAsInABlockOfItsOwn) {
    const std::string usual[] = {
        "<x:s> <x:p> \"1\"^^<x:int> .\n", "_:s <x:p> \"2\"^^<x:int> <x:g> .\n", "<x:s>\t<x:p>\t\"\"^^<x:int>\t.\r\n"};
    const std::string unusual[] = {
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
    for (const RDFFormat format : {RDFFormat::N_TRIPLES, RDFFormat::N_QUADS})
        for (const std::string& first : unusual)
            for (const std::string& second : unusual) {
                const std::string last = first + "\n";
                const std::vector<std::string> lines = {
                    last,     usual[0], last, second + "\n", usual[0],
                    usual[1], usual[2], last, usual[2],      second}; // the last one without a line end
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
    EXPECT_TRUE(result.m_isStopped);
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
        {"behind a statement", "<x:s> <x:p> \"2\"^^<x:int> . .\n", "1 1^^int\n2 2^^int\n2:1 not a statement\n"},
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
        EXPECT_FALSE(result.m_isStopped);
    }
}

TEST(TurtleReader, LiteralsHaveTheirLinesAndDatatypes) {
    const std::string prefixes = "@prefix x: <x:> .\n@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .\n";
    const struct {
        const char* name;
        std::string content;
        std::string expected;
    } rows[] = {
        {"empty", "", ""},
        {"only comments", "# one\n\n # two", ""},
        {"shorthands", prefixes + "x:s x:p 5 , -5.0 , 5e0 , true .\n",
         "3 5^^integer\n3 -5.0^^decimal\n3 5e0^^double\n3 true^^boolean\n"},
        {"an integer before a full stop", prefixes + "x:s x:p 5.\nx:s x:p -6.x:s x:p \"7\".\nx:s x:p 8.",
         "3 5^^integer\n4 -6^^integer\n5 8^^integer\n"},
        {"newline at once", prefixes + "x:s x:p 5\n,6\n\n, 7.5\n; x:q\n\"8\"^^xsd:int\n.",
         "3 5^^integer\n4 6^^integer\n6 7.5^^decimal\n8 8^^int\n"},
        {"carriage returns", "@prefix x: <x:> .\r\nx:s x:p 5 .\r\nx:s x:p 6 .\r\n", "2 5^^integer\n3 6^^integer\n"},
        {"lists and brackets", prefixes + "x:s x:p ( 5\n6 ) , [ x:q 7 ;\n x:r 8 ] .",
         "3 5^^integer\n4 6^^integer\n4 7^^integer\n5 8^^integer\n"},
        {"long texts count to their end", prefixes + "x:s x:p \"\"\"5\n6\"\"\"^^xsd:int ,\n7 .",
         "4 5\n6^^int\n5 7^^integer\n"},
        {"a prefix with another meaning",
         "@prefix x: <x:a#> . x:s x:p \"1\"^^x:t .\n@prefix x: <x:b> . x:s x:p \"2\"^^x:t .", "1 1^^t\n2 2^^bt\n"},
        {"a relative datatype", "@base <http://www.w3.org/2001/XMLSchema> .\n<s> <p> \"5\"^^<#int> .", "2 5^^int\n"},
        {"relative IRIs without a base", "<s> <p> 5 .\n<../s> <> 6 .", "1 5^^integer\n2 6^^integer\n"},
        {"byte order mark", "\xEF\xBB\xBF<s> <p> 5 .", "1 5^^integer\n"},
        {"SPARQL directives", "PREFIX x: <x:>\nBASE <http://b/>\nx:s x:p 5 .", "3 5^^integer\n"},
        {"damaged in the middle", prefixes + "x:s x:p 5 .\nx:s x:p 6 7 .\nx:s x:p 8 .\n",
         "3 5^^integer\n4 6^^integer\n4:11 missing ';' or '.'\n"},
        {"damaged in brackets", prefixes + "x:s x:p 5 , [ x:q ] .\nx:s x:p 8 .\n",
         "3 5^^integer\n3:19 expected prefixed name\n"},
        {"ends in a statement", prefixes + "x:s x:p 5 , 6\n",
         "3 5^^integer\n3 6^^integer\n4:1 the file ends in the middle of a statement\n"},
        {"ends in a text", prefixes + "x:s x:p \"5", "3:11 the file ends in the middle of a statement\n"},
        {"no statement", prefixes + "hello\n", "4:1 the file ends in the middle of a statement\n"},
        {"an unknown prefix", prefixes + "x:s x:p 5 .\nx:s y:p 6 .\n",
         "3 5^^integer\n4:10 the prefix 'y:' is not declared\n"},
        {"an unknown prefix of a datatype", prefixes + "x:s x:p \"6\"^^y:int .\n",
         "3:19 the prefix of the datatype 'y:int' is not declared\n"},
        {"a NUL byte", prefixes + "x:s x:p 5 .\n" + std::string("\0 x:s x:p 6 .\n", 14),
         "3 5^^integer\n4:1 NUL byte: not a text file\n"},
        {"nested too deeply",
         prefixes +
             [] {
                 std::string text = "x:s x:p ";
                 for (int index = 0; index < 300000; ++index)
                     text += '(';
                 return text;
             }(),
         "BRACKETS"},
    };
    TemporaryDirectory directory;
    for (const auto& row : rows)
        for (const RDFFormat format : {RDFFormat::TURTLE, RDFFormat::TRIG}) {
            SCOPED_TRACE(row.name);
            RecordingSink sink;
            const std::string result = readTurtle(directory.write("file", row.content), format, sink);
            if (row.expected == "BRACKETS")
                EXPECT_NE(result.find("brackets are nested too deeply"), std::string::npos);
            else
                EXPECT_EQ(result, row.expected);
        }
}

TEST(TurtleReader, LinesAreRightAcrossBuffers) {
    std::string content = "@prefix x: <x:> .\n";
    std::string expected;
    for (int number = 2; number < 60000; ++number) {
        content += number % 3 == 0 ? "x:s x:p " + std::to_string(number) + ".\n"
                                   : "x:s x:p " + std::to_string(number) + "\n; x:q [] .\n";
        content += number % 3 == 0 ? "\n" : "";
        expected += std::to_string(2 * number - 2) + " " + std::to_string(number) + "^^integer\n";
    }
    ASSERT_GT(content.size(), 3u * 256 * 1024);
    TemporaryDirectory directory;
    for (const std::string& path :
         {directory.write("plain.ttl", content), directory.write("packed.ttl", gzip(content))}) {
        RecordingSink sink;
        EXPECT_TRUE(readTurtle(path, RDFFormat::TURTLE, sink) == expected);
    }
}

TEST(TurtleReader, GraphsOfTriGAreRead) {
    TemporaryDirectory directory;
    RecordingSink sink;
    EXPECT_EQ(
        readTurtle(
            directory.write(
                "file", "@prefix x: <x:> .\nx:g { x:s x:p 5 .\nx:s x:p 6 }\nGRAPH x:h { x:s x:p 7 }\n{ x:s x:p 8 }"),
            RDFFormat::TRIG, sink),
        "2 5^^integer\n3 6^^integer\n4 7^^integer\n5 8^^integer\n");
}

TEST(TurtleReader, ATruncatedGzipFileFailsWithItsLine) {
    std::string content = "@prefix x: <x:> .\n";
    uint32_t state = 1;
    for (int index = 0; index < 5000; ++index) {
        state = state * 1664525 + 1013904223;
        content += "x:s x:p " + std::to_string(state) + " .\n";
    }
    const std::string packed = gzip(content);
    TemporaryDirectory directory;
    const std::string path = directory.write("cut.ttl.gz", packed.substr(0, packed.size() / 2));
    std::string failure;
    const std::string readable = readAll(path, failure);
    RecordingSink sink;
    const std::string result = readTurtle(path, RDFFormat::TURTLE, sink);
    EXPECT_NE(
        result.find(
            "\n" + std::to_string(std::count(readable.begin(), readable.end(), '\n') + 1) +
            " the gzip data is cut off"),
        std::string::npos);
    EXPECT_GT(sink.m_statements, 100u);
}

TEST(TurtleReader, TheSinkCanStopAndCanThrow) {
    TemporaryDirectory directory;
    const std::string path = directory.write("file", "@prefix x: <x:> .\nx:s x:p [ x:p 1 , 2 , 3 ] , 4 .\nx:s x:p 5 .");
    RecordingSink stopped;
    stopped.m_stopAt = 3;
    EXPECT_EQ(readTurtle(path, RDFFormat::TURTLE, stopped), "2 1^^integer\n2 2^^integer\n");
    EXPECT_EQ(stopped.m_statements, 3u);
    RecordingSink thrown;
    thrown.m_throwAt = 3;
    EXPECT_THROW(readTurtle(path, RDFFormat::TURTLE, thrown), std::runtime_error);
    EXPECT_EQ(thrown.m_statements, 3u);
}

TEST(RDFFormat, TheExtensionTellsAlsoBeforeGz) {
    const struct {
        const char* path;
        std::optional<RDFFormat> expected;
    } rows[] = {
        {"a.nt", RDFFormat::N_TRIPLES},
        {"a.nq.gz", RDFFormat::N_QUADS},
        {"dir.x/a.b.ttl", RDFFormat::TURTLE},
        {"A.TRIG.GZ", RDFFormat::TRIG},
        {"a", std::nullopt},
        {"dir.ttl/a", std::nullopt},
        {"a.gz", std::nullopt},
        {"ttl", std::nullopt},
        {"a.rdf", std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(tryGetFormatOfPath(row.path), row.expected) << row.path;
}
