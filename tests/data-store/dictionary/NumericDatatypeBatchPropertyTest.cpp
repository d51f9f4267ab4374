#include "support/NumericBatches.h"
#include "support/NumericImage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

template<typename Fixture>
class NumericDatatypeBatchTest : public ::testing::Test { };

TYPED_TEST_SUITE(NumericDatatypeBatchTest, AllBatchFixtures, BatchFixtureNames);

TYPED_TEST(NumericDatatypeBatchTest, AnyMixtureOfBatchesAndSinglesDoesWhatAMapDoes) {
    using Fixture = TypeParam;
    for (const unsigned seed : {1u, 2u, 3u, 4u, 5u, 6u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        typename Fixture::Store store;
        store.initialize();
        std::map<uint64_t, uint64_t> model; // the ID of each number
        uint64_t nextResourceID = 1;
        uint64_t range = 50;
        for (int step = 0; step < 120; ++step) {
            range += random() % 100;
            const size_t n = random() % 8 == 0 ? 1000 + random() % 1200 : random() % 120;
            std::vector<uint64_t> numbers;
            for (size_t i = 0; i < n; ++i)
                numbers.push_back(random() % range);
            // Three values to a hash.
            std::vector<typename Fixture::Value> values;
            for (const uint64_t number : numbers)
                values.push_back(Fixture::makeValueWithHash(number / 3 * 5 + (number % 3 << 20)));
            const auto getID = [&](uint64_t number) {
                const auto found = model.find(number);
                return found == model.end() ? 0 : found->second;
            };
            const unsigned operation = random() % 8;
            if (operation < 4) {
                std::vector<uint64_t> expected;
                for (const uint64_t number : numbers) {
                    if (model.emplace(number, nextResourceID).second)
                        ++nextResourceID;
                    expected.push_back(model[number]);
                }
                ASSERT_EQ(
                    operation == 0 ? Fixture::resolveSingly(store, nullptr, values)
                                   : Fixture::resolveAll(store, nullptr, values),
                    expected);
                for (size_t i = 0; i < n; ++i)
                    Fixture::expectPublished(store, expected[i], values[i]);
            }
            else if (operation < 7) {
                const Visibility visibility{operation == 4 ? UINT64_MAX : random() % (nextResourceID + 1), UINT64_MAX};
                std::vector<uint64_t> expected;
                for (const uint64_t number : numbers)
                    expected.push_back(getID(number) < visibility.first ? getID(number) : 0);
                ASSERT_EQ(Fixture::tryResolveAll(store, values, visibility), expected);
            }
            else
                for (size_t i = 0; i < n / 2; ++i)
                    if (const uint64_t resourceID = getID(numbers[i]); resourceID != 0) {
                        store.m_dictionary->deleteUncommittedResourceID(ALL_VISIBLE, resourceID, Fixture::DATATYPE_ID);
                        model.erase(numbers[i]);
                    }
            ASSERT_EQ(store.m_nextResourceID.load(), nextResourceID);
        }
        const NumericImage image = saveToImage(*store.m_dictionary);
        checkTables<typename Fixture::ResourceID>(image);
        const ImageTable& table = image[Fixture::DATATYPE_ID];
        EXPECT_EQ(table.m_usedCount - table.sumFreeReservations() - table.m_deletedCount, model.size());
        EXPECT_GT(table.m_numberOfBuckets, 2048u);
    }
}

}

}
