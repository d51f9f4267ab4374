#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/platform/errors/KavixException.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

constexpr uint8_t DATATYPES[] = {D_XSD_DECIMAL, D_XSD_INTEGER, D_XSD_LONG, D_XSD_UNSIGNED_INT};
constexpr size_t NUMBER_OF_DATATYPES = std::size(DATATYPES);

ResourceValue makeValue(uint8_t datatypeID, uint64_t number) {
    ResourceValue value;
    if (datatypeID == D_XSD_DECIMAL)
        value.setBinaryValue(datatypeID, XSDDecimal::fromNormalisedFields(static_cast<int64_t>(number * 10 + 5), 1));
    else
        value.setBinaryValue(
            datatypeID, static_cast<int64_t>(datatypeID == D_XSD_LONG ? number << 6 : number)); // with clusters
    return value;
}

/// The IDs of the numbers 0 to n - 1 in every datatype, as the threads got them; 0 where no thread has asked yet.
class Answers {

public:

    explicit Answers(size_t numberOfValues) :
        m_resourceIDs(numberOfValues * NUMBER_OF_DATATYPES) { }

    uint64_t get(size_t datatypeIndex, uint64_t number) const {
        return m_resourceIDs[number * NUMBER_OF_DATATYPES + datatypeIndex].load();
    }

    /// Everybody must have got the same answer.
    void record(size_t datatypeIndex, uint64_t number, uint64_t resourceID) {
        uint64_t earlierAnswer = 0;
        if (!m_resourceIDs[number * NUMBER_OF_DATATYPES + datatypeIndex].compare_exchange_strong(
                earlierAnswer, resourceID) &&
            earlierAnswer != resourceID)
            ADD_FAILURE() << "two answers for one value: " << earlierAnswer << " and " << resourceID;
    }

private:

    std::vector<std::atomic<uint64_t>> m_resourceIDs;
};

/// Checks exactly: one ID for each value, the same to everybody; IDs unique and below the counter; the value comes
/// back.
template<typename ResourceID>
void checkAnswers(const NumericStore<ResourceID>& store, const Answers& answers, size_t numberOfValues) {
    std::vector<bool> isUsed(store.m_nextResourceID.load(), false);
    std::array<uint64_t, NUMBER_OF_DATATYPES> entered{};
    for (uint64_t number = 0; number < numberOfValues; ++number)
        for (size_t datatypeIndex = 0; datatypeIndex < NUMBER_OF_DATATYPES; ++datatypeIndex) {
            const uint8_t datatypeID = DATATYPES[datatypeIndex];
            const ResourceValue value = makeValue(datatypeID, number);
            const uint64_t resourceID = store.tryResolve(value);
            ASSERT_EQ(resourceID, answers.get(datatypeIndex, number));
            if (resourceID == 0)
                continue;
            ++entered[datatypeIndex];
            ASSERT_LT(resourceID, isUsed.size());
            ASSERT_FALSE(isUsed[resourceID]);
            isUsed[resourceID] = true;
            ASSERT_EQ(store.getDatatypeID(resourceID), datatypeID);
            ResourceValue readBack;
            store.m_dictionary->getResource(resourceID, datatypeID, readBack);
            ASSERT_EQ(readBack.dataSize, value.dataSize);
            ASSERT_EQ(std::memcmp(readBack.data, value.data, value.dataSize), 0);
            if (datatypeID != D_XSD_DECIMAL) {
                ASSERT_EQ(store.m_resourceData[resourceID], static_cast<uint64_t>(value.getBinaryValue<int64_t>()));
            }
            else {
                ASSERT_EQ(
                    store.getRecordBytes(store.m_resourceData[resourceID]),
                    store.makeRecordBytes(resourceID, static_cast<int64_t>(number * 10 + 5), 1));
            }
        }
    const NumericImage image = saveToImage(*store.m_dictionary);
    checkTables<ResourceID>(image);
    for (size_t datatypeIndex = 0; datatypeIndex < NUMBER_OF_DATATYPES; ++datatypeIndex) {
        const ImageTable& table = image[DATATYPES[datatypeIndex]];
        ASSERT_EQ(table.m_usedCount - table.sumFreeReservations() - table.m_deletedCount, entered[datatypeIndex]);
    }
}

