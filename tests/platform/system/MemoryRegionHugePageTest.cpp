#include "core/platform/system/MemoryRegion.h"

#include "core/platform/stream/MemoryInputStream.h"
#include "core/platform/system/VMPageSize.h"
#include "support/Bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace kavix {

namespace {

constexpr uint64_t AMPLE = uint64_t(1) << 40;
constexpr size_t HUGE = size_t(1) << 21;

/// Asks the system whether a page can be read, by having it do so. Past a sanitizer's wrapper of write(), which objects
/// to memory that is not ours.
bool isAccessible(const void* address) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const bool result = ::syscall(SYS_write, ends[1], address, 1) == 1;
    ::close(ends[0]);
    ::close(ends[1]);
    return result;
}

/// How many bytes from the beginning of a region on are accessible; they must be the only ones of those reserved.
size_t measureAccessibleBytes(const MemoryRegion<uint8_t>& region, size_t reservedBytes) {
    const size_t page = getVMPageSize();
    size_t result = 0;
    while (result < reservedBytes && isAccessible(region.getData() + result))
        result += page;
    for (size_t offset = result; offset < reservedBytes; offset += page)
        EXPECT_FALSE(isAccessible(region.getData() + offset)) << offset;
    return result;
}

size_t countResidentPages(const uint8_t* begin, size_t numberOfBytes) {
    std::vector<unsigned char> isResident(numberOfBytes / getVMPageSize());
    EXPECT_EQ(::mincore(const_cast<uint8_t*>(begin), numberOfBytes, isResident.data()), 0);
    return static_cast<size_t>(
        std::count_if(isResident.begin(), isResident.end(), [](unsigned char flags) { return flags & 1; }));
}

/// Whether the system was asked for huge pages at an address, as it says itself.
bool isAdvised(const void* address) {
    std::ifstream maps("/proc/self/smaps");
    bool isInRange = false;
    for (std::string line; std::getline(maps, line);) {
        unsigned long begin, end;
        if (std::sscanf(line.c_str(), "%lx-%lx ", &begin, &end) == 2)
            isInRange = begin <= reinterpret_cast<uintptr_t>(address) && reinterpret_cast<uintptr_t>(address) < end;
        else if (isInRange && line.rfind("VmFlags:", 0) == 0)
            return (line + ' ').find(" hg ") != std::string::npos;
    }
    return false;
}

bool systemHasHugePages() {
    return std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled").good();
}

size_t roundUp(size_t number, size_t unit) {
    return (number + unit - 1) / unit * unit;
}

/// The same life with and without huge pages: everything observable about it.
std::vector<size_t> live(bool useHugePages, size_t capacity, std::string& bytes) {
    std::vector<size_t> seen;
    MemoryManager memoryManager(AMPLE, useHugePages);
    MemoryRegion<uint64_t> region(memoryManager);
    MemoryRegion<uint64_t> other(memoryManager);
    const auto look = [&] {
        for (const MemoryRegion<uint64_t>* each : {&region, &other})
            seen.insert(seen.end(), {each->getEnd(), each->getCommittedBytes(), each->getMaximumNumberOfItems()});
        seen.push_back(memoryManager.getChargedBytes());
        uint64_t sum = 0;
        for (size_t index = 0; index < region.getEnd(); index += 97)
            sum = sum * 31 + region[index];
        seen.push_back(sum);
    };
    const auto fill = [&](uint64_t word) {
        for (size_t index = 0; index < region.getEnd(); ++index)
            region[index] ^= word + index; // also of what must be zero
    };
    region.initialize(capacity);
    look();
    for (size_t n = 1; n <= capacity; n = n * 2 + 333) {
        region.ensureEndAtLeast(n);
        fill(n);
        look();
    }
    for (const size_t n : {capacity - capacity / 3, capacity / 2, capacity / 2 - 100, capacity / 7, size_t(1)}) {
        region.truncate(n);
        look();
        region.ensureEndAtLeast(std::min(capacity, n + n / 2 + 700));
        look();
        fill(n);
    }
    other.initialize(100);
    other.ensureEndAtLeast(3);
    region.swapContents(other);
    look();
    region.ensureEndAtLeast(100);
    region.swapContents(other);
    region.ensureEndAtLeast(capacity);
    look();
    bytes = test::saveToBytes(region);
    MemoryInputStream input(bytes);
    other.load(input);
    look();
    EXPECT_EQ(std::memcmp(other.getData(), region.getData(), region.getEnd() * 8), 0);
    region.truncate(0);
    look();
    region.deinitialize();
    look();
    return seen;
}

}

TEST(MemoryRegionHugePage, ChargesEndsAndContentsAreThoseWithoutHugePages) {
    for (const size_t capacity :
         {size_t(1000), 2 * HUGE / 8 - 1024, 2 * HUGE / 8 - 512, 2 * HUGE / 8 - 511, 2 * HUGE / 8, 2 * HUGE / 8 + 1,
          5 * HUGE / 8 + 777}) {
        SCOPED_TRACE(capacity);
        std::string bytes, hugeBytes;
        EXPECT_EQ(live(true, capacity, hugeBytes), live(false, capacity, bytes));
        EXPECT_EQ(hugeBytes == bytes, true);
    }
}

