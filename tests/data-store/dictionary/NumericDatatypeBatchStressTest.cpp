#include "support/NumericBatches.h"
#include "support/NumericImage.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

template<typename Fixture>
class NumericDatatypeBatchTest : public ::testing::Test { };

TYPED_TEST_SUITE(NumericDatatypeBatchTest, AllBatchFixtures, BatchFixtureNames);

/// Checks exactly: one ID for each value in all threads, IDs are unique, the value is found under its ID, the counts
/// add up.
template<typename Fixture>
void checkAnswers(
    const typename Fixture::Store& store, const std::vector<typename Fixture::Value>& values,
    const std::vector<std::atomic<uint64_t>>& answers) {
    std::vector<bool> isUsed(store.m_nextResourceID.load(), false);
    const std::vector<uint64_t> found = Fixture::tryResolveAll(store, values);
    ASSERT_EQ(found, Fixture::tryResolveSingly(store, values));
    uint64_t entered = 0;
    for (size_t i = 0; i < values.size(); ++i) {
        ASSERT_EQ(found[i], answers[i].load()) << i;
        if (found[i] == 0)
            continue;
        ++entered;
        ASSERT_LT(found[i], isUsed.size());
        ASSERT_FALSE(isUsed[found[i]]) << i;
        isUsed[found[i]] = true;
        Fixture::expectPublished(store, found[i], values[i]);
    }
    const NumericImage image = saveToImage(*store.m_dictionary);
    checkTables<typename Fixture::ResourceID>(image);
    const ImageTable& table = image[Fixture::DATATYPE_ID];
    ASSERT_EQ(table.m_usedCount - table.sumFreeReservations() - table.m_deletedCount, entered);
}

TYPED_TEST(NumericDatatypeBatchTest, BatchesAndSinglesGiveEveryValueOneIDThroughManyResizes) {
    using Fixture = TypeParam;
    const size_t numberOfValues = 48000 / STRESS_DIVISOR;
    std::vector<typename Fixture::Value> values;
    for (uint64_t i = 0; i < numberOfValues; ++i)
        values.push_back(
            i % 3 == 0 ? Fixture::makeValueWithHash(i + (i % 4 << 20)) : Fixture::makeValue(i)); // with chains
    for (const size_t wanted : {1u, 2u, 4u, 8u, 32u}) {
        const size_t numberOfThreads = std::min<size_t>(wanted, getNumberOfFreeSlots());
        SCOPED_TRACE(std::to_string(numberOfThreads) + " threads");
        typename Fixture::Store store;
        store.initialize();
        std::vector<std::atomic<uint64_t>> answers(numberOfValues);
        const auto record = [&](size_t index, uint64_t resourceID) {
            uint64_t earlierAnswer = 0;
            if (resourceID == 0 ||
                (!answers[index].compare_exchange_strong(earlierAnswer, resourceID) && earlierAnswer != resourceID))
                ADD_FAILURE() << "two answers for one value: " << earlierAnswer << " and " << resourceID;
        };
        runThreads(numberOfThreads, [&](size_t threadIndex) {
            std::mt19937_64 random(threadIndex);
            DictionaryUsageContext context;
            DictionaryUsageContext* const usedContext = threadIndex % 4 == 3 ? nullptr : &context;
            // A front that all threads move over the values, so that they contend for the same ones, in different
            // orders.
            const size_t window = 1500;
            for (size_t front = 0; front < numberOfValues; front += window / 3) {
                const size_t n = random() % 3 == 0 ? random() % 20 : random() % 1400;
                std::vector<size_t> indexes;
                std::vector<typename Fixture::Value> batch;
                for (size_t i = 0; i < n; ++i) {
                    indexes.push_back(std::min(numberOfValues - 1, front + random() % window));
                    batch.push_back(values[indexes.back()]);
                }
                const unsigned operation = random() % 4;
                if (operation == 0)
                    for (size_t i = 0; i < std::min<size_t>(n, 200); ++i)
                        record(indexes[i], store.resolve(Fixture::toResourceValue(batch[i]), usedContext));
                else if (operation == 1) {
                    const std::vector<uint64_t> found = Fixture::tryResolveAll(store, batch);
                    for (size_t i = 0; i < n; ++i)
                        if (found[i] != 0)
                            record(indexes[i], found[i]);
                }
                else {
                    const std::vector<uint64_t> resourceIDs = Fixture::resolveAll(store, usedContext, batch);
                    for (size_t i = 0; i < n; ++i) {
                        record(indexes[i], resourceIDs[i]);
                        if (i % 32 == 0)
                            Fixture::expectPublished(store, resourceIDs[i], batch[i]);
                    }
                }
            }
        });
        checkAnswers<Fixture>(store, values, answers);
        if (::testing::Test::HasFatalFailure())
            return;
    }
}

TYPED_TEST(NumericDatatypeBatchTest, TheSameBatchesInAllThreads) {
    // Everybody enters the same values in the same or the reverse order: each bucket is contended for.
    using Fixture = TypeParam;
    const size_t numberOfValues = 20000 / STRESS_DIVISOR;
    std::vector<typename Fixture::Value> values;
    for (uint64_t i = 0; i < numberOfValues; ++i)
        values.push_back(Fixture::makeValueWithHash(i / 8 * 16 + (i % 8 << 24))); // chains of eight
    std::vector<typename Fixture::Value> reversed(values.rbegin(), values.rend());
    for (const size_t wanted : {2u, 4u, 16u, 32u}) {
        const size_t numberOfThreads = std::min<size_t>(wanted, getNumberOfFreeSlots());
        SCOPED_TRACE(std::to_string(numberOfThreads) + " threads");
        typename Fixture::Store store;
        store.initialize();
        std::vector<std::vector<uint64_t>> results(numberOfThreads);
        runThreads(numberOfThreads, [&](size_t threadIndex) {
            DictionaryUsageContext context;
            results[threadIndex] = Fixture::resolveAll(store, &context, threadIndex % 2 == 0 ? values : reversed);
            if (threadIndex % 2 == 1)
                std::reverse(results[threadIndex].begin(), results[threadIndex].end());
        });
        for (const std::vector<uint64_t>& result : results)
            ASSERT_EQ(result, results[0]);
        std::vector<std::atomic<uint64_t>> answers(numberOfValues);
        for (size_t i = 0; i < numberOfValues; ++i)
            answers[i] = results[0][i];
        checkAnswers<Fixture>(store, values, answers);
    }
}

}

}
