// Loads the image of a memory region, raw: an error that leaves the region usable, or the items of the image.

#include "FuzzSupport.h"
#include "Fuzzers.h"

#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/MemoryInputStream.h"
#include "core/platform/stream/MemoryOutputStream.h"
#include "core/platform/system/MemoryRegion.h"

#include <cstring>

namespace kavix::fuzz {

namespace {

template<typename T>
void loadRegion(const uint8_t* data, size_t size) {
    MemoryManager memoryManager(1 << 20);
    MemoryRegion<T> region(memoryManager);
    MemoryInputStream stream(data, size);
    bool isLoaded = false;
    try {
        region.load(stream);
        isLoaded = true;
    }
    catch (const KavixException&) {
        // Refused, or cut short.
    }
    require(
        memoryManager.getChargedBytes() == region.getCommittedBytes(),
        "what is committed is charged, and nothing else");
    require(region.getEnd() <= region.getMaximumNumberOfItems(), "the end is within the capacity");
    if (isLoaded && region.getMaximumNumberOfItems() != 0) {
        uint64_t end;
        std::memcpy(&end, data + sizeof(uint64_t), sizeof(end));
        require(
            region.getEnd() >= end && std::memcmp(region.getData(), data + 2 * sizeof(uint64_t), end * sizeof(T)) == 0,
            "the items are those of the image");
        MemoryOutputStream saved;
        region.save(saved);
        MemoryInputStream savedStream(saved.getContent());
        MemoryRegion<T> copy(memoryManager);
        try {
            copy.load(savedStream);
            require(
                copy.getEnd() == region.getEnd() &&
                    std::memcmp(copy.getData(), region.getData(), region.getEnd() * sizeof(T)) == 0,
                "a saved region loads");
        }
        catch (const KavixException&) {
            // The budget does not hold it twice.
        }
    }
    region.initialize(10);
    region.ensureEndAtLeast(10);
    require(region[9] == T(), "a region can be used again after any image");
}

}

}

int fuzzRegionImage(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    // The first byte chooses the size of the items.
    if ((data[0] & 1) == 0)
        kavix::fuzz::loadRegion<uint8_t>(data + 1, size - 1);
    else
        kavix::fuzz::loadRegion<uint64_t>(data + 1, size - 1);
    return 0;
}
