#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/MemoryInputStream.h"
#include "core/platform/stream/MemoryOutputStream.h"
#include "support/Bytes.h"
#include "support/NumericImage.h"
#include "support/ResourceIDWidths.h"
#include "support/StoreImage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Stores for tests: one that is put together by hand, field by field, and what tests do with any store.

namespace kavix::test {

inline std::string saveStore(const Dictionary& dictionary) {
    MemoryOutputStream output;
    dictionary.saveStore(output);
    return output.takeContent();
}

inline std::unique_ptr<Dictionary> openStore(
    const std::string& bytes, bool checkEveryValue = true, uint64_t memoryBudgetBytes = 1ULL << 30) {
    MemoryInputStream input(bytes);
    Dictionary::OpenOptions options;
    options.memoryBudgetBytes = memoryBudgetBytes;
    options.checkEveryValue = checkEveryValue;
    return Dictionary::openStore(input, options);
}

/// The message with which a store is refused; fails the test if it is opened.
inline std::string getRefusal(const std::string& bytes, bool checkEveryValue = true) {
    try {
        openStore(bytes, checkEveryValue);
        ADD_FAILURE() << "the store was opened";
        return "";
    }
    catch (const KavixException& exception) {
        return exception.getMessage();
    }
}

inline std::string makeRefusal(const std::string& section, const std::string& reason) {
    return "The store cannot be opened: section '" + section + "': " + reason + ".";
}

inline std::vector<std::string> findProblems(const Dictionary& dictionary) {
    std::vector<std::string> problems;
    dictionary.verify([&problems](std::string&& problem) { problems.push_back(std::move(problem)); });
    return problems;
}

/// Every resource below an ID as "ID Turtle-literal", as far as there is one; each is found by its value.
inline std::vector<std::string> listResources(const Dictionary& dictionary, uint64_t end) {
    std::vector<std::string> resources;
    for (uint64_t resourceID = 0; resourceID < end; ++resourceID)
        if (dictionary.tryGetResourceDatatypeID(resourceID) != D_NONE) {
            resources.push_back(std::to_string(resourceID) + " " + dictionary.getTurtleLiteral(resourceID));
            EXPECT_EQ(
                dictionary.tryResolve(
                    dictionary.getLexicalForm(resourceID), dictionary.tryGetResourceDatatypeID(resourceID)),
                resourceID);
        }
    return resources;
}

inline void expectEqual(const Dictionary& first, const Dictionary& second) {
    EXPECT_EQ(first.getResourceIDWidth(), second.getResourceIDWidth());
    const Dictionary::Snapshot snapshot = first.takeSnapshot();
    EXPECT_EQ(snapshot, second.takeSnapshot());
    EXPECT_EQ(first.countResourcesByDatatypeID(), second.countResourcesByDatatypeID());
    EXPECT_EQ(
        listResources(first, snapshot.resourceIDEnd + 2048), listResources(second, snapshot.resourceIDEnd + 2048));
    const std::vector<TableStatistics> firstTables = first.getTableStatistics();
    const std::vector<TableStatistics> secondTables = second.getTableStatistics();
    ASSERT_EQ(firstTables.size(), secondTables.size());
    for (size_t index = 0; index < firstTables.size(); ++index) {
        EXPECT_EQ(firstTables[index].m_numberOfBuckets, secondTables[index].m_numberOfBuckets);
        EXPECT_EQ(firstTables[index].m_liveBuckets, secondTables[index].m_liveBuckets);
        EXPECT_EQ(firstTables[index].m_deletedBuckets, secondTables[index].m_deletedBuckets);
        EXPECT_EQ(firstTables[index].m_reservedBuckets, secondTables[index].m_reservedBuckets);
        EXPECT_EQ(firstTables[index].m_totalProbeLength, secondTables[index].m_totalProbeLength);
    }
    EXPECT_EQ(findProblems(first), std::vector<std::string>());
    EXPECT_EQ(findProblems(second), std::vector<std::string>());
}

/// A dictionary with the first n integers, and with the halves after them.
inline std::unique_ptr<Dictionary> makeFilledDictionary(ResourceIDWidth width, int numberOfValues) {
    auto dictionary = std::make_unique<Dictionary>(makeOptions(width, 1 << 20, true));
    Transaction transaction(*dictionary);
    for (int i = 0; i < numberOfValues; ++i) {
        transaction.resolve(std::to_string(i), D_XSD_INTEGER);
        transaction.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL);
    }
    transaction.commit();
    return dictionary;
}

/// A store made by hand, of either width:
///
///   ID  1      2              3     4      5        6
///       0.5    xsd:integer    lost  int 7  -12.25   xsd:int 8, entered and rolled back
///              -2
///
/// The next ID is 7; IDs stay below 4096. The deleted xsd:int keeps its bucket and its data word.
struct SampleStore {

    static constexpr uint64_t NEXT_RESOURCE_ID = 7;
    static constexpr uint64_t MAX_RESOURCE_ID = 4096;

