#include "numdict/input/RDFFormat.h"

#include <gtest/gtest.h>

#include <optional>

using namespace kavix::numdict;

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
