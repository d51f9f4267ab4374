#include "numdict/ByteSource.h"
#include "numdict/Failures.h"
#include "numdict/LineBlocks.h"
#include "numdict/LineReader.h"
#include "numdict/ProgramRunner.h"
#include "numdict/SerdHandles.h"
#include "numdict/TurtleReader.h"

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
            m_text += std::to_string(context.getLine()) + " " + reinterpret_cast<const char*>(statement.m_object->buf) + "^^" + datatype.substr(datatype.find_last_of("#:") + 1) + "\n";
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
        expected += std::to_string(number) + " " + std::string(static_cast<size_t>(number) * 7 % 90, '0') + std::to_string(number) + "^^int\n";
    }
    TemporaryDirectory directory;
    const std::string paths[] = {directory.write("plain.nt", content), directory.write("packed.nt", gzip(content)), directory.write("unended.nt", content.substr(0, content.size() - 1))};
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
        EXPECT_NE(result.find("\n" + std::to_string(numberOfLines + 1) + " the gzip data is cut off"), std::string::npos);
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
        {"carriage returns", "<x:s> <x:p> \"5\"^^<x:int> .\r\n\r\n<x:s> <x:p> \"6\"^^<x:int> .\r\n", "1 5^^int\n3 6^^int\n"},
        {"no final newline", good + unended, "1 5^^int\n2 5^^int\n"},
        {"byte order mark", "\xEF\xBB\xBF" + good, "1 5^^int\n"},
        {"comment behind a statement", unended + " # six\n" + good, "1 5^^int\n2 5^^int\n"},
        {"escapes", makeLine("\\u0035\\t"), "1 5\t^^int\n"},
        {"blank nodes", "_:a <x:p> _:b.\n_:a <x:p> \"5\"^^<x:int>.\n", "2 5^^int\n"},
        {"unfinished at the end", good + "<x:s> <x:p> \"6\"^^<x:int>", "1 5^^int\n2:25 the line ends in the middle of a statement\n"},
        {"unfinished in the middle", "<x:s> <x:p> \"6\"^^<x:int>\n" + good, "2 5^^int\n1:25 the line ends in the middle of a statement\n"},
        {"unclosed text", "<x:s> <x:p> \"6 .\n" + good, "2 5^^int\n1:17 the line ends in the middle of a statement\n"},
        {"a statement over two lines", "<x:s> <x:p>\n\"6\"^^<x:int> .\n" + good, "3 5^^int\n1:12 the line ends in the middle of a statement\n"},
        {"no statement", "hello\n" + good, "2 5^^int\n1:1 this is no statement\n"},
        {"a NUL byte", good + std::string("<x:s> <x:p> \0 .\n", 16) + good, "1 5^^int\n3 5^^int\n2:13 a NUL byte: this is no text\n"},
        {"a relative IRI", "<s> <x:p> \"6\"^^<x:int> .\n" + good, "2 5^^int\n1:3 missing IRI scheme\n"},
        {"invalid UTF-8", makeLine("\xff") + good, "2 5^^int\n1:15 invalid UTF-8 start 0xFF\n"},
        {"Turtle: prefixed name", "x:s <x:p> \"6\"^^<x:int> .\n" + good, "2 5^^int\n1:1 prefixed names are Turtle, not N-Triples or N-Quads\n"},
        {"Turtle: brackets", "[] <x:p> \"6\"^^<x:int> .\n" + good, "2 5^^int\n1:1 brackets are Turtle, not N-Triples or N-Quads\n"},
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
    const std::string content = "<x:s> <x:p> \"5\"^^<x:int> <x:g> .\n<x:s> <x:p> \"6\"^^<x:int> _:g .\n" + makeLine("7");
    TemporaryDirectory directory;
    const std::string path = directory.write("file", content);
    RecordingSink quads;
    EXPECT_EQ(readLines(path, RDFFormat::N_QUADS, 1 << 20, quads), "1 5^^int\n2 6^^int\n3 7^^int\n");
    RecordingSink triples;
    EXPECT_EQ(readLines(path, RDFFormat::N_TRIPLES, 1 << 20, triples), "3 7^^int\n1:1 four terms in a line: this is N-Quads, not N-Triples (--format nq)\n");
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

    sink.m_throwAt = 3;
    LineBlocks again(path, bytesRead);
    ASSERT_TRUE(again.next(block));
    EXPECT_THROW(reader.read(block, false), std::runtime_error);
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
        {"shorthands", prefixes + "x:s x:p 5 , -5.0 , 5e0 , true .\n", "3 5^^integer\n3 -5.0^^decimal\n3 5e0^^double\n3 true^^boolean\n"},
        {"an integer before a full stop", prefixes + "x:s x:p 5.\nx:s x:p -6.x:s x:p \"7\".\nx:s x:p 8.", "3 5^^integer\n4 -6^^integer\n5 8^^integer\n"},
        {"newline at once", prefixes + "x:s x:p 5\n,6\n\n, 7.5\n; x:q\n\"8\"^^xsd:int\n.", "3 5^^integer\n4 6^^integer\n6 7.5^^decimal\n8 8^^int\n"},
        {"carriage returns", "@prefix x: <x:> .\r\nx:s x:p 5 .\r\nx:s x:p 6 .\r\n", "2 5^^integer\n3 6^^integer\n"},
        {"lists and brackets", prefixes + "x:s x:p ( 5\n6 ) , [ x:q 7 ;\n x:r 8 ] .", "3 5^^integer\n4 6^^integer\n4 7^^integer\n5 8^^integer\n"},
        {"long texts count to their end", prefixes + "x:s x:p \"\"\"5\n6\"\"\"^^xsd:int ,\n7 .", "4 5\n6^^int\n5 7^^integer\n"},
        {"a prefix with another meaning", "@prefix x: <x:a#> . x:s x:p \"1\"^^x:t .\n@prefix x: <x:b> . x:s x:p \"2\"^^x:t .", "1 1^^t\n2 2^^bt\n"},
        {"a relative datatype", "@base <http://www.w3.org/2001/XMLSchema> .\n<s> <p> \"5\"^^<#int> .", "2 5^^int\n"},
        {"relative IRIs without a base", "<s> <p> 5 .\n<../s> <> 6 .", "1 5^^integer\n2 6^^integer\n"},
        {"byte order mark", "\xEF\xBB\xBF<s> <p> 5 .", "1 5^^integer\n"},
        {"SPARQL directives", "PREFIX x: <x:>\nBASE <http://b/>\nx:s x:p 5 .", "3 5^^integer\n"},
        {"damaged in the middle", prefixes + "x:s x:p 5 .\nx:s x:p 6 7 .\nx:s x:p 8 .\n", "3 5^^integer\n4 6^^integer\n4:11 missing ';' or '.'\n"},
        {"damaged in brackets", prefixes + "x:s x:p 5 , [ x:q ] .\nx:s x:p 8 .\n", "3 5^^integer\n3:19 expected prefixed name\n"},
        {"ends in a statement", prefixes + "x:s x:p 5 , 6\n", "3 5^^integer\n3 6^^integer\n4:1 the file ends in the middle of a statement\n"},
        {"ends in a text", prefixes + "x:s x:p \"5", "3:11 the file ends in the middle of a statement\n"},
        {"no statement", prefixes + "hello\n", "4:1 the file ends in the middle of a statement\n"},
        {"an unknown prefix", prefixes + "x:s x:p 5 .\nx:s y:p 6 .\n", "3 5^^integer\n4:10 the prefix 'y:' is not declared\n"},
        {"an unknown prefix of a datatype", prefixes + "x:s x:p \"6\"^^y:int .\n", "3:19 the prefix of the datatype 'y:int' is not declared\n"},
        {"a NUL byte", prefixes + "x:s x:p 5 .\n" + std::string("\0 x:s x:p 6 .\n", 14), "3 5^^integer\n4:1 a NUL byte: this is no text\n"},
        {"nested too deeply", prefixes + [] { std::string text = "x:s x:p "; for (int index = 0; index < 300000; ++index) text += '('; return text; }(), "BRACKETS"},
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
        content += number % 3 == 0 ? "x:s x:p " + std::to_string(number) + ".\n" : "x:s x:p " + std::to_string(number) + "\n; x:q [] .\n";
        content += number % 3 == 0 ? "\n" : "";
        expected += std::to_string(2 * number - 2) + " " + std::to_string(number) + "^^integer\n";
    }
    ASSERT_GT(content.size(), 3u * 256 * 1024);
    TemporaryDirectory directory;
    for (const std::string& path : {directory.write("plain.ttl", content), directory.write("packed.ttl", gzip(content))}) {
        RecordingSink sink;
        EXPECT_TRUE(readTurtle(path, RDFFormat::TURTLE, sink) == expected);
    }
}

TEST(TurtleReader, GraphsOfTriGAreRead) {
    TemporaryDirectory directory;
    RecordingSink sink;
    EXPECT_EQ(readTurtle(directory.write("file", "@prefix x: <x:> .\nx:g { x:s x:p 5 .\nx:s x:p 6 }\nGRAPH x:h { x:s x:p 7 }\n{ x:s x:p 8 }"), RDFFormat::TRIG, sink), "2 5^^integer\n3 6^^integer\n4 7^^integer\n5 8^^integer\n");
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
    EXPECT_NE(result.find("\n" + std::to_string(std::count(readable.begin(), readable.end(), '\n') + 1) + " the gzip data is cut off"), std::string::npos);
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
        {"a.nt", RDFFormat::N_TRIPLES}, {"a.nq.gz", RDFFormat::N_QUADS}, {"dir.x/a.b.ttl", RDFFormat::TURTLE}, {"A.TRIG.GZ", RDFFormat::TRIG},
        {"a", std::nullopt}, {"dir.ttl/a", std::nullopt}, {"a.gz", std::nullopt}, {"ttl", std::nullopt}, {"a.rdf", std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(tryGetFormatOfPath(row.path), row.expected) << row.path;
}
