#include "core/platform/system/MemoryRegion.h"

#include "core/platform/stream/MemoryInputStream.h"
#include "core/platform/system/VMPageSize.h"
#include "support/Bytes.h"
#include "support/ExpectError.h"
#include "support/ShortReadInputStream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>

namespace kavix {

using test::ByteWriter;
using test::saveToBytes;

namespace {

constexpr uint64_t AMPLE = uint64_t(1) << 40;

void expectPrematureEnd(MemoryRegion<uint64_t>& region, const std::string& image) {
    MemoryInputStream input(image);
    test::expectError(
        "Engine/core/platform/stream/InputStream", 23, "Premature end of file.", [&] { region.load(input); });
}

std::string getImage(uint64_t maximum, uint64_t count) {
    ByteWriter output;
    output.put(maximum).put(count);
    for (uint64_t index = 0; index < count; ++index)
        output.put(uint64_t(index * 0x0101010101010101ULL));
    return output.getBytes();
}

}

TEST(MemoryRegionImage, AnEmptyRegionIsOneZeroWord) {
    MemoryManager memoryManager(AMPLE);
    const MemoryRegion<uint64_t> region(memoryManager);
    EXPECT_EQ(saveToBytes(region), std::string(8, '\0'));
}

TEST(MemoryRegionImage, ARegionIsItsCapacityItsEndAndItsItems) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(700);
    EXPECT_EQ(saveToBytes(region), getImage(700, 0));

    region.ensureEndAtLeast(700);
    for (uint64_t index = 0; index < 700; ++index)
        region[index] = index * 0x0101010101010101ULL;
    EXPECT_EQ(saveToBytes(region), getImage(700, 700));
}

TEST(MemoryRegionImage, LoadingIsTheInverseOfSavingForReadsOfAnySize) {
    for (const size_t maximumPerRead : {size_t(1), size_t(3), size_t(4096), std::numeric_limits<size_t>::max()}) {
        SCOPED_TRACE(maximumPerRead);
        MemoryManager memoryManager(AMPLE);
        MemoryRegion<uint64_t> region(memoryManager);
        const std::string bytes = getImage(100000, 600) + "rest";
        test::ShortReadInputStream input(bytes, maximumPerRead);
        region.load(input);
        EXPECT_EQ(input.getRemainingBytes(), 4u);
        EXPECT_EQ(region.getMaximumNumberOfItems(), 100000u);
        ASSERT_GE(region.getEnd(), 600u);
        for (uint64_t index = 0; index < region.getEnd(); ++index)
            ASSERT_EQ(region[index], index < 600 ? index * 0x0101010101010101ULL : 0);
        EXPECT_EQ(memoryManager.getChargedBytes(), region.getCommittedBytes());

        const std::string saved = saveToBytes(region);
        MemoryRegion<uint64_t> again(memoryManager);
        MemoryInputStream savedInput(saved);
        again.load(savedInput);
        EXPECT_EQ(saveToBytes(again), saved);
    }
}

TEST(MemoryRegionImage, ACapacityOfZeroReadsEightBytesAndEmptiesTheRegion) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(1000);
    region.ensureEndAtLeast(1000);
    const std::string image = getImage(0, 5);
    MemoryInputStream input(image);
    region.load(input);
    EXPECT_EQ(input.getRemainingBytes(), image.size() - 8);
    EXPECT_EQ(region.getData(), nullptr);
    EXPECT_EQ(region.getEnd(), 0u);
    EXPECT_EQ(region.getMaximumNumberOfItems(), 0u);
    EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
}

TEST(MemoryRegionImage, LoadingReplacesTheContent) {
    MemoryManager memoryManager(AMPLE);
    MemoryRegion<uint64_t> region(memoryManager);
    region.initialize(5000);
    region.ensureEndAtLeast(5000);
    region[0] = region[4999] = 77;
    const std::string image = getImage(5000, 1);
    MemoryInputStream input(image);
    region.load(input);
    EXPECT_EQ(region.getCommittedBytes(), getVMPageSize());
    EXPECT_EQ(memoryManager.getChargedBytes(), getVMPageSize());
    EXPECT_EQ(region[0], 0u);
    region.ensureEndAtLeast(5000);
    EXPECT_EQ(region[4999], 0u);
}

TEST(MemoryRegionImage, AnImageCutAnywhereEndsTooEarly) {
    const std::string image = getImage(100, 20);
    for (size_t length = 0; length < image.size(); ++length) {
        SCOPED_TRACE(length);
        MemoryManager memoryManager(AMPLE);
        MemoryRegion<uint64_t> region(memoryManager);
        expectPrematureEnd(region, image.substr(0, length));
        EXPECT_EQ(memoryManager.getChargedBytes(), region.getCommittedBytes());
        MemoryInputStream input(image);
        region.load(input); // the failure left nothing in the way
        EXPECT_EQ(region[19], 19 * 0x0101010101010101ULL);
    }
}

TEST(MemoryRegionImage, MoreItemsThanTheCapacityAreRefused) {
    for (const uint64_t count :
         {uint64_t(101), uint64_t(513), uint64_t(1) << 61, std::numeric_limits<uint64_t>::max()}) {
        SCOPED_TRACE(count);
        MemoryManager memoryManager(AMPLE);
        MemoryRegion<uint64_t> region(memoryManager);
        ByteWriter image;
        image.put(uint64_t(100)).put(count);
        MemoryInputStream input(image.getBytes());
        test::expectError(
            "Engine/core/platform/system/MemoryRegion", 242,
            "Failed to ensure that a memory region could hold " + std::to_string(count) +
                " items because it was initialized to hold at most 100 items.",
            [&] { region.load(input); });
        EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
    }
}

TEST(MemoryRegionImage, SizesThatWrapAreRefused) {
    for (const uint64_t maximum : {uint64_t(1) << 61, (uint64_t(1) << 61) + 1, std::numeric_limits<uint64_t>::max()}) {
        SCOPED_TRACE(maximum);
        MemoryManager memoryManager(AMPLE);
        MemoryRegion<uint64_t> region(memoryManager);
        ByteWriter image;
        image.put(maximum).put(uint64_t(1)).put(uint64_t(42));
        MemoryInputStream input(image.getBytes());
        test::expectSystemCallError(
            "Engine/core/platform/system/MemoryRegion", 212, "mmap", ENOMEM, "An error occurred while reserving ",
            [&] { region.load(input); });
        EXPECT_EQ(region.getData(), nullptr);
        EXPECT_EQ(memoryManager.getChargedBytes(), 0u);
    }
}

TEST(MemoryRegionImage, AnImageLargerThanTheBudgetIsRefused) {
    const size_t page = getVMPageSize();
    MemoryManager memoryManager(page);
    MemoryRegion<uint64_t> region(memoryManager);
    const std::string image = getImage(page, page / 8 + 1);
    MemoryInputStream input(image);
    test::expectOutOfMemory(page, page, 2 * page, [&] { region.load(input); });
    EXPECT_EQ(memoryManager.getFreeBytes(), page);
}

}
