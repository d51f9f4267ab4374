#include "numdict/input/TurtleReader.h"

#include "numdict/ProgramRunner.h"
#include "numdict/console/Failures.h"
#include "numdict/input/ByteSource.h"
#include "numdict/input/ReadingSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

using namespace kavix::numdict;

namespace {

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

const std::string PREFIXES = "@prefix x: <x:> .\n@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .\n";

struct TurtleRow {
    const char* name;
    std::string content;
    std::string expected;
};

void expectResult(const TurtleRow& row) {
    TemporaryDirectory directory;
    const std::string path = directory.write("file", row.content);
    for (const RDFFormat format : {RDFFormat::TURTLE, RDFFormat::TRIG}) {
        SCOPED_TRACE(row.name);
        RecordingSink sink;
        EXPECT_EQ(readTurtle(path, format, sink), row.expected);
    }
}

}

TEST(TurtleReader, LiteralsHaveTheirLinesAndDatatypes) {
    const TurtleRow rows[] = {
        {"empty", "", ""},
        {"only comments", "# one\n\n # two", ""},
        {"shorthands", PREFIXES + "x:s x:p 5 , -5.0 , 5e0 , true .\n",
         "3 5^^integer\n3 -5.0^^decimal\n3 5e0^^double\n3 true^^boolean\n"},
        {"an integer before a full stop", PREFIXES + "x:s x:p 5.\nx:s x:p -6.x:s x:p \"7\".\nx:s x:p 8.",
         "3 5^^integer\n4 -6^^integer\n5 8^^integer\n"},
        {"newline at once", PREFIXES + "x:s x:p 5\n,6\n\n, 7.5\n; x:q\n\"8\"^^xsd:int\n.",
         "3 5^^integer\n4 6^^integer\n6 7.5^^decimal\n8 8^^int\n"},
        {"carriage returns", "@prefix x: <x:> .\r\nx:s x:p 5 .\r\nx:s x:p 6 .\r\n", "2 5^^integer\n3 6^^integer\n"},
        {"lists and brackets", PREFIXES + "x:s x:p ( 5\n6 ) , [ x:q 7 ;\n x:r 8 ] .",
         "3 5^^integer\n4 6^^integer\n4 7^^integer\n5 8^^integer\n"},
        {"long texts count to their end", PREFIXES + "x:s x:p \"\"\"5\n6\"\"\"^^xsd:int ,\n7 .",
         "4 5\n6^^int\n5 7^^integer\n"},
        {"a prefix with another meaning",
         "@prefix x: <x:a#> . x:s x:p \"1\"^^x:t .\n@prefix x: <x:b> . x:s x:p \"2\"^^x:t .", "1 1^^t\n2 2^^bt\n"},
        {"a relative datatype", "@base <http://www.w3.org/2001/XMLSchema> .\n<s> <p> \"5\"^^<#int> .", "2 5^^int\n"},
        {"relative IRIs without a base", "<s> <p> 5 .\n<../s> <> 6 .", "1 5^^integer\n2 6^^integer\n"},
        {"byte order mark", "\xEF\xBB\xBF<s> <p> 5 .", "1 5^^integer\n"},
        {"SPARQL directives", "PREFIX x: <x:>\nBASE <http://b/>\nx:s x:p 5 .", "3 5^^integer\n"},
    };
    for (const TurtleRow& row : rows)
        expectResult(row);
}

TEST(TurtleReader, AnErrorEndsTheFileAtItsPlace) {
    const TurtleRow rows[] = {
        {"damaged in the middle", PREFIXES + "x:s x:p 5 .\nx:s x:p 6 7 .\nx:s x:p 8 .\n",
         "3 5^^integer\n4 6^^integer\n4:11 missing ';' or '.'\n"},
        {"damaged in brackets", PREFIXES + "x:s x:p 5 , [ x:q ] .\nx:s x:p 8 .\n",
         "3 5^^integer\n3:19 expected prefixed name\n"},
        {"ends in a statement", PREFIXES + "x:s x:p 5 , 6\n",
         "3 5^^integer\n3 6^^integer\n4:1 the file ends in the middle of a statement\n"},
        {"ends in a text", PREFIXES + "x:s x:p \"5", "3:11 the file ends in the middle of a statement\n"},
        {"not a statement", PREFIXES + "hello\n", "4:1 the file ends in the middle of a statement\n"},
        {"an unknown prefix", PREFIXES + "x:s x:p 5 .\nx:s y:p 6 .\n",
         "3 5^^integer\n4:10 the prefix 'y:' is not declared\n"},
        {"an unknown prefix of a datatype", PREFIXES + "x:s x:p \"6\"^^y:int .\n",
         "3:19 the prefix of the datatype 'y:int' is not declared\n"},
        {"a NUL byte", PREFIXES + "x:s x:p 5 .\n" + std::string("\0 x:s x:p 6 .\n", 14),
         "3 5^^integer\n4:1 NUL byte: not a text file\n"},
    };
    for (const TurtleRow& row : rows)
        expectResult(row);
}

TEST(TurtleReader, BracketsCannotExhaustTheStack) {
    TemporaryDirectory directory;
    const std::string path = directory.write("file", PREFIXES + "x:s x:p " + std::string(300000, '('));
    for (const RDFFormat format : {RDFFormat::TURTLE, RDFFormat::TRIG}) {
        RecordingSink sink;
        EXPECT_NE(readTurtle(path, format, sink).find("brackets are nested too deeply"), std::string::npos);
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
         {directory.write("plain.ttl", content), directory.write("compressed.ttl", gzip(content))}) {
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
    const std::string compressed = gzip(content);
    TemporaryDirectory directory;
    const std::string path = directory.write("cut.ttl.gz", compressed.substr(0, compressed.size() / 2));
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
