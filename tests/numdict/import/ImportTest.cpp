#include "numdict/import/Import.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/platform/errors/KavixException.h"
#include "numdict/ProgramRunner.h"
#include "numdict/import/ImportReport.h"
#include "numdict/import/ReportPrinter.h"
#include "numdict/literals/LiteralGenerator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

using namespace kavix;
using namespace kavix::numdict;
using nlohmann::json;

namespace {

const std::string DATA = KAVIX_SOURCE_DIRECTORY "/tests/numdict/data/";

constexpr uint64_t BUDGET = 64 << 20;

/// The JSON report of an import without what differs between any two runs.
json importFiles(
    std::vector<InputFile> files, unsigned numberOfThreads, size_t blockSize = LineBlocks::DEFAULT_BLOCK_SIZE,
    LiteralCollector::Options collectorOptions = {}, const std::string& rejectedPath = "", uint64_t budget = BUDGET) {
    Dictionary dictionary({.memoryBudgetBytes = budget});
    ImportProgress progress;
    Import import(
        dictionary, ImportOptions{std::move(files), numberOfThreads, collectorOptions, rejectedPath, blockSize},
        progress);
    json report = json::parse(formatReportAsJSON(import.run()));
    import.writeRejectedStatements();
    report.erase("seconds");
    report.erase("literalsPerSecond");
    report.erase("memory");
    return report;
}

/// Statements with many faults: each tenth is malformed, and each hundredth line is not a statement.
std::string makeFaultyLines(uint64_t seed, int numberOfLines) {
    LiteralGenerator generator(seed);
    std::string content;
    for (int line = 1; line <= numberOfLines; ++line) {
        if (line % 100 == 50)
            content += "<http://example.org/broken> \n";
        else if (line % 10 == 0)
            content += "<http://example.org/s> <http://example.org/p> \"x" + std::to_string(line) +
                       "\"^^<http://www.w3.org/2001/XMLSchema#int> .\n";
        else
            generator.appendStatement(content);
    }
    return content;
}

/// Longs and decimals, one in eleven not canonical, with their datatype IRIs; in the content a rejected literal follows
/// every fifth.
std::vector<std::pair<std::string, std::string>> makeLiterals(std::string& content) {
    std::vector<std::pair<std::string, std::string>> literals;
    for (int number = 0; number < 60000; ++number) {
        const bool isDecimal = number % 3 == 0;
        std::string form = std::to_string(number / 2) + (isDecimal ? ".25" : "");
        if (number % 7 == 0)
            form += isDecimal ? "0" : "";
        if (number % 11 == 0)
            form = "+" + form;
        literals.emplace_back(
            form, isDecimal ? "http://www.w3.org/2001/XMLSchema#decimal" : "http://www.w3.org/2001/XMLSchema#long");
        content += "<x:s> <x:p> \"" + form + "\"^^<" + literals.back().second + "> .\n";
        if (number % 5 == 0)
            content += "<x:s> <x:p> \"rejected\"^^<http://www.w3.org/2001/XMLSchema#int> .\n";
    }
    return literals;
}

}

