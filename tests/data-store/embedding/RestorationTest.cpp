// A dictionary rebuilt from a record of resolutions.

#include "core/data-store/embedding/Restoration.h"

#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "support/ExpectError.h"
#include "support/NumericStore.h"
#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;
using test::findProblems;

namespace {

const std::vector<std::string> NONE;

Dictionary::Options makeOptions(ResourceIDWidth width, uint64_t memoryBudgetBytes = 1 << 28) {
    Dictionary::Options options;
    options.memoryBudgetBytes = memoryBudgetBytes;
    options.resourceIDWidth = width;
    options.maxResourceID = 1 << 20;
    return options;
}

void expectContradiction(uint64_t resourceID, const std::string& reason, const std::function<void()>& action) {
    test::expectError(
        "Engine/core/data-store/dictionary/Restoration", 50,
        "The record of resource " + std::to_string(resourceID) + " contradicts another record: " + reason + ".",
        action);
}

}

TEST(Restoration, EveryValueHasItsOldID) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary dictionary(makeOptions(width));
        Restoration restoration(dictionary, {});
        restoration.restore(5000, "0.5", D_XSD_DECIMAL);
        restoration.restore(3, "-7", D_XSD_INTEGER);
        restoration.restore(4, "-7", D_XSD_INT);
        restoration.restore(1, test::makeDecimal("2.25"));
        restoration.finish();
        EXPECT_EQ(
            test::listResources(dictionary, 1 << 20),
            (std::vector<std::string>{"1 2.25", "3 -7", "4 \"-7\"^^xsd:int", "5000 0.5"}));
        EXPECT_EQ(findProblems(dictionary), NONE);
        EXPECT_EQ(dictionary.takeSnapshot().resourceIDEnd, 5001u);
        EXPECT_EQ(dictionary.resolve("9", D_XSD_INT), 5001u) << "after the highest";
        test::expectEqual(dictionary, *test::openStore(test::saveStore(dictionary)));
    }
}

TEST(Restoration, NothingRestoredIsAnEmptyDictionary) {
    Dictionary dictionary(makeOptions(ResourceIDWidth::BITS_32));
    Restoration restoration(dictionary, {});
    restoration.finish();
    EXPECT_EQ(dictionary.takeSnapshot().resourceIDEnd, 1u);
    EXPECT_EQ(dictionary.resolve("9", D_XSD_INT), 1u);
}

TEST(Restoration, IDsOutsideTheRangeAreRefused) {
    Dictionary dictionary(makeOptions(ResourceIDWidth::BITS_32));
    Restoration restoration(dictionary, {});
    for (const uint64_t resourceID :
         {uint64_t(0), uint64_t(1 << 20), uint64_t(UINT32_MAX), (uint64_t(1) << 32) + 1, UINT64_MAX})
        test::expectError(
            "Engine/core/data-store/embedding/Restoration", 60,
            "Resource ID " + std::to_string(resourceID) +
                " is out of range: the smallest is 1 and the largest is 1048575.",
            [&] { restoration.restore(resourceID, "1", D_XSD_INT); });
    restoration.restore((1 << 20) - 1, "1", D_XSD_INT);
    restoration.finish();
    EXPECT_EQ(dictionary.tryResolve("1", D_XSD_INT), (1u << 20) - 1);
    EXPECT_THROW(dictionary.resolve("2", D_XSD_INT), KavixException) << "no ID is left";
    EXPECT_EQ(findProblems(dictionary), NONE);
}

TEST(Restoration, ContradictionsAreRefusedAndLeaveTheFirstRecord) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary dictionary(makeOptions(width));
        Restoration restoration(dictionary, {});
        restoration.restore(5, "1", D_XSD_INT);
        restoration.restore(6, "1.5", D_XSD_DECIMAL);
        expectContradiction(5, "the ID was already restored", [&] { restoration.restore(5, "2", D_XSD_INT); });
        expectContradiction(5, "the ID was already restored", [&] { restoration.restore(5, "1", D_XSD_INT); });
        expectContradiction(6, "the ID was already restored", [&] { restoration.restore(6, "1", D_XSD_LONG); });
        expectContradiction(
            7, "its value was already restored as resource 5", [&] { restoration.restore(7, "01", D_XSD_INT); });
        expectContradiction(
            9, "its value was already restored as resource 6", [&] { restoration.restore(9, "1.50", D_XSD_DECIMAL); });
        restoration.finish();
        EXPECT_EQ(test::listResources(dictionary, 100), (std::vector<std::string>{"5 \"1\"^^xsd:int", "6 1.5"}));
        EXPECT_EQ(dictionary.takeSnapshot().resourceIDEnd, 7u) << "refused IDs count for nothing";
        EXPECT_EQ(findProblems(dictionary), NONE);
    }
}

TEST(Restoration, InvalidValuesAreRefused) {
    Dictionary dictionary(makeOptions(ResourceIDWidth::BITS_32));
    Restoration restoration(dictionary, {});
    EXPECT_THROW(restoration.restore(1, "x", D_XSD_INT), KavixException);
    EXPECT_THROW(restoration.restore(1, "", D_XSD_DECIMAL), KavixException);
    EXPECT_THROW(restoration.restore(1, "300", D_XSD_BYTE), KavixException);
    EXPECT_THROW(restoration.restore(1, "1", uint8_t(21)), KavixException);
    EXPECT_THROW(restoration.restore(1, "1", D_NONE), KavixException);
    EXPECT_THROW(restoration.restore(1, test::makeInteger(D_XSD_BYTE, 128)), KavixException);
    EXPECT_THROW(restoration.restore(1, test::makeInteger(D_XSD_DECIMAL, 1)), KavixException)
        << "8 bytes are not a decimal";
    EXPECT_THROW(restoration.restore(1, ResourceValue()), KavixException);
    restoration.restore(1, test::makeInteger(D_XSD_BYTE, 127));
    restoration.finish();
    EXPECT_EQ(test::listResources(dictionary, 100), std::vector<std::string>{"1 \"127\"^^xsd:byte"});
}

