#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/platform/errors/SystemCallException.h"
#include "core/platform/stream/MemoryInputStream.h"
#include "support/FailingOutputStream.h"
#include "support/FaultInjection.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kavix::test {

namespace {

template<typename ResourceID>
class NumericDatatypeTest : public ::testing::Test {
protected:
    using Store = NumericStore<ResourceID>;

    /// What must hold after every failure: consistent tables, and every charged byte accounted for.
    static void checkInvariants(Store& store) {
        checkTables<ResourceID>(saveToImage(*store.m_dictionary));
        EXPECT_EQ(
            store.m_memoryManager.getChargedBytes(),
            store.m_dictionary->getComponentInfo()->getNumericProperty("Aggregate size") +
                store.m_resourceData.getCommittedBytes() + store.m_resourceDatatypeIDs.getCommittedBytes() +
                store.m_dataPool.getCommittedBytes());
    }

    static void expectCallFailed(const SystemCallException& exception, Call call) {
        EXPECT_STREQ(exception.getSystemCall(), getName(call));
        EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
        EXPECT_EQ(exception.getSourceFile(), "Engine/core/platform/system/MemoryRegion");
        EXPECT_EQ(exception.getLine(), call == Call::MMAP ? 212 : 167);
    }
};

TYPED_TEST_SUITE(NumericDatatypeTest, ResourceIDTypes);

// Values that cause every kind of growth: resizes, both arrays, chunks and single records of the pool.
std::vector<ResourceValue> makeWorkload() {
    std::vector<ResourceValue> values;
    for (int i = 0; i < 1500; ++i) {
        values.push_back(makeInteger(D_XSD_INT, i));
        values.push_back(makeDecimal(std::to_string(i) + ".5"));
    }
    return values;
}

TYPED_TEST(NumericDatatypeTest, TheNthSystemCallFailsDuringResolves) {
    const std::vector<ResourceValue> values = makeWorkload();
    for (const Call call : {Call::MMAP, Call::MPROTECT})
        for (const bool usesContext : {true, false}) {
            SCOPED_TRACE(usesContext ? "with a context" : "without a context");
            const uint64_t failures = failEach(call, [&](FaultPoint& point) {
                typename TestFixture::Store store;
                store.initialize();
                DictionaryUsageContext context;
                DictionaryUsageContext* const usedContext = usesContext ? &context : nullptr;
                bool hasThrown = false;
                std::map<size_t, uint64_t> resourceIDs;
                {
                    const Fault fault(point);
                    for (size_t i = 0; i < values.size(); ++i) {
                        try {
                            resourceIDs[i] = store.resolve(values[i], usedContext);
                        }
                        catch (const SystemCallException& exception) {
                            ASSERT_FALSE(hasThrown);
                            hasThrown = true;
                            this->expectCallFailed(exception, call);
                            this->checkInvariants(store);
                            EXPECT_EQ(store.tryResolve(values[i]), 0u);
                            for (const auto& [index, resourceID] : resourceIDs)
                                ASSERT_EQ(store.tryResolve(values[index]), resourceID);
                            resourceIDs[i] = store.resolve(values[i], usedContext); // the next call succeeds
                        }
                    }
                }
                ASSERT_EQ(point.wasHit(), hasThrown); // no failure is swallowed
                for (const auto& [index, resourceID] : resourceIDs) {
                    ASSERT_EQ(store.tryResolve(values[index]), resourceID);
                    ResourceValue value;
                    store.m_dictionary->getResource(resourceID, values[index].datatypeID, value);
                    ASSERT_EQ(std::memcmp(value.data, values[index].data, value.dataSize), 0);
                }
                this->checkInvariants(store);
            });
            EXPECT_GE(failures, 4u); // the work really needed the call
        }
}

TYPED_TEST(NumericDatatypeTest, TheNthSystemCallFailsDuringRestores) {
    const std::vector<ResourceValue> values = makeWorkload();
    for (const Call call : {Call::MMAP, Call::MPROTECT})
        failEach(call, [&](FaultPoint& point) {
            typename TestFixture::Store store;
            store.initialize();
            DictionaryUsageContext context;
            bool hasThrown = false;
            {
                const Fault fault(point);
                for (size_t i = 0; i < values.size(); ++i) {
                    try {
                        store.m_dictionary->restoreResource(&context, 10 + 3 * i, values[i]);
                    }
                    catch (const SystemCallException& exception) {
                        ASSERT_FALSE(hasThrown);
                        hasThrown = true;
                        this->expectCallFailed(exception, call);
                        this->checkInvariants(store);
                        EXPECT_EQ(store.tryResolve(values[i]), 0u);
                        store.m_dictionary->restoreResource(&context, 10 + 3 * i, values[i]);
                    }
                }
            }
            for (size_t i = 0; i < values.size(); ++i)
                ASSERT_EQ(store.tryResolve(values[i]), 10 + 3 * i);
            ASSERT_EQ(point.wasHit(), hasThrown);
            this->checkInvariants(store);
        });
}

TYPED_TEST(NumericDatatypeTest, TheNthSystemCallFailsDuringInitializationAndLoading) {
    typename TestFixture::Store source;
    source.initialize();
    for (const ResourceValue& value : makeWorkload())
        source.resolve(value);
    const std::string bytes = saveToBytes(*source.m_dictionary);
    for (const Call call : {Call::MMAP, Call::MPROTECT})
        for (const bool loads : {false, true}) {
            SCOPED_TRACE(loads ? "loading" : "initialization");
            const uint64_t failures = failEach(call, [&](FaultPoint& point) {
                typename TestFixture::Store store;
                store.initialize();
                store.resolve("5", D_XSD_INT);
                MemoryInputStream input(bytes);
                const auto act = [&] {
                    loads ? store.m_dictionary->load(input) : store.m_dictionary->initialize(5000, 0);
                };
                bool hasThrown = false;
                {
                    const Fault fault(point);
                    try {
                        act();
                    }
                    catch (const SystemCallException& exception) {
                        hasThrown = true;
                        this->expectCallFailed(exception, call);
                    }
                }
                ASSERT_EQ(point.wasHit(), hasThrown);
                if (!hasThrown)
                    return;
                // The dictionary is to be discarded or initialised again; either returns all it was charged.
                if (point.getNumber() % 2 == 0) {
                    store.initialize();
                    EXPECT_EQ(store.resolve("5", D_XSD_INT), 2u);
                    this->checkInvariants(store);
                }
                else {
                    store.m_dictionary.reset();
                    EXPECT_EQ(
                        store.m_memoryManager.getChargedBytes(),
                        store.m_resourceData.getCommittedBytes() + store.m_resourceDatatypeIDs.getCommittedBytes());
                }
            });
            EXPECT_EQ(failures, 14u); // once for each table
        }
}

TYPED_TEST(NumericDatatypeTest, ALoadThatFailsAnywhereCanBeRepeated) {
    typename TestFixture::Store store;
    store.initialize();
    for (const ResourceValue& value : makeWorkload())
        store.resolve(value);
    const std::string bytes = saveToBytes(*store.m_dictionary);
    for (size_t length = 0; length < bytes.size(); length += 4999) {
        MemoryInputStream input(bytes.data(), length);
        EXPECT_ANY_THROW(store.m_dictionary->load(input));
    }
    loadFromBytes(*store.m_dictionary, bytes);
    EXPECT_EQ(saveToBytes(*store.m_dictionary), bytes);
    this->checkInvariants(store);
}

TYPED_TEST(NumericDatatypeTest, ThreadsContinueAfterTheSystemRefusedMemoryForAWhile) {
    typename TestFixture::Store store;
    store.initialize();
    const std::vector<ResourceValue> values = makeWorkload();
    std::atomic<uint64_t> failures{0};
    {
        const Fault fault(Call::MPROTECT, 3, ENOMEM, 60);
        runThreads(4, [&](size_t) {
            DictionaryUsageContext context;
            for (const ResourceValue& value : values)
                for (;;) {
                    try {
                        store.resolve(value, &context);
                        break;
                    }
                    catch (const SystemCallException&) {
                        failures.fetch_add(1);
                    }
                }
        });
    }
    EXPECT_EQ(failures.load(), 60u); // each failed call is one error of one thread
    std::vector<bool> isUsed(store.m_nextResourceID.load(), false);
    for (const ResourceValue& value : values) {
        const uint64_t resourceID = store.tryResolve(value);
        ASSERT_NE(resourceID, 0u);
        ASSERT_FALSE(isUsed[resourceID]);
        isUsed[resourceID] = true;
    }
    this->checkInvariants(store);
}

TYPED_TEST(NumericDatatypeTest, AFailedSaveChangesNothing) {
    typename TestFixture::Store store;
    store.initialize();
    store.resolve("5", D_XSD_INT);
    const std::string before = saveToBytes(*store.m_dictionary);
    for (const uint64_t write : {1u, 2u, 4u, 5u, 6u, 264u, 265u, 301u, 3001u}) {
        FailingOutputStream output(write);
        EXPECT_THROW(std::as_const(*store.m_dictionary).save(output), std::runtime_error);
    }
    EXPECT_EQ(saveToBytes(*store.m_dictionary), before);
    EXPECT_EQ(store.resolve("6", D_XSD_INT), 2u);
}

}

}