template<typename ResourceID>
class NumericDatatypeTest : public ::testing::Test { };

TYPED_TEST_SUITE(NumericDatatypeTest, ResourceIDTypes);

TYPED_TEST(NumericDatatypeTest, EveryValueHasOneIDThroughManyResizes) {
    for (const size_t wanted : {1u, 2u, 8u, 32u, 256u}) {
        const size_t numberOfThreads = std::min(wanted, getNumberOfFreeSlots());
        SCOPED_TRACE(std::to_string(numberOfThreads) + " threads");
        NumericStore<TypeParam> store;
        store.initialize();
        // The lower half is everybody's, the upper half is split: each thread has a part of its own.
        const size_t numberOfValues = 40000 / STRESS_DIVISOR;
        const size_t half = numberOfValues / 2;
        Answers answers(numberOfValues);
        runThreads(numberOfThreads, [&](size_t threadIndex) {
            DictionaryUsageContext context;
            DictionaryUsageContext* const usedContext = threadIndex % 4 == 3 ? nullptr : &context;
            const auto resolve = [&](uint64_t number, size_t datatypeIndex) {
                answers.record(
                    datatypeIndex, number, store.resolve(makeValue(DATATYPES[datatypeIndex], number), usedContext));
            };
            const size_t ownPart = half / numberOfThreads;
            // Few of the common values where there are many threads, so that the total stays the same.
            const size_t sharedValues = std::max<size_t>(half / std::max<size_t>(1, numberOfThreads / 4), 500);
            const size_t start = threadIndex * 37 % half;
            for (size_t i = 0; i < std::max(ownPart, std::min(sharedValues, half)); ++i) {
                const size_t datatypeIndex = (i + threadIndex) % NUMBER_OF_DATATYPES;
                if (i < sharedValues)
                    for (size_t j = 0; j < NUMBER_OF_DATATYPES; ++j)
                        resolve((start + i) % half, (datatypeIndex + j) % NUMBER_OF_DATATYPES);
                if (i < ownPart)
                    resolve(half + threadIndex * ownPart + i, datatypeIndex);
                if (i % 16 == 0 && store.tryResolve(makeValue(DATATYPES[datatypeIndex], (start + i / 2) % half)) >=
                                       store.m_nextResourceID.load())
                    ADD_FAILURE() << "an ID that was not given out";
            }
        });
        checkAnswers(store, answers, numberOfValues);
        if (::testing::Test::HasFatalFailure())
            return;
    }
}

/// Reads every resource that has a datatype, and so must have a value that makeValue() makes.
template<typename ResourceID>
uint64_t countPublishedResources(const NumericStore<ResourceID>& store) {
    uint64_t count = 0;
    const uint64_t end = std::min<uint64_t>(store.m_resourceDatatypeIDs.getEnd(), store.m_nextResourceID.load());
    for (uint64_t resourceID = 1; resourceID < end; ++resourceID) {
        const uint8_t datatypeID = store.getDatatypeID(resourceID);
        if (datatypeID == D_NONE)
            continue;
        ++count;
        ResourceValue value;
        store.m_dictionary->getResource(resourceID, datatypeID, value);
        const bool isConsistent = datatypeID == D_XSD_DECIMAL
                                      ? value.getBinaryValue<XSDDecimal>().getFractionDigits() == 1 &&
                                            value.getBinaryValue<XSDDecimal>().getUnscaledValue() % 10 == 5
                                      : value.getBinaryValue<int64_t>() % 3 != 0;
        if (!isConsistent)
            ADD_FAILURE() << "resource " << resourceID << " had a datatype before its value";
    }
    return count;
}

