#include "core/data-store/repair/StoreRepair.h"

#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/repair/DamagedStore.h"
#include "support/FaultInjection.h"
#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

TEST(StoreRepair, ABoundBeyondTheAddressSpaceIsLowered) {
    SampleStore sample(ResourceIDWidth::BITS_64);
    sample.setMaxResourceID(Dictionary::MAX_RESOURCE_ID_64);
    const std::string bytes = sample.toBytes();
    const DamagedStore store(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    const StoreRepair repair(store);
    const Fault fault(Call::MMAP, 1);
    const std::unique_ptr<Dictionary> repaired =
        repair.rebuild(uint64_t(1) << 30, false, [](std::string&& loss) { ADD_FAILURE() << loss; });
    EXPECT_TRUE(fault.wasHit());
    uint64_t counters[2];
    std::memcpy(counters, StoreImage::fromBytes(saveStore(*repaired))["counters"].m_bytes.data(), sizeof(counters));
    EXPECT_EQ(counters[1], Dictionary::MIN_MAX_RESOURCE_ID);
    EXPECT_EQ(listResources(*repaired, 7), (std::vector<std::string>{"1 0.5", "2 -2", "4 \"7\"^^xsd:int", "5 -12.25"}));
}

}

}
