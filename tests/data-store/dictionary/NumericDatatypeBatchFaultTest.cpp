#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/platform/errors/SystemCallException.h"
#include "support/NumericBatches.h"
#include "support/NumericImage.h"
#include "support/SystemCallInjection.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

template<typename Fixture>
class NumericDatatypeBatchFault : public ::testing::Test {

protected:

    /// What must hold after every failure: sound tables, and every charged byte is somebody's.
    static void checkInvariants(typename Fixture::Store& store) {
        checkTables<typename Fixture::ResourceID>(saveToImage(*store.m_dictionary));
        EXPECT_EQ(
            store.m_memoryManager.getChargedBytes(),
            store.m_dictionary->getComponentInfo()->getNumericProperty("Aggregate size") +
                store.m_resourceData.getCommittedBytes() + store.m_resourceDatatypeIDs.getCommittedBytes() +
                store.m_dataPool.getCommittedBytes());
    }
};

TYPED_TEST_SUITE(NumericDatatypeBatchFault, AllBatchFixtures, BatchFixtureNames);

template<typename Fixture>
std::vector<typename Fixture::Value> makeWorkload() {
    std::vector<typename Fixture::Value> values;
    for (uint64_t i = 0; i < 6000; ++i)
        values.push_back(Fixture::makeValue(i * 7 % 6000));
    return values;
}

TYPED_TEST(NumericDatatypeBatchFault, TheNthSystemCallFailsInTheMiddleOfABatch) {
    using Fixture = TypeParam;
    const auto values = makeWorkload<Fixture>();
    typename Fixture::Store model;
    const std::vector<uint64_t> expected = Fixture::resolveSingly(model.initialize(), nullptr, values);
    for (const SystemCall systemCall : {SystemCall::MMAP, SystemCall::MPROTECT})
        for (const bool usesContext : {true, false})
            for (uint64_t n = 1;; ++n) {
                SCOPED_TRACE(
                    (systemCall == SystemCall::MMAP ? "mmap " : "mprotect ") + std::to_string(n) +
                    (usesContext ? " with a context" : ""));
                typename Fixture::Store store;
                store.initialize();
                DictionaryUsageContext context;
                DictionaryUsageContext* const usedContext = usesContext ? &context : nullptr;
                std::vector<uint64_t> resourceIDs(values.size(), 0);
                bool wasHit = false;
                {
                    const SystemCallFault fault(systemCall, n, ENOMEM);
                    try {
                        Fixture::resolveAll(store, usedContext, values, resourceIDs.data());
                    }
                    catch (const SystemCallException& exception) {
                        wasHit = true;
                        EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
                    }
                    ASSERT_EQ(fault.wasHit(), wasHit); // no failure is swallowed
                }
                this->checkInvariants(store);
                const std::vector<uint64_t> found = Fixture::tryResolveAll(store, values);
                size_t entered = 0;
                while (entered < values.size() && found[entered] != 0)
                    ++entered;
                for (size_t i = 0; i < values.size(); ++i) {
                    ASSERT_EQ(found[i] != 0, i < entered) << i; // all before the failure, none from it on
                    ASSERT_TRUE(i >= entered || resourceIDs[i] == found[i]) << i;
                }
                if (!wasHit) {
                    EXPECT_EQ(found, expected);
                    EXPECT_GT(n, 4u); // the work really needed the call
                    break;
                }
                ASSERT_LT(entered, values.size());
                Fixture::resolveAll(store, usedContext, values, resourceIDs.data()); // the same batch succeeds now
                ASSERT_EQ(resourceIDs, Fixture::tryResolveAll(store, values));
                for (size_t i = 0; i < values.size(); ++i)
                    Fixture::expectPublished(store, resourceIDs[i], values[i]);
                this->checkInvariants(store);
            }
}

TYPED_TEST(NumericDatatypeBatchFault, ThreadsGoOnWhenTheSystemRefusesMemoryForAWhile) {
    using Fixture = TypeParam;
    const auto values = makeWorkload<Fixture>();
    for (const SystemCall systemCall : {SystemCall::MMAP, SystemCall::MPROTECT}) {
        typename Fixture::Store store;
        store.initialize();
        const uint64_t refusals = 40;
        std::atomic<uint64_t> failures{0};
        {
            const SystemCallFault fault(systemCall, systemCall == SystemCall::MMAP ? 1 : 3, ENOMEM, refusals);
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
