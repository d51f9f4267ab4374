#include "core/platform/system/HugePages.h"

#include "core/platform/system/MemoryManager.h"
#include "core/platform/system/MemoryRegion.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <string>

using namespace kavix;

namespace {

constexpr size_t REGION_BYTES = size_t(16) << 20;

/// Whether the system gives huge pages to those who ask.
bool areHugePagesGranted() {
    std::ifstream file("/sys/kernel/mm/transparent_hugepage/enabled");
    std::string text;
    std::getline(file, text);
    return text.find("[madvise]") != std::string::npos || text.find("[always]") != std::string::npos;
}

uint64_t getBytesOfRegion(bool useHugePages) {
    const uint64_t before = tryGetHugePageBytes().value_or(0);
    MemoryManager memoryManager(2 * REGION_BYTES, useHugePages);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(REGION_BYTES / sizeof(uint64_t));
    region.ensureEndAtLeast(REGION_BYTES / sizeof(uint64_t));
    for (size_t index = 0; index < region.getEnd(); index += 512)
        region[index] = index;
    return tryGetHugePageBytes().value_or(0) - before;
}

}

TEST(HugePages, OnlyMappingsThatAskedAreAddedUp) {
    HugePageCounter counter;
    for (const char* line : {
             "7f0000000000-7f0000400000 rw-p 00000000 00:00 0 ",
             "Rss:                4096 kB",
             "AnonHugePages:      4096 kB",
             "VmFlags: rd wr mr mw me ac sd hg ",
             "7f0000400000-7f0000800000 rw-p 00000000 00:00 0 ",
             "AnonHugePages:      2048 kB",
             "VmFlags: rd wr mr mw me ac sd ",
             "7f0000800000-7f0000a00000 rw-p 00000000 00:00 0 ",
             "AnonHugePages:     10240 kB",
             "VmFlags: hg",
             "7f0000a00000-7f0000c00000 rw-p 00000000 00:00 0 ",
             "VmFlags: rd hg ", // says nothing of huge pages: not those of the mapping before
             "7f0000c00000-7f0000e00000 rw-p 00000000 00:00 0 ",
             "AnonHugePages:",
             "VmFlags: rd hg ",
             "7f0000e00000-7f0001000000 rw-p 00000000 00:00 0 ",
             "AnonHugePages:      6144 kB",
             "VmFlags: rd nh ",
         })
        counter.addLine(line);
    EXPECT_EQ(counter.getBytes(), uint64_t(4096 + 10240) * 1024);
}

TEST(HugePages, ARegionThatAsksIsCountedIfTheSystemGrantsThem) {
    if (!tryGetHugePageBytes() || !areHugePagesGranted())
        GTEST_SKIP() << "the system gives no huge pages, or does not tell";
    const uint64_t bytes = getBytesOfRegion(true);
    EXPECT_GT(bytes, 0u);
    EXPECT_LE(bytes, REGION_BYTES);
    EXPECT_EQ(bytes % (size_t(1) << 21), 0u);
}

TEST(HugePages, ARegionThatDoesNotAskIsNotCounted) {
    EXPECT_EQ(getBytesOfRegion(false), 0u);
}
