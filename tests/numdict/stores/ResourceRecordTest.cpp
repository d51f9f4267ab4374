#include "numdict/stores/ResourceRecord.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/numbers/XSDDecimal.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>

using namespace kavix;
using namespace kavix::numdict;

namespace {

std::string parse(const std::string& line) {
    const auto parsed = parseRecord(line);
    if (const auto* message = std::get_if<std::string>(&parsed))
        return *message;
    const ResourceRecord& record = std::get<ResourceRecord>(parsed);
    std::string text;
    RecordWriter(RecordFormat::TEXT, false, 10).appendRecord(record.m_resourceID, record.m_value, text);
    return text;
}

}

TEST(ResourceRecord, WhatIsWrittenIsReadBack) {
    ResourceValue values[4];
    values[0].setBinaryValue(D_XSD_DECIMAL, XSDDecimal::fromNormalisedFields(INT64_MIN, 19));
    values[1].setBinaryValue(D_XSD_DECIMAL, XSDDecimal(7));
    values[2].setBinaryValue(D_XSD_INTEGER, int64_t(-5));
    values[3].setBinaryValue(D_XSD_NON_NEGATIVE_INTEGER, INT64_MAX);
    for (const ResourceValue& value : values)
        for (const RecordFormat format : {RecordFormat::TEXT, RecordFormat::CSV, RecordFormat::JSON_LINES})
            for (const bool isAligned : {false, true}) {
                std::string line;
                RecordWriter(format, isAligned && format == RecordFormat::TEXT, 1000000).appendRecord(123, value, line);
                SCOPED_TRACE(line);
                const auto parsed = parseRecord(line.substr(0, line.size() - 1) + (isAligned ? "\r" : ""));
                ASSERT_TRUE(std::holds_alternative<ResourceRecord>(parsed));
                const ResourceRecord& record = std::get<ResourceRecord>(parsed);
                EXPECT_EQ(record.m_resourceID, 123u);
                EXPECT_EQ(record.m_value.datatypeID, value.datatypeID);
                EXPECT_EQ(
                    std::string(record.m_value.buffer, record.m_value.buffer + 16),
                    std::string(value.buffer, value.buffer + 16));
            }
}

TEST(ResourceRecord, AlignedColumnsAreAsWideAsTheyMustBe) {
    ResourceValue value;
    value.setBinaryValue(D_XSD_INT, int64_t(5));
    std::string text;
    const RecordWriter writer(RecordFormat::TEXT, true, 1000);
    writer.appendRecord(7, value, text);
    writer.appendMissing("", "xsd:int", "x", "why", text);
    EXPECT_EQ(text, "   7  xsd:int                 \"5\"^^xsd:int\n   -  xsd:int                 x  why\n");
}

TEST(ResourceRecord, LinesAreReadWithTheirOddities) {
    const struct {
        const char* name;
        const char* line;
        const char* expected;
    } rows[] = {
        {"blanks", "  7   xsd:int  \"5\"^^xsd:int  ", "7\txsd:int\t\"5\"^^xsd:int\n"},
        {"not canonical", "7\txsd:int\t\"+05\"^^<http://www.w3.org/2001/XMLSchema#int>",
         "7\txsd:int\t\"5\"^^xsd:int\n"},
        {"CSV with quotes everywhere", "7,\"xsd:int\",\"\"\"5\"\"^^xsd:int\"\r", "7\txsd:int\t\"5\"^^xsd:int\n"},
        {"JSON in another order", "{ \"literal\": \"5\", \"more\": [1], \"datatype\": \"xsd:integer\", \"id\": 7 }",
         "7\txsd:integer\t5\n"},
        {"largest ID", "18446744073709551615 xsd:integer 5", "18446744073709551615\txsd:integer\t5\n"},
        {"ID beyond 64 bits", "18446744073709551616 xsd:integer 5", "'18446744073709551616' is not a resource ID"},
        {"negative ID", "-1 xsd:integer 5", "'-1' is not a resource ID"},
        {"ID alone", "5", "'' is not a Turtle literal: a literal is missing"},
        {"CSV without end of quotes", "7,xsd:int,\"5", "expected three comma-separated fields: ID, datatype, literal"},
        {"JSON with a text as ID", "{\"id\":\"7\",\"datatype\":\"xsd:integer\",\"literal\":\"5\"}",
         "the object needs 'id' (a number), 'datatype' and 'literal' (texts)"},
        {"JSON array", "{}[]", "not a JSON object"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parse(row.line), row.expected);
    }
}