TEST(MemoryRegionHugePage, GrowthIsToTheEndOfAHugePageButNotBeyondTheReservation) {
    const size_t page = getVMPageSize();
    for (const size_t reserved : {2 * HUGE, 3 * HUGE + 5 * page}) {
        MemoryManager memoryManager(AMPLE, true);
        // The system usually reserves right below the last reservation, so what follows is inaccessible. A region that
        // lands in a gap elsewhere stays, and fills it.
        std::vector<std::unique_ptr<MemoryRegion<uint8_t>>> regions;
        do {
            regions.push_back(std::make_unique<MemoryRegion<uint8_t>>(memoryManager));
            regions.back()->initialize(reserved - 3);
        } while (regions.size() < 100 && (regions.size() == 1 || isAccessible(regions.back()->getData() + reserved)));
        MemoryRegion<uint8_t>& region = *regions.back();
        ASSERT_FALSE(isAccessible(region.getData() + reserved));
        for (const size_t n : {size_t(1), page + 1, HUGE - 1, HUGE + 7, 2 * HUGE - 9, reserved - 4, reserved - 3}) {
            SCOPED_TRACE(n);
            region.ensureEndAtLeast(n);
            const uintptr_t begin = reinterpret_cast<uintptr_t>(region.getData());
            EXPECT_EQ(
                measureAccessibleBytes(region, reserved),
                std::min(reserved, roundUp(begin + region.getCommittedBytes(), HUGE) - begin));
            EXPECT_EQ(memoryManager.getChargedBytes(), roundUp(n, page));
            EXPECT_FALSE(isAccessible(region.getData() + reserved));
        }
    }
}

TEST(MemoryRegionHugePage, SmallRegionsAndRegionsWithoutHugePagesAreAccessibleAsFarAsCommitted) {
    const size_t page = getVMPageSize();
    const struct {
        bool useHugePages;
        size_t reserved;
    } rows[] = {{true, 2 * HUGE - page}, {false, 2 * HUGE}, {false, 4 * HUGE}};
    for (const auto& row : rows) {
        MemoryManager memoryManager(AMPLE, row.useHugePages);
        MemoryRegion<uint8_t> region(memoryManager);
        region.initialize(row.reserved);
        for (const size_t n : {size_t(1), HUGE + 1, row.reserved - page}) {
            region.ensureEndAtLeast(n);
            EXPECT_EQ(measureAccessibleBytes(region, row.reserved), roundUp(n, page));
        }
        EXPECT_FALSE(isAdvised(region.getData()));
    }
}

TEST(MemoryRegionHugePage, TruncationReleasesEverythingBeyondWhatIsKept) {
    const size_t page = getVMPageSize();
    const size_t reserved = 4 * HUGE;
    for (const size_t kept : {size_t(0), page, HUGE, HUGE + 3 * page, 2 * HUGE + page}) {
        SCOPED_TRACE(kept);
        MemoryManager memoryManager(AMPLE, true);
        MemoryRegion<uint8_t> region(memoryManager);
        region.initialize(reserved);
        region.ensureEndAtLeast(2 * HUGE + HUGE / 2);
        std::memset(region.getData(), 0xff, region.getEnd());
        region.truncate(kept);
        EXPECT_EQ(region.getCommittedBytes(), kept);
        EXPECT_EQ(memoryManager.getChargedBytes(), kept);
        EXPECT_EQ(measureAccessibleBytes(region, reserved), kept);
        EXPECT_EQ(countResidentPages(region.getData() + kept, reserved - kept), 0u);
        region.ensureEndAtLeast(reserved);
        EXPECT_EQ(memoryManager.getChargedBytes(), reserved);
        EXPECT_TRUE(std::all_of(region.getData(), region.getData() + kept, [](uint8_t byte) { return byte == 0xff; }));
        EXPECT_TRUE(
            std::all_of(region.getData() + kept, region.getData() + reserved, [](uint8_t byte) { return byte == 0; }));
    }
}

TEST(MemoryRegionHugePage, TheSystemIsAskedForHugePagesAlsoAfterTruncation) {
    if (!systemHasHugePages())
        GTEST_SKIP() << "the system has no huge pages";
    MemoryManager memoryManager(AMPLE, true);
    MemoryRegion<uint8_t> region(memoryManager);
    region.initialize(6 * HUGE);
    const auto expectAdvised = [&] {
        for (size_t offset = 0; offset < 6 * HUGE; offset += HUGE / 2)
            EXPECT_TRUE(isAdvised(region.getData() + offset)) << offset;
    };
    expectAdvised();
    region.ensureEndAtLeast(4 * HUGE);
    expectAdvised();
    region.truncate(HUGE + 5);
    expectAdvised();
    region.ensureEndAtLeast(6 * HUGE);
    expectAdvised();
    region.truncate(0);
    expectAdvised();
}

TEST(MemoryRegionHugePage, ExchangedRegionsKeepTheirOwnPages) {
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(AMPLE, true);
    MemoryRegion<uint8_t> large(memoryManager);
    MemoryRegion<uint8_t> small(memoryManager);
    large.initialize(4 * HUGE);
    small.initialize(4 * page);
    large.ensureEndAtLeast(3 * HUGE);
    small.ensureEndAtLeast(1);
    large.swapContents(small);
    EXPECT_EQ(measureAccessibleBytes(large, 4 * page), page);
    large.ensureEndAtLeast(4 * page);
    std::memset(large.getData(), 1, 4 * page);
    EXPECT_GE(measureAccessibleBytes(small, 4 * HUGE), 3 * HUGE);
    small.truncate(HUGE);
    EXPECT_EQ(measureAccessibleBytes(small, 4 * HUGE), HUGE);
    small.ensureEndAtLeast(4 * HUGE);
    std::memset(small.getData(), 1, 4 * HUGE);
    large.initialize(4 * HUGE); // nothing of the old one counts
    large.ensureEndAtLeast(4 * HUGE);
    std::memset(large.getData(), 1, 4 * HUGE);
    EXPECT_EQ(memoryManager.getChargedBytes(), 8 * HUGE);
}

}