TYPED_TEST(NumericDatatypeTest, AThreadThatObservesADatatypeObservesTheResource) {
    // Readers follow the writers over the arrays and read what has a datatype; others look values up.
    NumericStore<TypeParam> store;
    store.initialize();
    const uint64_t numberOfValues = 30000 / STRESS_DIVISOR;
    std::atomic<size_t> writersRunning{2};
    runThreads(5, [&](size_t threadIndex) {
        if (threadIndex < 2) {
            DictionaryUsageContext context;
            for (uint64_t number = threadIndex; number < numberOfValues; number += 2)
                store.resolve(makeValue(number % 3 == 0 ? D_XSD_DECIMAL : D_XSD_INTEGER, number), &context);
            writersRunning.fetch_sub(1);
            return;
        }
        uint64_t seen = 0;
        for (bool isLastRound = false; !isLastRound;) {
            isLastRound = writersRunning.load() == 0;
            seen = 0;
            if (threadIndex == 2) {
                const std::unique_ptr<ComponentInfo> info = store.m_dictionary->getComponentInfo(); // at any time
                seen = info->getChildren()[1]->getNumericProperty("Total number of buckets");
                continue;
            }
            if (threadIndex == 3) {
                for (uint64_t number = 0; number < numberOfValues; number += 7) {
                    const ResourceValue value = makeValue(number % 3 == 0 ? D_XSD_DECIMAL : D_XSD_INTEGER, number);
                    const uint64_t resourceID = store.tryResolve(value);
                    if (resourceID != 0 && store.getDatatypeID(resourceID) != value.datatypeID)
                        ADD_FAILURE() << "a value was found before its datatype was there";
                }
                continue;
            }
            seen = countPublishedResources(store);
        }
        if (threadIndex == 4) {
            EXPECT_EQ(seen, numberOfValues);
        }
    });
}

/// The error of a budget of so many bytes, with figures that agree.
void expectBudgetError(const KavixException& exception, uint64_t totalBytes) {
    unsigned long total = 0;
    unsigned long free = 0;
    unsigned long requested = 0;
    const int matched = std::sscanf(
        exception.what(),
        "The Kavix instance has run out of memory.\n[Extended information: %lu bytes were reserved for the system, of "
        "which %lu were free when an attempt to allocate %lu bytes was made.]",
        &total, &free, &requested);
    if (matched != 3 || total != totalBytes || free >= requested || free > total || requested % 4096 != 0 ||
        exception.getLine() != 71 || exception.getSourceFile() != "Engine/core/platform/system/MemoryManager")
        ADD_FAILURE() << exception.what();
}

TYPED_TEST(NumericDatatypeTest, ABudgetThatRunsOutInTheMiddleStopsAllThreadsAndBreaksNothing) {
    for (const size_t numberOfThreads : {1u, 8u, 32u}) {
        SCOPED_TRACE(std::to_string(numberOfThreads) + " threads");
        NumericStore<TypeParam> store(2 << 20);
        store.initialize();
        const size_t numberOfValues = 64000 / STRESS_DIVISOR;
        if (STRESS_DIVISOR != 1) {
            ASSERT_TRUE(store.m_memoryManager.trySetTotalBytes(400 << 10));
        }
        const uint64_t totalBytes = store.m_memoryManager.getTotalBytes();
        Answers answers(numberOfValues);
        std::vector<DictionaryUsageContext> contexts(numberOfThreads);
        std::atomic<size_t> numberOfFailures{0};
        const auto insert = [&](size_t threadIndex, bool mayFail) {
            size_t failures = 0;
            for (uint64_t number = 0; number < numberOfValues && failures < 20; ++number) {
                const size_t datatypeIndex = number % NUMBER_OF_DATATYPES;
                const ResourceValue value = makeValue(DATATYPES[datatypeIndex], number);
                try {
                    answers.record(datatypeIndex, number, store.resolve(value, &contexts[threadIndex]));
                }
                catch (const KavixException& exception) {
                    if (!mayFail)
                        throw;
                    ++failures;
                    expectBudgetError(exception, totalBytes);
                    // What was entered before is still found, by this very thread.
                    if (number >= 400)
                        for (uint64_t earlier = number - 400; earlier < number; ++earlier) {
                            const uint64_t resourceID = answers.get(earlier % NUMBER_OF_DATATYPES, earlier);
                            if (resourceID != 0 &&
                                store.tryResolve(makeValue(DATATYPES[earlier % NUMBER_OF_DATATYPES], earlier)) !=
                                    resourceID)
                                ADD_FAILURE() << "a value was lost";
                        }
                }
            }
            if (failures != 0)
                numberOfFailures.fetch_add(1);
        };
        runThreads(numberOfThreads, [&](size_t threadIndex) { insert(threadIndex, true); });
        EXPECT_EQ(numberOfFailures.load(), numberOfThreads); // no thread got through
        EXPECT_LE(store.m_memoryManager.getChargedBytes(), totalBytes);
        checkAnswers(store, answers, numberOfValues);

        ASSERT_TRUE(store.m_memoryManager.trySetTotalBytes(uint64_t(1) << 30));
        runThreads(numberOfThreads, [&](size_t threadIndex) { insert(threadIndex, false); });
        for (uint64_t number = 0; number < numberOfValues; ++number)
            ASSERT_NE(answers.get(number % NUMBER_OF_DATATYPES, number), 0u);
        checkAnswers(store, answers, numberOfValues);
        EXPECT_EQ(
            store.m_memoryManager.getChargedBytes(),
            store.m_dictionary->getComponentInfo()->getNumericProperty("Aggregate size") +
                store.m_resourceData.getCommittedBytes() + store.m_resourceDatatypeIDs.getCommittedBytes() +
                store.m_dataPool.getCommittedBytes());
        if (::testing::Test::HasFatalFailure())
            return;
    }
}

