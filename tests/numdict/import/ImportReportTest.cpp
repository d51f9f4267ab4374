#include "numdict/import/ImportReport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

using namespace kavix;
using namespace kavix::numdict;

TEST(RejectedExamples, TheSmallestTenAreKeptInAnyOrder) {
    RejectedExamples first;
    RejectedExamples second;
    for (uint64_t line = 40; line > 0; --line)
        (line % 3 == 0 ? first : second)
            .add(RejectedExample{line % 2, line, "", D_XSD_INT, LexicalFormStatus::MALFORMED, ""});
    first.add(std::move(second));
    const std::vector<RejectedExample> examples = first.takeAll();
    ASSERT_EQ(examples.size(), 10u);
    for (size_t index = 0; index < examples.size(); ++index) {
        EXPECT_EQ(examples[index].m_fileIndex, 0u);
        EXPECT_EQ(examples[index].m_line, 2 * (index + 1));
    }
}
