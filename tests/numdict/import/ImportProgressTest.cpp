#include "numdict/import/ImportProgress.h"

#include <gtest/gtest.h>

#include <cstdint>

using namespace kavix::numdict;

TEST(ImportProgress, TheTimeLeftIsShownIfTheTotalIsKnown) {
    const struct {
        uint64_t fileBytesRead;
        uint64_t totalFileBytes;
        uint64_t literals;
        double seconds;
        const char* expected;
    } rows[] = {
        {1 << 20, 4 << 20, 1000, 10, "1.0 MiB, 25.0%, 1,000 literals, 100/s, 30.0 s left"},
        {1 << 20, 0, 1000, 10, "1.0 MiB, 1,000 literals, 100/s"},
        {0, 100, 0, 0, "0 bytes, 0.0%, 0 literals"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expected);
        ImportProgress progress;
        progress.m_fileBytesRead = row.fileBytesRead;
        progress.m_literals = row.literals;
        progress.m_totalFileBytes = row.totalFileBytes;
        EXPECT_EQ(progress.describe(row.seconds), row.expected);
    }
}
