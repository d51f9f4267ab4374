// Of Import with its readers: real data has the counts that other programs found.

#include "numdict/RealData.h"
#include "core/data-store/embedding/Dictionary.h"
#include "numdict/import/Import.h"
#include "numdict/import/ImportReport.h"
#include "numdict/input/ByteSource.h"
#include "numdict/input/LineBlocks.h"
#include "numdict/input/LineReader.h"
#include "numdict/input/TurtleReader.h"
#include "numdict/literals/Datatypes.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/literals/TurtleLiteral.h"
#include "numdict/literals/TurtleText.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

using namespace kavix;
using namespace kavix::numdict;

namespace {

struct ExpectedCounts {
    uint64_t m_literals;
    uint64_t m_valid;
    uint64_t m_malformed;
    uint64_t m_outOfRange;
    uint64_t m_beyondCapacity;
    uint64_t m_distinctValues;
    std::string m_statements; // given for whole files only

    auto operator<=>(const ExpectedCounts&) const = default;
};

std::vector<std::string> splitAtTabs(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, '\t');)
        fields.push_back(field);
    return fields;
}

/// By file and datatype; "*" for all files, and for all datatypes.
std::map<std::pair<std::string, std::string>, ExpectedCounts> readExpectedCounts() {
    std::map<std::pair<std::string, std::string>, ExpectedCounts> expected;
    std::ifstream file(getDataFolder() / "expected.tsv");
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::vector<std::string> fields = splitAtTabs(line);
        fields.resize(11);
        const auto number = [&fields](size_t index) { return static_cast<uint64_t>(std::stoull(fields[index])); };
        expected[{fields[0], fields[1]}] =
            ExpectedCounts{number(2), number(3), number(4), number(5), number(6), number(9), fields[10]};
    }
    return expected;
}

ExpectedCounts toExpectedCounts(const DatatypeCounts& counts, const std::string& statements) {
    return ExpectedCounts{
        counts.m_literals,
        counts.m_accepted,
        counts.m_rejected[LexicalFormStatus::MALFORMED],
        counts.m_rejected[LexicalFormStatus::OUT_OF_RANGE],
        counts.m_rejected[LexicalFormStatus::BEYOND_CAPACITY],
        counts.m_distinctValues,
        statements};
}

ImportReport importFiles(const std::vector<std::string>& names, unsigned numberOfThreads, ResourceIDWidth width) {
    ImportOptions options;
    for (const std::string& name : names)
        options.m_files.push_back(InputFile{(getDataFolder() / name).string(), *tryGetFormatOfPath(name)});
    options.m_numberOfThreads = numberOfThreads;
    options.m_blockSize = 4096;
    Dictionary dictionary({.memoryBudgetBytes = 256 << 20, .resourceIDWidth = width});
    ImportProgress progress;
    return Import(dictionary, std::move(options), progress).run();
}

/// Passes all statements of a file to a sink.
void readStatements(const std::string& name, StatementSink& sink) {
    const std::string path = (getDataFolder() / name).string();
    const RDFFormat format = *tryGetFormatOfPath(name);
    std::atomic<uint64_t> bytesRead{0};
    if (isLineFormat(format)) {
        LineBlocks blocks(path, bytesRead);
        LineReader reader(format, "file:///f", "f1_", sink);
        LineBlock block;
        while (blocks.next(block))
            EXPECT_FALSE(reader.read(block, false).m_firstError);
    }
    else {
        ByteSource source(path, bytesRead);
        EXPECT_FALSE(TurtleReader(source, format, "file:///f", "f1_", sink).read());
    }
}

/// Counts the valid literals of each datatype whose text is another one once it was parsed and printed.
class PrintedDifferently final : public StatementSink {

public:

    bool receive(const Statement& statement, const StatementContext&) override {
        if (!statement.hasTypedLiteral() || findNumericDatatype(statement.m_datatypeIRI) == D_NONE)
            return true;
        const std::string form(statement.getLexicalForm());
        const LiteralDescription description =
            describeLiteral(makeTurtleString(form) + "^^" + getDatatypeName(statement.m_datatypeIRI));
        if (description.m_isValid)
            m_counts[description.m_datatypeID] +=
                std::get<TurtleLiteral>(parseTurtleLiteral(description.m_turtle)).m_lexicalForm != form;
        return true;
    }

    ByDatatype<uint64_t> m_counts;
};

class RealData : public testing::Test {

protected:

