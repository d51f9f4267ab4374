#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/platform/errors/SystemCallException.h"
#include "support/FaultInjection.h"
#include "support/NumericBatches.h"
#include "support/NumericImage.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <vector>

namespace kavix::test {

namespace {

template<typename Fixture>
class NumericDatatypeBatchTest : public ::testing::Test {

protected:

    /// What must hold after every failure: consistent tables, and every charged byte accounted for.
    static void checkInvariants(typename Fixture::Store& store) {
        checkTables<typename Fixture::ResourceID>(saveToImage(*store.m_dictionary));
        EXPECT_EQ(
            store.m_memoryManager.getChargedBytes(),
            store.m_dictionary->getComponentInfo()->getNumericProperty("Aggregate size") +
                store.m_resourceData.getCommittedBytes() + store.m_resourceDatatypeIDs.getCommittedBytes() +
                store.m_dataPool.getCommittedBytes());
    }
};

TYPED_TEST_SUITE(NumericDatatypeBatchTest, AllBatchFixtures, BatchFixtureNames);

template<typename Fixture>
std::vector<typename Fixture::Value> makeWorkload() {
    std::vector<typename Fixture::Value> values;
    for (uint64_t i = 0; i < 6000; ++i)
        values.push_back(Fixture::makeValue(i * 7 % 6000));
    return values;
}

TYPED_TEST(NumericDatatypeBatchTest, TheNthSystemCallFailsInTheMiddleOfABatch) {
    using Fixture = TypeParam;
    const auto values = makeWorkload<Fixture>();
    typename Fixture::Store model;
    const std::vector<uint64_t> expected = Fixture::resolveSingly(model.initialize(), nullptr, values);
    for (const Call call : {Call::MMAP, Call::MPROTECT})
        for (const bool usesContext : {true, false}) {
            SCOPED_TRACE(usesContext ? "with a context" : "without a context");
            const uint64_t failures = failEach(call, [&](FaultPoint& point) {
                typename Fixture::Store store;
                store.initialize();
                DictionaryUsageContext context;
                DictionaryUsageContext* const usedContext = usesContext ? &context : nullptr;
                std::vector<uint64_t> resourceIDs(values.size(), 0);
                bool hasThrown = false;
                {
                    const Fault fault(point);
                    try {
                        Fixture::resolveAll(store, usedContext, values, resourceIDs.data());
                    }
                    catch (const SystemCallException& exception) {
                        hasThrown = true;
                        EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
                    }
                }
                ASSERT_EQ(point.wasHit(), hasThrown); // no failure is swallowed
                this->checkInvariants(store);
                const std::vector<uint64_t> found = Fixture::tryResolveAll(store, values);
                size_t entered = 0;
                while (entered < values.size() && found[entered] != 0)
                    ++entered;
                for (size_t i = 0; i < values.size(); ++i) {
                    ASSERT_EQ(found[i] != 0, i < entered) << i; // all before the failure, none from it on
                    ASSERT_TRUE(i >= entered || resourceIDs[i] == found[i]) << i;
                }
                if (!hasThrown) {
                    EXPECT_EQ(found, expected);
                    return;
                }
                ASSERT_LT(entered, values.size());
                Fixture::resolveAll(store, usedContext, values, resourceIDs.data()); // the same batch succeeds now
                ASSERT_EQ(resourceIDs, Fixture::tryResolveAll(store, values));
                for (size_t i = 0; i < values.size(); ++i)
                    Fixture::expectPublished(store, resourceIDs[i], values[i]);
                this->checkInvariants(store);
            });
            EXPECT_GE(failures, 4u); // the work really needed the call
        }
}

TYPED_TEST(NumericDatatypeBatchTest, ThreadsContinueAfterTheSystemRefusedMemoryForAWhile) {
    using Fixture = TypeParam;
    const auto values = makeWorkload<Fixture>();
    for (const Call call : {Call::MMAP, Call::MPROTECT}) {
        typename Fixture::Store store;
        store.initialize();
        const uint64_t refusals = 40;
        std::atomic<uint64_t> failures{0};
        {
            const Fault fault(call, call == Call::MMAP ? 1 : 3, ENOMEM, refusals);
            runThreads(4, [&](size_t threadIndex) {
                DictionaryUsageContext context;
                std::vector<uint64_t> resourceIDs(values.size());
                for (bool isDone = false; !isDone;) {
                    try {
                        Fixture::resolveAll(
                            store, threadIndex % 2 == 0 ? &context : nullptr, values, resourceIDs.data());
                        isDone = true;
                    }
                    catch (const SystemCallException&) {
                        failures.fetch_add(1);
                    }
                }
                EXPECT_EQ(resourceIDs, Fixture::tryResolveAll(store, values));
            });
        }
        EXPECT_EQ(failures.load(), refusals); // each failed call is one error of one thread
        std::vector<bool> isUsed(store.m_nextResourceID.load(), false);
        for (const uint64_t resourceID : Fixture::tryResolveAll(store, values)) {
            ASSERT_NE(resourceID, 0u);
            ASSERT_FALSE(isUsed[resourceID]);
            isUsed[resourceID] = true;
        }
        this->checkInvariants(store);
    }
}

}

}
