#include "numdict/StoreSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

using namespace kavix::numdict;
using nlohmann::json;

TEST(DumpCommand, ExitCodesTellWhatHappened) {
    const StoreFolder folder;
    const ExpectedEnd rows[] = {
        {"dump well", "dump " + folder.m_store, 0, ""},
        {"dump in no format", "dump --format xml " + folder.m_store, 2, "text, csv, jsonl, ntriples"},
        {"dump to a full disk", "dump " + folder.m_store + " > /dev/full", 4, "standard output"},
        {"dump to nowhere", "dump " + folder.m_store + " -o /nonexistent/d", 4, "/nonexistent/d"},
        {"dump to a device", "dump " + folder.m_store + " -o /dev/full", 4, "/dev/full"},
        {"dump a damaged store", "dump " + folder.m_damaged, 4, "cannot be opened"},
    };
    folder.expectEnds(rows);
}

TEST(DumpCommand, EveryFormatIsWritten) {
    TemporaryDirectory directory;
    const std::string store =
        importTurtle(directory, "s", "<s> <p> 5 , 0.5 , \"7\"^^<http://www.w3.org/2001/XMLSchema#int> .");
    const struct {
        const char* format;
        const char* expected;
    } rows[] = {
        {"text", "1\txsd:integer\t5\n2\txsd:decimal\t0.5\n3\txsd:int\t\"7\"^^xsd:int\n"},
        {"csv", "id,datatype,literal\n1,xsd:integer,5\n2,xsd:decimal,0.5\n3,xsd:int,\"\"\"7\"\"^^xsd:int\"\n"},
        {"jsonl", "{\"id\":1,\"datatype\":\"xsd:integer\",\"literal\":\"5\"}\n{\"id\":2,\"datatype\":\"xsd:decimal\","
                  "\"literal\":\"0.5\"}\n{\"id\":3,\"datatype\":\"xsd:int\",\"literal\":\"\\\"7\\\"^^xsd:int\"}\n"},
        {"ntriples", "<urn:kavix:resource:1> <http://www.w3.org/1999/02/22-rdf-syntax-ns#value> "
                     "\"5\"^^<http://www.w3.org/2001/XMLSchema#integer> .\n"
                     "<urn:kavix:resource:2> <http://www.w3.org/1999/02/22-rdf-syntax-ns#value> "
                     "\"0.5\"^^<http://www.w3.org/2001/XMLSchema#decimal> .\n"
                     "<urn:kavix:resource:3> <http://www.w3.org/1999/02/22-rdf-syntax-ns#value> "
                     "\"7\"^^<http://www.w3.org/2001/XMLSchema#int> .\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(runProgram(std::string("dump --format ") + row.format + " " + store).m_output, row.expected);
        EXPECT_EQ(
            runProgram(std::string("dump --format ") + row.format + " " + store + " -o " + directory.getPath("dump"))
                .m_output,
            "");
        EXPECT_EQ(readFile(directory.getPath("dump")), row.expected);
    }
    // What is written as N-Triples can be imported.
    directory.write("dump.nt", rows[3].expected);
    EXPECT_EQ(
        json::parse(
            runProgram("import --json --quiet " + directory.getPath("dump.nt")).m_output)["total"]["distinctValues"],
        3);
}
