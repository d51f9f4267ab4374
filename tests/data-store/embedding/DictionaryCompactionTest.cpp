// Compaction: dense IDs in the old order for what is kept, and the memory of the rest is released.

#include "core/data-store/embedding/Dictionary.h"

#include "core/data-store/embedding/Transaction.h"
#include "support/ExpectError.h"
#include "support/ResourceIDWidths.h"
#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;
using test::findProblems;

namespace {

constexpr int NUMBER_OF_EACH = 2000;

const std::vector<std::string> NONE;

/// Two thousand integers, decimals and integers of another datatype, some rolled back, in blocks with lost IDs.
std::unique_ptr<Dictionary> makeDictionary(ResourceIDWidth width) {
    auto dictionary = std::make_unique<Dictionary>(test::makeOptions(width, 1 << 20, true));
    {
        Transaction transaction(*dictionary);
        for (int i = 0; i < NUMBER_OF_EACH; ++i) {
            transaction.resolve(std::to_string(i), D_XSD_INTEGER);
            transaction.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL);
        }
        transaction.commit();
    }
    {
        Transaction transaction(*dictionary);
        for (int i = 0; i < NUMBER_OF_EACH; ++i)
            transaction.resolve(std::to_string(i), D_XSD_LONG);
    } // rolled back
    Transaction transaction(*dictionary);
    for (int i = 0; i < NUMBER_OF_EACH; ++i)
        transaction.resolve(std::to_string(-i), D_XSD_INT);
    transaction.commit();
    return dictionary;
}

std::vector<std::string> listLiterals(const Dictionary& dictionary, const std::function<bool(uint64_t)>& isKept) {
    std::vector<std::string> literals;
    for (uint64_t resourceID = 0; resourceID < dictionary.takeSnapshot().resourceIDEnd; ++resourceID)
        if (dictionary.tryGetResourceDatatypeID(resourceID) != D_NONE && isKept(resourceID))
            literals.push_back(dictionary.getTurtleLiteral(resourceID));
    return literals;
}

/// The kept ones of the old resources (literal, ID) got the IDs 1, 2, ... in their old order; the others none.
void expectDenseIDs(
    const Dictionary& dictionary, uint64_t oldNextResourceID,
    const std::vector<std::pair<std::string, uint64_t>>& oldResources, const std::vector<uint64_t>& newResourceIDs,
    const std::function<bool(uint64_t)>& isKept) {
    ASSERT_EQ(newResourceIDs.size(), oldNextResourceID);
    uint64_t expectedID = 1;
    size_t index = 0;
    for (uint64_t resourceID = 0; resourceID < oldNextResourceID; ++resourceID) {
        const bool existed = index < oldResources.size() && oldResources[index].second == resourceID;
        if (existed && isKept(resourceID)) {
            ASSERT_EQ(newResourceIDs[resourceID], expectedID++);
            ASSERT_EQ(dictionary.getTurtleLiteral(newResourceIDs[resourceID]), oldResources[index].first);
        }
        else
            ASSERT_EQ(newResourceIDs[resourceID], 0u);
        index += existed;
    }
}

}

TEST(DictionaryCompaction, KeptResourcesGetDenseIDsInTheirOldOrder) {
    struct Row {
        const char* name;
        std::function<bool(uint64_t)> isKept;
    };
    const Row rows[] = {
        {"everything is kept", [](uint64_t) { return true; }},
        {"every second is kept", [](uint64_t resourceID) { return resourceID % 2 == 0; }},
        {"one in a hundred is kept", [](uint64_t resourceID) { return resourceID % 100 == 7; }},
        {"only the first is kept", [](uint64_t resourceID) { return resourceID == 1; }},
        {"nothing is kept", [](uint64_t) { return false; }},
    };
    for (const ResourceIDWidth width : BOTH_WIDTHS)
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            const std::unique_ptr<Dictionary> dictionary = makeDictionary(width);
            const uint64_t oldNextResourceID = dictionary->takeSnapshot().resourceIDEnd;
            const uint64_t oldPoolEnd = dictionary->takeSnapshot().dataPoolEnd;
            const std::vector<std::string> oldLiterals = listLiterals(*dictionary, [](uint64_t) { return true; });
            const std::vector<std::string> keptLiterals = listLiterals(*dictionary, row.isKept);
            const uint64_t oldBytes = dictionary->getUsedBytes();
            std::vector<std::pair<std::string, uint64_t>> oldResources; // literal, ID
            for (uint64_t resourceID = 0; resourceID < oldNextResourceID; ++resourceID)
                if (dictionary->tryGetResourceDatatypeID(resourceID) != D_NONE)
                    oldResources.emplace_back(dictionary->getTurtleLiteral(resourceID), resourceID);

            uint64_t lastAsked = 0;
            const std::vector<uint64_t> newResourceIDs = dictionary->compact([&](uint64_t resourceID) {
                EXPECT_GT(resourceID, lastAsked) << "asked once, in order";
                lastAsked = resourceID;
                return row.isKept(resourceID);
            });

            expectDenseIDs(*dictionary, oldNextResourceID, oldResources, newResourceIDs, row.isKept);
            EXPECT_EQ(dictionary->takeSnapshot().resourceIDEnd, keptLiterals.size() + 1);
            EXPECT_EQ(listLiterals(*dictionary, [](uint64_t) { return true; }), keptLiterals);
            EXPECT_EQ(test::listResources(*dictionary, oldNextResourceID + 4096).size(), keptLiterals.size())
                << "found under their IDs, and no others";
            EXPECT_EQ(findProblems(*dictionary), NONE);
            const uint64_t recordSize = width == ResourceIDWidth::BITS_32 ? 13 : 17;
            EXPECT_EQ(
                dictionary->takeSnapshot().dataPoolEnd,
                64 + recordSize * dictionary->countResourcesByDatatypeID()[D_XSD_DECIMAL]);
            EXPECT_LT(dictionary->takeSnapshot().dataPoolEnd, oldPoolEnd);
            EXPECT_LE(dictionary->getUsedBytes(), oldBytes);
            for (const TableStatistics& table : dictionary->getTableStatistics())
                EXPECT_EQ(table.m_deletedBuckets, 0u);
            if (keptLiterals.size() < 10) {
                EXPECT_LT(dictionary->getUsedBytes(), 245'000u) << "as an empty dictionary, and a page or so";
            }
            test::expectEqual(*dictionary, *test::openStore(test::saveStore(*dictionary)));
        }
}

