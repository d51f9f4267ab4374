#include "numdict/console/Sizes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>

using namespace kavix::numdict;

TEST(Sizes, BytesAreReadWithUnits) {
    const struct {
        const char* text;
        std::optional<uint64_t> expected;
    } rows[] = {
        {"0", 0},
        {"123", 123},
        {"512M", 512ULL << 20},
        {"2G", 2ULL << 30},
        {"2GiB", 2ULL << 30},
        {"2GB", 2000000000},
        {"1.5G", 3ULL << 29},
        {"0.25K", 256},
        {"1T", 1ULL << 40},
        {"10B", 10},
        {"18446744073709551615", UINT64_MAX},
        {"18446744073709551616", std::nullopt},
        {"17179869184G", std::nullopt},
        {"", std::nullopt},
        {"G", std::nullopt},
        {"-1", std::nullopt},
        {"2 G", std::nullopt},
        {"2g", std::nullopt},
        {"1.G", std::nullopt},
        {".5G", std::nullopt},
        {"1.5", std::nullopt},
        {"1.2.3G", std::nullopt},
        {"2GiBs", std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(tryParseSize(row.text), row.expected) << row.text;
}

TEST(Sizes, CountsAreReadWithThousands) {
    EXPECT_EQ(tryParseCount("1000"), 1000u);
    EXPECT_EQ(tryParseCount("20k"), 20000u);
    EXPECT_EQ(tryParseCount("1.5M"), 1500000u);
    EXPECT_EQ(tryParseCount("2G"), 2000000000u);
    EXPECT_EQ(tryParseCount("2K"), std::nullopt);
    EXPECT_EQ(tryParseCount("many"), std::nullopt);
}

TEST(Sizes, PeopleGetRoundFigures) {
    EXPECT_EQ(formatSize(1023), "1023 bytes");
    EXPECT_EQ(formatSize(1536), "1.5 KiB");
    EXPECT_EQ(formatSize(3ULL << 30), "3.0 GiB");
    EXPECT_EQ(formatCount(0), "0");
    EXPECT_EQ(formatCount(999), "999");
    EXPECT_EQ(formatCount(1000), "1,000");
    EXPECT_EQ(formatCount(1234567), "1,234,567");
    EXPECT_EQ(formatShare(1, 8), "12.5%");
    EXPECT_EQ(formatShare(0, 0), "-");
    EXPECT_EQ(formatHugePages(4 << 20), "4.0 MiB on huge pages");
    EXPECT_EQ(formatHugePages(std::nullopt), "the system does not report huge pages");
    EXPECT_EQ(formatDuration(0.421), "0.42 s");
    EXPECT_EQ(formatDuration(59.9), "59.9 s");
    EXPECT_EQ(formatDuration(185), "3 min 5 s");
    EXPECT_EQ(formatDuration(7500), "2 h 5 min");
}
