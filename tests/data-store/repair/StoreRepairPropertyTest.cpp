#include "core/data-store/repair/StoreRepair.h"

#include "core/data-store/numbers/XSDDecimal.h"
#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace kavix;
using namespace kavix::test;

namespace {

/// "17: 0.5" by resource ID.
using Resources = std::map<uint64_t, std::string>;

std::string describe(const ResourceValue& value) {
    return std::to_string(value.datatypeID) + ": " +
           (value.datatypeID == D_XSD_DECIMAL ? value.getBinaryValue<XSDDecimal>().toString(false)
                                              : std::to_string(value.getBinaryValue<int64_t>()));
}

const Resources SAMPLE{{1, "22: 0.5"}, {2, "23: -2"}, {4, "29: 7"}, {5, "22: -12.25"}};

struct Outcome {
    bool m_isReadable = false;
    Resources m_saved;
    std::vector<std::string> m_losses;
};

Outcome repair(const std::string& bytes) {
    // A buffer of its own, so that a sanitizer reports every byte that is read beyond it.
    const std::vector<uint8_t> buffer(bytes.begin(), bytes.end());
    const DamagedStore store(buffer.data(), buffer.size());
    Outcome outcome;
    outcome.m_isReadable = store.isReadable();
    if (!store.isReadable()) {
        EXPECT_FALSE(store.getProblems().empty());
        return outcome;
    }
    StoreRepair(store).enumerate(
        [&outcome](uint64_t resourceID, const ResourceValue& value) { outcome.m_saved[resourceID] = describe(value); },
        [&outcome](std::string&& loss) { outcome.m_losses.push_back(std::move(loss)); });
    return outcome;
}

/// What is saved is what was there, and what is missing is said. What never was there may be called lost.
void expectNoWrongValue(const Outcome& outcome) {
    for (const auto& [resourceID, value] : outcome.m_saved) {
        const auto original = SAMPLE.find(resourceID);
        EXPECT_TRUE(original != SAMPLE.end() && original->second == value) << resourceID << " " << value;
    }
    EXPECT_GE(outcome.m_saved.size() + outcome.m_losses.size(), SAMPLE.size());
}

}

TEST(StoreRepair, NoFlippedByteLetsAWrongValueThrough) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const SampleStore sample(width);
        const std::string bytes = sample.toBytes();
        const size_t imageBegin = bytes.size() - sample.m_image.toBytes().size();
        for (const uint8_t mask : {uint8_t(1), uint8_t(0x80), uint8_t(0xff)})
            for (size_t position = 0; position < bytes.size(); position += position < imageBegin + 64 ? 1 : 997) {
                SCOPED_TRACE(position);
                std::string damaged = bytes;
                damaged[position] = static_cast<char>(damaged[position] ^ mask);
                const Outcome outcome = repair(damaged);
                ASSERT_TRUE(outcome.m_isReadable || position < 16);
                if (outcome.m_isReadable)
                    expectNoWrongValue(outcome);
                if (position >= imageBegin) {
                    EXPECT_EQ(outcome.m_saved, SAMPLE); // the arrays have it all
                }
            }
    }
}

TEST(StoreRepair, NoTwoFlippedBytesLetAWrongValueThrough) {
    std::mt19937_64 random(20240611);
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const SampleStore sample(width);
        const std::string bytes = sample.toBytes();
        const size_t imageBegin = bytes.size() - sample.m_image.toBytes().size();
        std::vector<size_t> bucketBytes; // what is not zero, and so most likely to matter
        for (size_t position = imageBegin; position < bytes.size(); ++position)
            if (bytes[position] != '\0')
                bucketBytes.push_back(position);
        for (int iteration = 0; iteration < 2000; ++iteration) {
            SCOPED_TRACE(iteration);
            std::string damaged = bytes;
            const size_t second =
                iteration % 2 == 0 ? 280 + random() % (imageBegin - 280) : bucketBytes[random() % bucketBytes.size()];
            for (const size_t position :
                 {280 + random() % (imageBegin - 280), second}) // the first is in the arrays or the pool
                damaged[position] = static_cast<char>(damaged[position] ^ static_cast<char>(1 + random() % 255));
            const Outcome outcome = repair(damaged);
            ASSERT_TRUE(outcome.m_isReadable);
            expectNoWrongValue(outcome);
        }
    }
}

TEST(StoreRepair, ACutStoreGivesWhatIsBeforeTheCut) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const SampleStore sample(width);
        const std::string bytes = sample.toBytes();
        const size_t imageBegin = bytes.size() - sample.m_image.toBytes().size();
        for (size_t length = 0; length < bytes.size(); length += length < imageBegin + 64 ? 1 : 1009) {
            SCOPED_TRACE(length);
            const Outcome outcome = repair(bytes.substr(0, length));
            ASSERT_EQ(outcome.m_isReadable, length >= 280);
            for (const auto& [resourceID, value] : outcome.m_saved)
                EXPECT_EQ(value, SAMPLE.at(resourceID));
            if (length >= imageBegin) {
                EXPECT_EQ(outcome.m_saved, SAMPLE);
            }
        }
    }
}

TEST(StoreRepair, AnyContentWithRightChecksumsGivesAConsistentDictionary) {
    std::mt19937_64 random(7);
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (int iteration = 0; iteration < 300; ++iteration) {
            SCOPED_TRACE(iteration);
            StoreImage image = SampleStore(width).toImage();
            for (int change = 0; change < 4; ++change) {
                std::string& bytes = image.m_sections[random() % image.m_sections.size()].m_bytes;
                bytes[random() % std::min<size_t>(bytes.size(), 4096)] = static_cast<char>(random());
            }
            const std::string bytes = image.toBytes();
            const std::vector<uint8_t> buffer(bytes.begin(), bytes.end());
            const DamagedStore store(buffer.data(), buffer.size());
            if (!store.isReadable())
                continue;
            const std::unique_ptr<Dictionary> dictionary =
                StoreRepair(store).rebuild(uint64_t(1) << 30, true, [](std::string&&) {});
            EXPECT_EQ(findProblems(*dictionary), std::vector<std::string>());
        }
}

TEST(StoreRepair, ABudgetThatDoesNotHoldTheDictionaryIsAnError) {
    const std::string bytes = SampleStore(ResourceIDWidth::BITS_32).toBytes();
    const DamagedStore store(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    EXPECT_THROW(StoreRepair(store).rebuild(1000, true, [](std::string&&) {}), KavixException);
}