TEST(Restoration, UnlessFinishedEverythingIsRolledBack) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary dictionary(makeOptions(width));
        const uint64_t usedBytes = dictionary.getUsedBytes();
        {
            Restoration restoration(dictionary, std::vector<uint64_t>(256, 10000));
            for (uint64_t resourceID = 1; resourceID < 5000; ++resourceID)
                restoration.restore(resourceID, std::to_string(resourceID) + ".5", D_XSD_DECIMAL);
        }
        EXPECT_EQ(dictionary.getUsedBytes(), usedBytes);
        for (const TableStatistics& table : dictionary.getTableStatistics()) {
            EXPECT_EQ(table.m_numberOfBuckets, 1024u);
            EXPECT_EQ(table.m_liveBuckets + table.m_deletedBuckets + table.m_reservedBuckets, 0u);
        }
        EXPECT_EQ(dictionary.tryResolve("1.5", D_XSD_DECIMAL), 0u);
        EXPECT_EQ(dictionary.tryGetResourceDatatypeID(1), D_NONE);
        EXPECT_EQ(dictionary.resolve("7.5", D_XSD_DECIMAL), 1u);
    }
}

TEST(Restoration, WrongCountsOnlyCostTime) {
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const uint64_t count : {0u, 1u, 716u, 717u, 100000u}) {
            SCOPED_TRACE(count);
            Dictionary dictionary(makeOptions(width));
            std::vector<uint64_t> counts(D_XSD_INT + 1);
            counts[D_XSD_INT] = count;
            counts[0] = 99; // of no datatype
            Restoration restoration(dictionary, counts);
            for (uint64_t resourceID = 1; resourceID <= 3000; ++resourceID)
                restoration.restore(resourceID, std::to_string(resourceID), D_XSD_INT);
            restoration.finish();
            EXPECT_EQ(dictionary.tryResolve("3000", D_XSD_INT), 3000u);
            EXPECT_EQ(findProblems(dictionary), NONE);
        }
}

TEST(Restoration, HugeCountsAreAnErrorAndLeaveTheDictionaryEmpty) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary::Options options = makeOptions(width, 1 << 22);
        options.maxResourceID = 0; // as many as the width allows
        Dictionary dictionary(options);
        const uint64_t usedBytes = dictionary.getUsedBytes();
        for (const uint64_t count : {uint64_t(1) << 20, uint64_t(1) << 32, uint64_t(1) << 63, UINT64_MAX}) {
            EXPECT_THROW(Restoration(dictionary, std::vector<uint64_t>(256, count)), KavixException) << count;
            EXPECT_EQ(dictionary.getUsedBytes(), usedBytes);
            EXPECT_EQ(findProblems(dictionary), NONE);
        }
        EXPECT_EQ(dictionary.resolve("1", D_XSD_INT), 1u) << "the gate is open";
    }
}

TEST(Restoration, NeedsAnEmptyDictionaryAndNoTransaction) {
    Dictionary dictionary(makeOptions(ResourceIDWidth::BITS_32));
    {
        Transaction transaction(dictionary);
        EXPECT_THROW(Restoration(dictionary, {}), KavixException);
    }
    {
        const Restoration restoration(dictionary, {});
        EXPECT_THROW(Transaction{dictionary}, KavixException);
        EXPECT_THROW(Restoration(dictionary, {}), KavixException);
        EXPECT_THROW(dictionary.resolve("1", D_XSD_INT), KavixException);
        EXPECT_THROW(dictionary.compact([](uint64_t) { return true; }), KavixException);
        EXPECT_EQ(dictionary.takeSnapshot().resourceIDEnd, 1u);
    }
    EXPECT_EQ(dictionary.resolve("1", D_XSD_INT), 1u);
    test::expectError(
        "Engine/core/data-store/dictionary/Restoration", 20,
        "Only an empty dictionary can be restored, but this one has already assigned resource IDs.",
        [&] { Restoration(dictionary, {}); });
    EXPECT_EQ(dictionary.resolve("2", D_XSD_INT), 2u) << "the gate is open";
}

TEST(Restoration, NothingIsRestoredAfterTheEnd) {
    Dictionary dictionary(makeOptions(ResourceIDWidth::BITS_32));
    Restoration restoration(dictionary, {});
    restoration.finish();
    EXPECT_THROW(restoration.restore(1, "1", D_XSD_INT), KavixException);
    EXPECT_THROW(restoration.finish(), KavixException);
    EXPECT_EQ(dictionary.resolve("1", D_XSD_INT), 1u);
}

TEST(Restoration, AShortBudgetEntersNothing) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        Dictionary dictionary(makeOptions(width, 260'000));
        {
            Restoration restoration(dictionary, {});
            restoration.restore(1, "1", D_XSD_INT);
            EXPECT_THROW(restoration.restore(1'000'000, "2", D_XSD_INT), KavixException);
            EXPECT_THROW(restoration.restore(1'000'000, "2.5", D_XSD_DECIMAL), KavixException);
            restoration.restore(2, "2", D_XSD_INT);
            restoration.finish();
        }
        EXPECT_EQ(
            test::listResources(dictionary, 100), (std::vector<std::string>{"1 \"1\"^^xsd:int", "2 \"2\"^^xsd:int"}));
        EXPECT_EQ(findProblems(dictionary), NONE);
    }
}

}