TEST(DictionaryCompaction, DroppedValuesAreNewValues) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const std::unique_ptr<Dictionary> dictionary = makeDictionary(width);
        dictionary->compact(
            [](uint64_t resourceID) { return resourceID % 2 == 1; }); // the integers, and half of the ints
        const Dictionary::Snapshot snapshot = dictionary->takeSnapshot();
        EXPECT_EQ(dictionary->tryResolve("0.5", D_XSD_DECIMAL), 0u);
        EXPECT_EQ(dictionary->resolve("0.5", D_XSD_DECIMAL), snapshot.resourceIDEnd);
        EXPECT_EQ(dictionary->resolve("0", D_XSD_LONG), snapshot.resourceIDEnd + 1);
        EXPECT_EQ(dictionary->tryResolve("0.5", D_XSD_DECIMAL, snapshot), 0u) << "the snapshot is older";
        EXPECT_EQ(dictionary->tryResolve("0", D_XSD_INTEGER, snapshot), 1u);
        Transaction transaction(*dictionary);
        for (int i = 0; i < NUMBER_OF_EACH; ++i)
            transaction.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL);
        transaction.commit();
        EXPECT_EQ(findProblems(*dictionary), NONE);
    }
}

TEST(DictionaryCompaction, CompactingTwiceChangesNothing) {
    const std::unique_ptr<Dictionary> dictionary = makeDictionary(ResourceIDWidth::BITS_32);
    const auto keepAll = [](uint64_t) { return true; };
    dictionary->compact(keepAll);
    const std::string bytes = test::saveStore(*dictionary);
    dictionary->compact(keepAll);
    EXPECT_EQ(test::saveStore(*dictionary), bytes);
}

TEST(DictionaryCompaction, AnEmptyDictionaryStaysEmpty) {
    Dictionary dictionary{Dictionary::Options()};
    EXPECT_EQ(dictionary.compact([](uint64_t) { return true; }), std::vector<uint64_t>(1));
    EXPECT_EQ(dictionary.resolve("1", D_XSD_INT), 1u);
}

TEST(DictionaryCompaction, WhatThePredicateThrowsEndsTheCompaction) {
    const std::unique_ptr<Dictionary> dictionary = makeDictionary(ResourceIDWidth::BITS_64);
    const std::string bytes = test::saveStore(*dictionary);
    const uint64_t usedBytes = dictionary->getUsedBytes();
    for (const uint64_t end : {1u, 2u, 5000u})
        EXPECT_THROW(
            dictionary->compact(
                [end](uint64_t resourceID) { return resourceID < end ? true : throw std::runtime_error("stop"); }),
            std::runtime_error);
    EXPECT_EQ(test::saveStore(*dictionary), bytes);
    EXPECT_EQ(dictionary->getUsedBytes(), usedBytes);
    EXPECT_NE(dictionary->resolve("12345", D_XSD_INT), 0u) << "the gate is open again";
}

TEST(DictionaryCompaction, IsRefusedWhileATransactionRuns) {
    const std::unique_ptr<Dictionary> dictionary = makeDictionary(ResourceIDWidth::BITS_32);
    Transaction transaction(*dictionary);
    transaction.resolve("77777", D_XSD_INT);
    test::expectError(
        "Engine/core/data-store/dictionary/Dictionary", 90,
        "Another transaction is writing to this dictionary; wait until it has been committed or rolled back, or write "
        "through it.",
        [&] { dictionary->compact([](uint64_t) { return true; }); });
    transaction.commit();
    EXPECT_NE(dictionary->tryResolve("77777", D_XSD_INT), 0u);
    EXPECT_NO_THROW(dictionary->compact([](uint64_t) { return true; }));
}

TEST(DictionaryCompaction, WithoutBudgetTheDictionaryIsUnchanged) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const std::unique_ptr<Dictionary> dictionary = makeDictionary(width);
        const std::string bytes = test::saveStore(*dictionary);
        const uint64_t usedBytes = dictionary->getUsedBytes();
        size_t failures = 0;
        for (uint64_t spareBytes = 0;; spareBytes += 4096) {
            dictionary->setMemoryBudget(usedBytes + spareBytes);
            try {
                dictionary->compact([](uint64_t resourceID) { return resourceID % 3 != 0; });
                break;
            }
            catch (const KavixException&) {
                ++failures;
                ASSERT_EQ(dictionary->getUsedBytes(), usedBytes);
                ASSERT_EQ(test::saveStore(*dictionary), bytes);
            }
        }
        EXPECT_GT(failures, 30u) << "about 4000 entries of 32 bytes";
        EXPECT_EQ(findProblems(*dictionary), NONE);
    }
}

}
