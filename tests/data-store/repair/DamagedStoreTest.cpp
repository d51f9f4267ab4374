#include "core/data-store/repair/DamagedStore.h"

#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

void expectUnreadable(const std::string& bytes) {
    const DamagedStore store(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    EXPECT_FALSE(store.isReadable());
    EXPECT_FALSE(store.getProblems().empty());
}

TEST(DamagedStore, AnIntactStoreHasNoProblemsAndItsBeginningIsUnchanged) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const std::string bytes = SampleStore(width).toBytes();
        const DamagedStore store(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ASSERT_TRUE(store.isReadable());
        EXPECT_EQ(store.getProblems(), std::vector<std::string>());
        EXPECT_EQ(store.getResourceIDWidth(), width);
        EXPECT_EQ(store.getNextResourceID(), SampleStore::NEXT_RESOURCE_ID);
        EXPECT_EQ(store.getMaxResourceID(), SampleStore::MAX_RESOURCE_ID);
        EXPECT_EQ(store.getNumberOfResources(), 4u);
        const std::vector<uint8_t> beginning = store.makeIntactFrame();
        EXPECT_EQ(std::string(beginning.begin(), beginning.end()), bytes.substr(0, beginning.size()));
    }
}

TEST(DamagedStore, TheCorrectedBeginningMakesADamagedStorePassItsChecksums) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const size_t position : {0u, 9u, 12u, 17u, 20u, 33u, 41u, 57u, 73u, 97u, 241u, 248u, 256u, 264u}) {
            SCOPED_TRACE(position);
            std::string bytes = SampleStore(width).toBytes();
            bytes[position] ^= 0x40;
            const DamagedStore store(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ASSERT_TRUE(store.isReadable());
            EXPECT_EQ(store.getResourceIDWidth(), width);
            const std::vector<uint8_t> beginning = store.makeIntactFrame();
            std::string corrected(bytes);
            corrected.replace(0, beginning.size(), std::string(beginning.begin(), beginning.end()));
            if (position < 256 ||
                position >= 264) { // the maximum resource ID is also in the image, which is not corrected
                expectEqual(*openStore(corrected), *openStore(SampleStore(width).toBytes()));
            }
        }
}

TEST(DamagedStore, AnotherVersionOrByteOrderIsNotRepaired) {
    StoreImage image = SampleStore(ResourceIDWidth::BITS_32).toImage();
    image.m_formatVersion = 2;
    expectUnreadable(image.toBytes());
    image.m_formatVersion = 1;
    image.m_byteOrderMark = 0x04030201;
    expectUnreadable(image.toBytes());
}

}

}