TYPED_TEST(NumericDatatypeTest, ThreadsThatReachTheBoundOfIDsGetEveryIDOnce) {
    NumericStore<TypeParam> store;
    constexpr uint64_t BOUND = 5000;
    store.initialize(BOUND);
    std::vector<std::vector<uint64_t>> resourceIDs(8);
    runThreads(8, [&](size_t threadIndex) {
        const std::string message = "The capacity of Kavix for the number of resources has been exceeded.";
        for (uint64_t i = 0;; ++i) {
            try {
                resourceIDs[threadIndex].push_back(
                    store.resolve(makeInteger(D_XSD_LONG, static_cast<int64_t>(threadIndex * BOUND + i))));
            }
            catch (const KavixException& exception) {
                EXPECT_EQ(exception.what(), message);
                EXPECT_EQ(exception.getLine(), 133);
                return;
            }
        }
    });
    std::vector<uint64_t> all;
    for (const std::vector<uint64_t>& ofThread : resourceIDs)
        all.insert(all.end(), ofThread.begin(), ofThread.end());
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), BOUND - 1);
    for (uint64_t i = 0; i < all.size(); ++i)
        ASSERT_EQ(all[i], i + 1);
    EXPECT_EQ(store.m_nextResourceID.load(), BOUND);
    checkTables<TypeParam>(saveToImage(*store.m_dictionary));
}

TYPED_TEST(NumericDatatypeTest, RestoringFromSeveralThreadsEntersEveryValueOnce) {
    NumericStore<TypeParam> store;
    store.initialize();
    const uint64_t numberOfValues = 20000 / STRESS_DIVISOR;
    runThreads(8, [&](size_t threadIndex) {
        DictionaryUsageContext context;
        for (uint64_t i = 0; i < numberOfValues; ++i) {
            const uint64_t number = (i + threadIndex * numberOfValues / 8) % numberOfValues;
            store.m_dictionary->restoreResource(
                &context, 1 + number * 3,
                makeValue(number % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INTEGER, number)); // the same ID from everybody
        }
    });
    for (uint64_t number = 0; number < numberOfValues; ++number) {
        const ResourceValue value = makeValue(number % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INTEGER, number);
        ASSERT_EQ(store.tryResolve(value), 1 + number * 3);
        ResourceValue readBack;
        store.m_dictionary->getResource(1 + number * 3, value.datatypeID, readBack);
        ASSERT_EQ(std::memcmp(readBack.data, value.data, value.dataSize), 0);
    }
    checkTables<TypeParam>(saveToImage(*store.m_dictionary));
    EXPECT_EQ(store.m_nextResourceID.load(), 1u);
}

}

}