    explicit SampleStore(ResourceIDWidth width) :
        m_width(width),
        m_recordSize(width == ResourceIDWidth::BITS_32 ? 13 : 17) {
        setMaxResourceID(MAX_RESOURCE_ID);
        addDecimal(1, 5, 1);
        addInteger(D_XSD_INTEGER, 2, -2);
        addInteger(D_XSD_INT, 4, 7);
        addDecimal(5, -1225, 2);
        addInteger(D_XSD_INT, 6, 8);
        m_datatypeIDs[6] = D_NONE;
        ImageTable& table = m_image[D_XSD_INT];
        table.m_buckets[table.findWord(6)].m_word = getDeletedWord(D_XSD_INT);
        table.m_deletedCount = 1;
    }

    bool isNarrow() const { return m_width == ResourceIDWidth::BITS_32; }

    uint64_t getBusyWord(uint8_t datatypeID) const {
        return isNarrow() && datatypeID != D_XSD_DECIMAL ? UINT32_MAX : UINT64_MAX;
    }

    uint64_t getDeletedWord(uint8_t datatypeID) const { return getBusyWord(datatypeID) - 1; }

    /// Enters a word where probing from a hash meets the first empty bucket; returns the bucket's index.
    size_t place(uint8_t datatypeID, uint64_t hash, ImageBucket bucket) {
        ImageTable& table = m_image[datatypeID];
        size_t index = hash % table.m_numberOfBuckets;
        while (table.m_buckets[index].m_word != 0)
            index = (index + 1) % table.m_numberOfBuckets;
        table.m_buckets[index] = bucket;
        ++table.m_usedCount;
        return index;
    }

    size_t placeInteger(uint8_t datatypeID, uint64_t resourceID, int64_t value) {
        return place(datatypeID, static_cast<uint64_t>(value) * 0x9e3779b1ULL, {resourceID, value});
    }

    void addInteger(uint8_t datatypeID, uint64_t resourceID, int64_t value) {
        placeInteger(datatypeID, resourceID, value);
        setResource(resourceID, datatypeID, static_cast<uint64_t>(value));
    }

    void addDecimal(uint64_t resourceID, int64_t unscaledValue, uint8_t fractionDigits) {
        const uint64_t offset = 64 + m_pool.size();
        ByteWriter record;
        if (isNarrow())
            record.put(static_cast<uint32_t>(resourceID));
        else
            record.put(resourceID);
        record.put(unscaledValue).put(fractionDigits);
        m_pool += record.getBytes();
        const uint64_t hash =
            ((static_cast<uint64_t>(unscaledValue) ^ 0xcbf29ce484222325ULL) * 0x100000001b3ULL ^ fractionDigits) *
            0x100000001b3ULL;
        place(D_XSD_DECIMAL, hash, {offset});
        setResource(resourceID, D_XSD_DECIMAL, offset);
    }

    void setResource(uint64_t resourceID, uint8_t datatypeID, uint64_t data) {
        m_datatypeIDs[resourceID] = datatypeID;
        m_data[resourceID] = data;
    }

    /// Overwrites bytes of the record of the decimal that came first (0), second (1), ...
    template<typename Number>
    void patchRecord(size_t index, size_t offset, Number number) {
        std::memcpy(m_pool.data() + index * m_recordSize + offset, &number, sizeof(number));
    }

    /// Sets the bound of IDs, and what depends on it.
    void setMaxResourceID(uint64_t maxResourceID) {
        m_maxResourceID = m_image.m_maxResourceID = maxResourceID;
        m_image.m_maxResourceIDForBlocks = maxResourceID - 1024;
    }

    size_t getUnscaledValueOffset() const { return m_recordSize - 9; }

    StoreImage toImage() const {
        StoreImage store;
        store.m_resourceIDWidth = isNarrow() ? 32 : 64;
        ByteWriter counters, datatypeIDs, data;
        counters.put(m_nextResourceID)
            .put(m_maxResourceID)
            .put(m_poolEnd.value_or(64 + m_pool.size()))
            .put(m_numberOfResources);
        for (const uint8_t datatypeID : m_datatypeIDs)
            datatypeIDs.put(datatypeID);
        for (const uint64_t word : m_data)
            data.put(word);
        store.m_sections = {
            {"counters", counters.getBytes()},
            {"datatypes", datatypeIDs.getBytes()},
            {"data", data.getBytes()},
            {"pool", m_pool},
            {"dictionary-22", m_image.toBytes()}};
        return store;
    }

    std::string toBytes() const { return toImage().toBytes(); }

    const ResourceIDWidth m_width;
    const size_t m_recordSize;
    uint64_t m_nextResourceID = NEXT_RESOURCE_ID;
    uint64_t m_maxResourceID = MAX_RESOURCE_ID;
    std::optional<uint64_t> m_poolEnd;
    uint64_t m_numberOfResources = 4;
    std::vector<uint8_t> m_datatypeIDs = std::vector<uint8_t>(NEXT_RESOURCE_ID);
    std::vector<uint64_t> m_data = std::vector<uint64_t>(NEXT_RESOURCE_ID);
    std::string m_pool;
    NumericImage m_image;
};

}
