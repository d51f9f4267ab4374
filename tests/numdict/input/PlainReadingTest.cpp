#include "numdict/input/PlainReading.h"

#include "numdict/GeneratedStatements.h"
#include "numdict/ProgramRunner.h"
#include "numdict/console/Failures.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using namespace kavix::numdict;

TEST(PlainReading, EveryStatementIsReadOnceByAnyNumberOfThreads) {
    TemporaryDirectory directory;
    // More than one piece of a block, damaged lines in some, and a last line without end.
    std::string damaged = makeStatements(1, 2000);
    damaged +=
        "<x:s> <x:p>\n" + makeStatements(2, 3000) + "<x:s> <x:p> \"unended\n\n# comment\n" + makeStatements(3, 1);
    damaged.pop_back();
    const struct {
        const char* name;
        std::vector<InputFile> files;
        uint64_t statements;
    } rows[] = {
        {"nothing", {{directory.write("empty.nt", ""), RDFFormat::N_TRIPLES}}, 0},
        {"lines", {{directory.write("good.nt", makeStatements(4, 1500)), RDFFormat::N_TRIPLES}}, 1500},
        {"damaged lines", {{directory.write("damaged.nq", damaged), RDFFormat::N_QUADS}}, 5001},
        {"Turtle",
         {{directory.write("a.ttl", "@prefix x: <x:> . x:s x:p 1 , 2 , 3 ; x:q [ x:r 4 ] ."), RDFFormat::TURTLE}},
         5},
        {"several",
         {{directory.getPath("good.nt"), RDFFormat::N_TRIPLES},
          {directory.getPath("a.ttl"), RDFFormat::TURTLE},
          {directory.getPath("damaged.nq"), RDFFormat::N_QUADS},
          {directory.getPath("empty.nt"), RDFFormat::N_TRIPLES}},
         6506},
    };
    for (const auto& row : rows)
        for (const unsigned numberOfThreads : {1u, 2u, 5u}) {
            SCOPED_TRACE(row.name + std::string(", threads: ") + std::to_string(numberOfThreads));
            EXPECT_EQ(readPlainly(row.files, numberOfThreads), row.statements);
        }
    EXPECT_THROW(readPlainly({{directory.getPath("missing.ttl"), RDFFormat::TURTLE}}, 2), InputFailure);
    EXPECT_THROW(readPlainly({{directory.getPath("missing.nt"), RDFFormat::N_TRIPLES}}, 2), InputFailure);
}
