#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/platform/stream/MemoryInputStream.h"
#include "support/Bytes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

// The image of a numeric dictionary, written and read from its description, without the code that saves and loads it.

namespace kavix::test {

/// Buckets as the image has them: 16 bytes for integers (ID word, value), 8 for decimals (record offset, no value).
struct ImageBucket {
    uint64_t m_word = 0;
    int64_t m_value = 0;
    bool operator==(const ImageBucket& other) const = default;
};

struct ImageTable {

    std::string m_header = "ParallelHashTable";
    uint64_t m_numberOfBuckets = 1024;
    uint64_t m_resizeThreshold = 716;
    uint64_t m_usedCount = 0;
    uint64_t m_deletedCount = 0;
    std::array<uint32_t, 256> m_freeReservations{};
    uint64_t m_maximum = 1024; // of the region; 0: no region
    std::vector<ImageBucket> m_buckets = std::vector<ImageBucket>(1024);

    uint64_t sumFreeReservations() const {
        uint64_t sum = 0;
        for (const uint32_t freeReservation : m_freeReservations)
            sum += freeReservation;
        return sum;
    }

    uint64_t countBuckets(bool (*isCounted)(uint64_t)) const {
        uint64_t count = 0;
        for (const ImageBucket& bucket : m_buckets)
            count += isCounted(bucket.m_word);
        return count;
    }

    /// The index of the bucket with a key word; fails the test if there is not exactly one.
    size_t findWord(uint64_t word) const {
        size_t found = m_buckets.size();
        for (size_t index = 0; index < m_buckets.size(); ++index)
            if (m_buckets[index].m_word == word) {
                EXPECT_EQ(found, m_buckets.size()) << "two buckets have the word " << word;
                found = index;
            }
        EXPECT_NE(found, m_buckets.size()) << "no bucket has the word " << word;
        return found;
    }
};

struct NumericImage {

    std::string m_header = "NumericDatatype";
    uint64_t m_maxResourceID = 0;
    uint64_t m_maxResourceIDForBlocks = 0;
    std::array<ImageTable, 14> m_tables; // by datatype ID less 22

    ImageTable& operator[](uint8_t datatypeID) { return m_tables[datatypeID - D_XSD_DECIMAL]; }
    const ImageTable& operator[](uint8_t datatypeID) const { return m_tables[datatypeID - D_XSD_DECIMAL]; }

    /// The bytes of the image. An ID word of a narrow dictionary fills the low half; the upper half is padding of
    /// zeroes.
    std::string toBytes() const {
        ByteWriter output;
        output.put(uint64_t(m_header.size())).putText(m_header).put(m_maxResourceID).put(m_maxResourceIDForBlocks);
        for (size_t tableIndex = 0; tableIndex < m_tables.size(); ++tableIndex) {
            const ImageTable& table = m_tables[tableIndex];
            output.put(uint64_t(table.m_header.size())).putText(table.m_header);
            output.put(table.m_numberOfBuckets)
                .put(table.m_resizeThreshold)
                .put(table.m_usedCount)
                .put(table.m_deletedCount);
            for (const uint32_t freeReservation : table.m_freeReservations)
                output.put(freeReservation);
            output.put(table.m_maximum);
            if (table.m_maximum == 0)
                continue;
            output.put(uint64_t(table.m_buckets.size()));
            for (const ImageBucket& bucket : table.m_buckets) {
                output.put(bucket.m_word);
                if (tableIndex != 0)
                    output.put(bucket.m_value);
            }
        }
        return output.getBytes();
    }

    static NumericImage fromBytes(const std::string& bytes) {
        NumericImage image;
        size_t position = 0;
        const auto take = [&](auto& number) {
            if (bytes.size() - position < sizeof(number))
                throw std::runtime_error("the image is too short");
            std::memcpy(&number, bytes.data() + position, sizeof(number));
            position += sizeof(number);
        };
        const auto takeText = [&](std::string& text) {
            uint64_t length;
            take(length);
            text = bytes.substr(position, length);
            position += length;
        };
        takeText(image.m_header);
        take(image.m_maxResourceID);
        take(image.m_maxResourceIDForBlocks);
        for (size_t tableIndex = 0; tableIndex < image.m_tables.size(); ++tableIndex) {
            ImageTable& table = image.m_tables[tableIndex];
            takeText(table.m_header);
            take(table.m_numberOfBuckets);
            take(table.m_resizeThreshold);
            take(table.m_usedCount);
            take(table.m_deletedCount);
            for (uint32_t& freeReservation : table.m_freeReservations)
                take(freeReservation);
            take(table.m_maximum);
            table.m_buckets.clear();
            if (table.m_maximum == 0)
                continue;
            uint64_t end;
            take(end);
            table.m_buckets.resize(end);
            for (ImageBucket& bucket : table.m_buckets) {
                take(bucket.m_word);
                if (tableIndex != 0)
                    take(bucket.m_value);
            }
        }
        EXPECT_EQ(position, bytes.size()) << "bytes follow the last table";
        return image;
    }
};

inline NumericImage saveToImage(const DictionaryDatatype& dictionary) {
    return NumericImage::fromBytes(saveToBytes(dictionary));
}

inline void loadFromBytes(DictionaryDatatype& dictionary, const std::string& bytes) {
    MemoryInputStream input(bytes);
    dictionary.load(input);
    EXPECT_EQ(input.getRemainingBytes(), 0u);
}

/// Whether a key word is that of a live bucket, for either width.
inline bool isLiveWord(uint64_t word) {
    return word != 0 && word < 0xfffffffeULL;
}

/// What must hold of every table between operations: counts that add up, no busy bucket, every live bucket reachable.
template<typename ResourceID>
void checkTables(const NumericImage& image) {
    const uint64_t deletedWord = static_cast<ResourceID>(-2);
    for (uint8_t datatypeID = D_XSD_DECIMAL; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID) {
        SCOPED_TRACE("datatype " + std::to_string(datatypeID));
        const ImageTable& table = image[datatypeID];
        const uint64_t deletedMark = datatypeID == D_XSD_DECIMAL ? uint64_t(-2) : deletedWord;
        uint64_t live = 0;
        uint64_t deleted = 0;
        for (size_t index = 0; index < table.m_numberOfBuckets; ++index) {
            const uint64_t word = table.m_buckets[index].m_word;
            if (word == deletedMark)
                ++deleted;
            else if (word != 0) {
                ++live;
                if (sizeof(ResourceID) == 4 && datatypeID != D_XSD_DECIMAL) {
                    EXPECT_LT(word, 0xfffffffeULL); // padding stays zero, nothing is busy
                }
                if (datatypeID == D_XSD_DECIMAL)
                    continue; // its values are in the pool
                const size_t mask = table.m_numberOfBuckets - 1;
                for (size_t probe = (static_cast<uint64_t>(table.m_buckets[index].m_value) * 0x9e3779b1ULL) & mask;
                     probe != index; probe = (probe + 1) & mask) {
                    ASSERT_NE(table.m_buckets[probe].m_word, 0u)
                        << "the value " << table.m_buckets[index].m_value << " cannot be reached";
                }
            }
        }
        EXPECT_EQ(table.m_usedCount - table.sumFreeReservations(), live + deleted);
        EXPECT_EQ(table.m_deletedCount, deleted);
        EXPECT_EQ(table.m_resizeThreshold, static_cast<uint64_t>(static_cast<double>(table.m_numberOfBuckets) * 0.7));
    }
}

}