TEST(Import, EveryLiteralIsCountedWhereItBelongs) {
    const json report =
        importFiles({{DATA + "mixed.nt", RDFFormat::N_TRIPLES}, {DATA + "mixed.ttl", RDFFormat::TURTLE}}, 1);
    const struct {
        const char* datatype;
        std::vector<uint64_t>
            counts; // literals, accepted, malformed, outOfRange, beyondCapacity, nonCanonical, distinctValues
    } rows[] = {
        {"xsd:integer", {7, 7, 0, 0, 0, 2, 5}}, // 5 +05 | 5 +07 1 2 12
        {"xsd:int", {3, 1, 2, 0, 0, 0, 1}},     {"xsd:decimal", {5, 2, 2, 0, 1, 1, 2}}, // 1.50 | 5.0
        {"xsd:byte", {2, 0, 0, 2, 0, 0, 0}},    {"xsd:unsignedLong", {1, 0, 0, 0, 1, 0, 0}},
        {"xsd:short", {0, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.datatype);
        const json& counts = report["datatypes"][row.datatype];
        EXPECT_EQ(
            (std::vector<uint64_t>{
                counts["literals"], counts["accepted"], counts["malformed"], counts["outOfRange"],
                counts["beyondCapacity"], counts["nonCanonical"], counts["distinctValues"]}),
            row.counts);
    }
    EXPECT_EQ(report["total"]["literals"], 18);
    EXPECT_EQ(report["total"]["distinctValues"], 8);
    EXPECT_EQ(report["files"][0]["statements"], 13);
    EXPECT_EQ(report["files"][1]["statements"], 14);
    EXPECT_EQ(report["files"][0]["bytes"], readFile(DATA + "mixed.nt").size());
    EXPECT_EQ(report["files"][1]["bytes"], readFile(DATA + "mixed.ttl").size());
    EXPECT_TRUE(report["files"][0]["error"].is_null());
}

TEST(Import, RejectedExamplesComeWithFileLineTextAndMessage) {
    const json report =
        importFiles({{DATA + "mixed.nt", RDFFormat::N_TRIPLES}, {DATA + "mixed.ttl", RDFFormat::TURTLE}}, 1);
    const struct {
        const char* file;
        int line;
        const char* literal;
        const char* reason;
        const char* message;
    } rows[] = {
        {"mixed.nt", 7, "\"1,50\"^^xsd:decimal", "malformed",
         "Lexical form '1,50' is invalid for datatype xsd:decimal."},
        {"mixed.ttl", 9, "\"x\\\"y\"^^xsd:decimal", "malformed",
         "Lexical form 'x\"y' is invalid for datatype xsd:decimal."},
        {"mixed.nt", 8, "\"0.12345678901234567891\"^^xsd:decimal", "beyondCapacity",
         "Value '0.12345678901234567891' exceeds the capacity of datatype xsd:decimal: at most 19 fraction digits and "
         "a signed 64-bit unscaled value."},
        {"mixed.nt", 5, "\" 5 \"^^xsd:int", "malformed", "Lexical form ' 5 ' is invalid for datatype xsd:int."},
        {"mixed.ttl", 7, "\"4\\n2\"^^xsd:int", "malformed", "Lexical form '4\n2' is invalid for datatype xsd:int."},
        {"mixed.nt", 9, "\"128\"^^xsd:byte", "outOfRange", "Value '128' is not in the range of datatype xsd:byte."},
        {"mixed.ttl", 6, "\"300\"^^xsd:byte", "outOfRange", "Value '300' is not in the range of datatype xsd:byte."},
        {"mixed.nt", 10, "\"9223372036854775808\"^^xsd:unsignedLong", "beyondCapacity",
         "Lexical form '9223372036854775808' is invalid for datatype xsd:unsignedLong."},
    };
    const json& examples = report["rejectedExamples"];
    ASSERT_EQ(examples.size(), std::size(rows));
    for (size_t index = 0; index < examples.size(); ++index) {
        SCOPED_TRACE(rows[index].literal);
        EXPECT_EQ(examples[index]["file"], DATA + rows[index].file);
        EXPECT_EQ(examples[index]["line"], rows[index].line);
        EXPECT_EQ(examples[index]["literal"], rows[index].literal);
        EXPECT_EQ(examples[index]["reason"], rows[index].reason);
        EXPECT_EQ(examples[index]["message"], rows[index].message);
    }
}

TEST(Import, TheReportDoesNotDependOnThreadsOrBlocks) {
    TemporaryDirectory directory;
    const std::vector<InputFile> files{
        {directory.write("a.nt", makeFaultyLines(1, 3000)), RDFFormat::N_TRIPLES},
        {directory.write(
             "b.ttl",
             "@prefix x: <x:> .\nx:s x:p 5 , \"y\"^^<http://www.w3.org/2001/XMLSchema#int>\n. x:s x:p x:p x:p .\n"),
         RDFFormat::TURTLE},
        {directory.write("c.nq", makeFaultyLines(2, 5000)), RDFFormat::N_QUADS},
        {directory.write("d.nt", ""), RDFFormat::N_TRIPLES},
    };
    const std::string rejectedPath = directory.getPath("rejected.nq");
    const json expected = importFiles(files, 1, LineBlocks::DEFAULT_BLOCK_SIZE, {}, rejectedPath);
    const std::string expectedRejected = readFile(rejectedPath);
    EXPECT_EQ(expected["total"]["malformed"], 721);
    EXPECT_EQ(expected["files"][0]["error"]["line"], 50);
    EXPECT_EQ(expected["files"][0]["error"]["column"], 29);
    EXPECT_NE(expected["files"][2]["error"]["message"].get<std::string>().find("50 damaged lines"), std::string::npos);
    EXPECT_EQ(expected["files"][1]["error"]["line"], 3);
    EXPECT_EQ(expected["rejectedExamples"].size(), 10u);
    for (const unsigned numberOfThreads : {1u, 2u, 8u})
        for (const size_t blockSize : {size_t(500), size_t(20000)}) {
            SCOPED_TRACE(std::to_string(numberOfThreads) + " threads, blocks of " + std::to_string(blockSize));
            EXPECT_EQ(importFiles(files, numberOfThreads, blockSize, {}, rejectedPath), expected);
            EXPECT_EQ(readFile(rejectedPath), expectedRejected);
        }
}

TEST(Import, RejectedStatementsCanBeImportedAgain) {
    TemporaryDirectory directory;
    const std::string first = directory.getPath("first.nq");
    const std::string second = directory.getPath("second.nq");
    const json report = importFiles(
        {{DATA + "mixed.nt", RDFFormat::N_TRIPLES}, {DATA + "mixed.ttl", RDFFormat::TURTLE}}, 2,
        LineBlocks::DEFAULT_BLOCK_SIZE, {}, first);
    const json again = importFiles({{first, RDFFormat::N_QUADS}}, 2, LineBlocks::DEFAULT_BLOCK_SIZE, {}, second);
    EXPECT_EQ(again["total"]["literals"], 8);
    EXPECT_EQ(again["total"]["accepted"], 0);
    EXPECT_TRUE(again["files"][0]["error"].is_null());
    for (const char* reason : {"malformed", "outOfRange", "beyondCapacity"})
        EXPECT_EQ(again["total"][reason], report["total"][reason]);
    const std::string text = readFile(first);
    EXPECT_NE(
        text.find("<http://example.org/base/relative> <http://example.org/q> "
                  "\"300\"^^<http://www.w3.org/2001/XMLSchema#byte> .\n"),
        std::string::npos);
    EXPECT_NE(text.find("\"4\\n2\"^^"), std::string::npos);
    EXPECT_NE(text.find("_:f1_b <http://example.org/p> \"128\""), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8);
}

TEST(Import, AnImportWithoutRejectedStatementsLeavesAnEmptyFile) {
    TemporaryDirectory directory;
    const std::string input = directory.write("good.ttl", "<s> <p> 5 .");
    const std::string rejected = directory.write("rejected.nq", "from an earlier import");
    importFiles({{input, RDFFormat::TURTLE}}, 1, LineBlocks::DEFAULT_BLOCK_SIZE, {}, rejected);
    EXPECT_EQ(readFile(rejected), "");
    EXPECT_EQ(
        std::distance(
            std::filesystem::directory_iterator(std::filesystem::path(input).parent_path()),
            std::filesystem::directory_iterator()),
        2);
}

TEST(Import, TrimmingAcceptsWhiteSpaceAroundAForm) {
    const json report = importFiles(
        {{DATA + "mixed.nt", RDFFormat::N_TRIPLES}}, 1, LineBlocks::DEFAULT_BLOCK_SIZE, {.m_isTrimming = true});
    EXPECT_EQ(report["datatypes"]["xsd:int"]["accepted"], 2);
    EXPECT_EQ(report["datatypes"]["xsd:int"]["nonCanonical"], 1);
    EXPECT_EQ(report["datatypes"]["xsd:int"]["distinctValues"], 1);
}

TEST(Import, StrictStopsAtTheFirstFault) {
    const json report = importFiles(
        {{DATA + "mixed.nt", RDFFormat::N_TRIPLES}, {DATA + "mixed.ttl", RDFFormat::TURTLE}}, 1,
        LineBlocks::DEFAULT_BLOCK_SIZE, {.m_isStrict = true});
    EXPECT_EQ(report["rejectedExamples"].size(), 1u);
    EXPECT_EQ(report["rejectedExamples"][0]["line"], 5);
    EXPECT_EQ(report["files"][1]["statements"], 0);
    const json damaged = importFiles(
        {{DATA + "damaged.ttl", RDFFormat::TURTLE}, {DATA + "mixed.nt", RDFFormat::N_TRIPLES}}, 1,
        LineBlocks::DEFAULT_BLOCK_SIZE, {.m_isStrict = true});
    EXPECT_EQ(damaged["total"]["literals"], 4); // the larger file comes first
}

TEST(Import, ADamagedFileDoesNotHinderTheOthers) {
    const json report = importFiles(
        {{DATA + "damaged.ttl", RDFFormat::TURTLE},
         {"/nonexistent.nt", RDFFormat::N_TRIPLES},
         {DATA + "mixed.nt", RDFFormat::N_TRIPLES}},
        2);
    EXPECT_EQ(report["files"][0]["error"]["line"], 3);
    EXPECT_EQ(report["files"][0]["error"]["column"], 9);
    EXPECT_EQ(report["files"][0]["error"]["message"], "missing ';' or '.'");
    EXPECT_EQ(report["files"][0]["statements"], 2);
    EXPECT_TRUE(report["files"][1]["error"]["line"].is_null());
    EXPECT_EQ(report["files"][2]["statements"], 13);
}

TEST(Import, AReachedLimitStopsAllAndIsReported) {
    TemporaryDirectory directory;
    std::string content;
    for (int number = 0; number < 200000; ++number)
        content += "<x:s> <x:p> \"" + std::to_string(number) + "\"^^<http://www.w3.org/2001/XMLSchema#integer> .\n";
    const std::string path = directory.write("many.nt", content);
    Dictionary dictionary({.memoryBudgetBytes = 1 << 20});
    ImportProgress progress;
    Import import(dictionary, ImportOptions{{{path, RDFFormat::N_TRIPLES}}, 4, {}, "", 10000}, progress);
    const ImportReport report = import.run();
    ASSERT_TRUE(report.m_limitMessage.has_value());
    EXPECT_NE(report.m_limitMessage->find("--memory"), std::string::npos);
    EXPECT_EQ(report.getExitCode(), 3);
    EXPECT_GT(report.m_total.m_accepted, 0u);
    EXPECT_LT(report.m_total.m_accepted, 200000u);
    EXPECT_EQ(report.m_total.m_accepted, report.m_total.m_distinctValues);
}

// One thread meets the literals in their order, and so does the loop that enters them one at a time.
TEST(Import, AReachedLimitLeavesWhatEnteringOneAtATimeLeaves) {
    TemporaryDirectory directory;
    std::string content;
    const std::vector<std::pair<std::string, std::string>> literals = makeLiterals(content);
    const std::string path = directory.write("many.nt", content);
    for (const uint64_t budget : {uint64_t(600) << 10, uint64_t(1) << 20, uint64_t(64) << 20}) {
        SCOPED_TRACE(budget);
        uint64_t entered = 0;
        uint64_t nonCanonical = 0;
        Dictionary model({.memoryBudgetBytes = budget});
        Transaction transaction(model);
        // A single value that is there may need room and fail too. In a batch it does not, so the import continues to
        // the first value that is absent.
        for (bool isFull = false; entered != literals.size(); ++entered) {
            const auto& [form, datatypeIRI] = literals[entered];
            try {
                if (!isFull)
                    transaction.resolve(form, datatypeIRI);
            }
            catch (const KavixException&) {
                isFull = true;
            }
            const uint64_t resourceID = model.tryResolve(form, datatypeIRI);
            if (resourceID == 0)
                break;
            nonCanonical += model.getLexicalForm(resourceID) != form;
        }
        transaction.commit();
        Dictionary dictionary({.memoryBudgetBytes = budget});
        ImportProgress progress;
        const ImportReport report =
            Import(dictionary, ImportOptions{{{path, RDFFormat::N_TRIPLES}}, 1, {}, "", 3000}, progress).run();
        EXPECT_EQ(report.m_limitMessage.has_value(), entered < literals.size());
        EXPECT_EQ(report.m_total.m_accepted, entered);
        EXPECT_EQ(report.m_total.m_nonCanonical, nonCanonical);
        EXPECT_EQ(dictionary.countResourcesByDatatypeID(), model.countResourcesByDatatypeID());
        EXPECT_EQ(
            dictionary.tryResolve(literals[entered - 1].first, literals[entered - 1].second),
            model.tryResolve(literals[entered - 1].first, literals[entered - 1].second));
        EXPECT_GE(report.m_total.m_literals, report.m_total.m_accepted + report.m_total.getRejected());
        EXPECT_LE(report.m_total.m_literals, report.m_total.m_accepted + report.m_total.getRejected() + 1024);
    }
}

TEST(Import, WhatComesBeforeAStrictStopIsEntered) {
    TemporaryDirectory directory;
    std::string content;
    for (int number = 0; number < 1500; ++number)
        content += "<x:s> <x:p> \"" + std::to_string(number) + "\"^^<http://www.w3.org/2001/XMLSchema#int> .\n";
    const std::string rejectedLine = "<x:s> <x:p> \"x\"^^<http://www.w3.org/2001/XMLSchema#int> .\n";
    const std::string goodLine = "<x:s> <x:p> \"7000\"^^<http://www.w3.org/2001/XMLSchema#int> .\n";
    for (const std::string& fault : {rejectedLine, std::string("<x:s> <x:p>\n")}) {
        SCOPED_TRACE(fault);
        const json report = importFiles(
            {{directory.write("strict.nt", content + fault + goodLine), RDFFormat::N_TRIPLES}}, 1,
            LineBlocks::DEFAULT_BLOCK_SIZE, {.m_isStrict = true});
        EXPECT_EQ(report["total"]["accepted"], 1500);
        EXPECT_EQ(report["total"]["distinctValues"], 1500);
    }
    // A limit that was reached before a rejected literal comes first.
    Dictionary dictionary({.memoryBudgetBytes = 256 << 10});
    std::string manyLines;
    for (int number = 0; number < 1000; ++number)
        manyLines += "<x:s> <x:p> \"" + std::to_string(number) + "\"^^<http://www.w3.org/2001/XMLSchema#integer> .\n";
    ImportProgress progress;
    const ImportReport report = Import(
                                    dictionary,
                                    ImportOptions{
                                        {{directory.write("limit.nt", manyLines + rejectedLine), RDFFormat::N_TRIPLES}},
                                        1,
                                        {.m_isStrict = true},
                                        ""},
                                    progress)
                                    .run();
    EXPECT_TRUE(report.m_limitMessage.has_value());
    EXPECT_FALSE(report.m_isStoppedByStrict);
    EXPECT_EQ(report.m_total.getRejected(), 0u);
}
