// Many threads restore one record of resolutions: the outcome is that of one thread.

#include "core/data-store/embedding/Restoration.h"

#include "core/data-store/embedding/Dictionary.h"
#include "support/SampleStore.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;

namespace {

constexpr uint64_t NUMBER_OF_RECORDS = 40000 / test::STRESS_DIVISOR;

Dictionary::Options makeOptions(ResourceIDWidth width) {
    Dictionary::Options options;
    options.resourceIDWidth = width;
    options.maxResourceID = 1 << 20;
    return options;
}

/// Every third ID is lost; integers and decimals by turns.
uint64_t getResourceID(uint64_t record) {
    return 1 + record + record / 2;
}
uint8_t getDatatypeID(uint64_t record) {
    return record % 2 == 0 ? D_XSD_INTEGER : D_XSD_DECIMAL;
}
std::string getLexicalForm(uint64_t record) {
    return std::to_string(record) + (record % 2 == 0 ? "" : ".5");
}

}

TEST(Restoration, ManyThreadsGiveTheSameIDsAsOne) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const bool areCountsRight : {true, false}) { // with wrong counts the tables grow during the restoration
            std::vector<uint64_t> counts(256);
            if (areCountsRight)
                counts[D_XSD_INTEGER] = counts[D_XSD_DECIMAL] = NUMBER_OF_RECORDS / 2;
            std::vector<std::string> expected;
            for (const size_t numberOfThreads : {1u, 8u}) {
                Dictionary dictionary(makeOptions(width));
                Restoration restoration(dictionary, counts);
                test::runThreads(numberOfThreads, [&](size_t thread) {
                    for (uint64_t record = thread; record < NUMBER_OF_RECORDS; record += numberOfThreads)
                        restoration.restore(getResourceID(record), getLexicalForm(record), getDatatypeID(record));
                });
                restoration.finish();
                EXPECT_EQ(dictionary.takeSnapshot().resourceIDEnd, getResourceID(NUMBER_OF_RECORDS - 1) + 1);
                EXPECT_EQ(test::findProblems(dictionary), std::vector<std::string>());
                std::vector<std::string> resources =
                    test::listResources(dictionary, dictionary.takeSnapshot().resourceIDEnd + 1000);
                EXPECT_EQ(resources.size(), NUMBER_OF_RECORDS);
                if (numberOfThreads == 1)
                    expected = std::move(resources);
                else
                    EXPECT_EQ(resources, expected);
            }
        }
}

TEST(Restoration, AValueGetsOneOfTheIDsThatThreadsClaimForIt) {
    constexpr size_t NUMBER_OF_THREADS = 8;
    constexpr uint64_t NUMBER_OF_VALUES = 2000 / test::STRESS_DIVISOR;
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary dictionary(makeOptions(width));
        Restoration restoration(dictionary, {});
        std::atomic<uint64_t> entered{0};
        test::runThreads(NUMBER_OF_THREADS, [&](size_t thread) {
            for (uint64_t value = 0; value < NUMBER_OF_VALUES; ++value)
                try {
                    restoration.restore(
                        1 + value * NUMBER_OF_THREADS + thread, getLexicalForm(value), getDatatypeID(value));
                    entered.fetch_add(1);
                }
                catch (const KavixException& exception) {
                    EXPECT_NE(
                        exception.getMessage().find("its value was already restored as resource "), std::string::npos)
                        << exception.getMessage();
                }
        });
        restoration.finish();
        EXPECT_EQ(entered.load(), NUMBER_OF_VALUES);
        EXPECT_EQ(test::findProblems(dictionary), std::vector<std::string>());
        for (uint64_t value = 0; value < NUMBER_OF_VALUES; ++value)
            EXPECT_EQ(
                (dictionary.tryResolve(getLexicalForm(value), getDatatypeID(value)) - 1) / NUMBER_OF_THREADS, value);
    }
}

TEST(Restoration, OfThreadsThatClaimAnIDForSeveralValuesOneSucceeds) {
    constexpr size_t NUMBER_OF_THREADS = 4;
    for (int round = 0; round < 20; ++round) {
        Dictionary dictionary(makeOptions(ResourceIDWidth::BITS_32));
        {
            Restoration restoration(dictionary, {});
            std::atomic<uint64_t> refused{0};
            constexpr uint64_t NUMBER_OF_IDS = 200;
            test::runThreads(NUMBER_OF_THREADS, [&](size_t thread) {
                for (uint64_t resourceID = 1; resourceID <= NUMBER_OF_IDS; ++resourceID)
                    try {
                        restoration.restore(
                            resourceID, std::to_string(resourceID * NUMBER_OF_THREADS + thread), D_XSD_INT);
                    }
                    catch (const KavixException&) {
                        refused.fetch_add(1);
                    }
            });
            EXPECT_EQ(refused.load(), (NUMBER_OF_THREADS - 1) * NUMBER_OF_IDS);
            restoration.finish();
        }
        EXPECT_EQ(test::findProblems(dictionary), std::vector<std::string>());
    }
}

}