    void SetUp() override {
        if (!std::filesystem::exists(getDataFolder() / "expected.tsv"))
            GTEST_SKIP() << "no real data in " << getDataFolder() << "; name its folder in KAVIX_TEST_DATA";
        m_expected = readExpectedCounts();
        for (const auto& [key, counts] : m_expected)
            if (key.second == "*" && key.first != "*")
                m_names.push_back(key.first);
        ASSERT_FALSE(m_names.empty());
    }

    void check(const std::string& name, const ImportReport& report) {
        for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS) {
            const std::string datatypeName = getDatatypeName(datatypeID);
            SCOPED_TRACE(datatypeName);
            const auto expected = m_expected.find({name, datatypeName});
            const ExpectedCounts counts = toExpectedCounts(report.m_datatypes[datatypeID], "");
            EXPECT_TRUE(counts == (expected == m_expected.end() ? ExpectedCounts{} : expected->second));
        }
        EXPECT_TRUE(
            toExpectedCounts(report.m_total, std::to_string(report.getStatements())) == m_expected.at({name, "*"}));
        EXPECT_FALSE(report.hasDamagedFiles());
    }

    std::map<std::pair<std::string, std::string>, ExpectedCounts> m_expected;
    std::vector<std::string> m_names;
};

}

TEST_F(RealData, EachFileHasTheCountsThatOthersFound) {
    for (const std::string& name : m_names)
        for (const unsigned numberOfThreads : {1u, 8u})
            for (const ResourceIDWidth width : {ResourceIDWidth::BITS_32, ResourceIDWidth::BITS_64}) {
                SCOPED_TRACE(name + ", threads " + std::to_string(numberOfThreads));
                check(name, importFiles({name}, numberOfThreads, width));
            }
}

TEST_F(RealData, AllFilesTogetherHaveTheCountsThatOthersFound) {
    for (const unsigned numberOfThreads : {1u, 8u})
        for (const ResourceIDWidth width : {ResourceIDWidth::BITS_32, ResourceIDWidth::BITS_64}) {
            SCOPED_TRACE(numberOfThreads);
            check("*", importFiles(m_names, numberOfThreads, width));
        }
}

TEST_F(RealData, EachBadLiteralIsRejectedForItsReason) {
    std::map<std::string, std::map<std::string, uint64_t>> expected; // by file: "datatype reason" and how many
    std::ifstream file(getDataFolder() / "bad.tsv");
    std::string line;
    std::getline(file, line);
    uint64_t numberOfLiterals = 0;
    while (std::getline(file, line)) {
        const std::vector<std::string> fields = splitAtTabs(line);
        expected[fields[0]][fields[1] + " " + fields[2]] += std::stoull(fields[3]);
        numberOfLiterals += std::stoull(fields[3]);
    }
    EXPECT_GT(numberOfLiterals, 0u);
    const std::pair<LexicalFormStatus, const char*> kinds[] = {
        {LexicalFormStatus::MALFORMED, "bad_lexical"},
        {LexicalFormStatus::OUT_OF_RANGE, "bad_range"},
        {LexicalFormStatus::BEYOND_CAPACITY, "over_capacity"}};
    for (const std::string& name : m_names) {
        SCOPED_TRACE(name);
        const ImportReport report = importFiles({name}, 2, ResourceIDWidth::BITS_32);
        std::map<std::string, uint64_t> found;
        for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS)
            for (const auto& [reason, kind] : kinds)
                if (const uint64_t count = report.m_datatypes[datatypeID].m_rejected[reason])
                    found[getDatatypeName(datatypeID) + " " + kind] = count;
        EXPECT_TRUE(found == expected[name]);
    }
}

TEST_F(RealData, WhatIsPrintedDifferentlyIsNotCanonical) {
    uint64_t nonCanonicalDecimals = 0;
    uint64_t decimals = 0;
    for (const std::string& name : m_names) {
        SCOPED_TRACE(name);
        PrintedDifferently expected;
        readStatements(name, expected);
        const ImportReport report = importFiles({name}, 2, ResourceIDWidth::BITS_32);
        for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS)
            EXPECT_EQ(report.m_datatypes[datatypeID].m_nonCanonical, expected.m_counts[datatypeID])
                << getDatatypeName(datatypeID);
        nonCanonicalDecimals += report.m_datatypes[D_XSD_DECIMAL].m_nonCanonical;
        decimals += report.m_datatypes[D_XSD_DECIMAL].m_accepted;
    }
    // Most are in Turtle files, as their publishers' programs print them.
    EXPECT_LT(nonCanonicalDecimals, decimals / 2);
}
