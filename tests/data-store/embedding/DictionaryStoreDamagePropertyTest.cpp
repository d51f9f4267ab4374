// A store with any byte changed, or cut anywhere, is refused with a message: no byte lies outside what is checked.

#include "core/data-store/embedding/Dictionary.h"

#include "core/platform/stream/InputStream.h"
#include "support/SampleStore.h"
#include "support/Scale.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;
using test::openStore;
using test::SampleStore;

namespace {

/// The positions to damage: every byte but the buckets and most of the reservations, which are many and alike; of these
/// every so many, with a step that meets every byte of a bucket.
std::vector<size_t> getPositions(const SampleStore& store, size_t bucketStep, size_t reservationStep) {
    const size_t size = store.toBytes().size();
    const size_t imageStart = size - store.m_image.toBytes().size();
    std::vector<size_t> positions;
    const auto add = [&positions](size_t& position, size_t length, size_t step) {
        for (size_t offset = 0; offset < length; offset += step)
            positions.push_back(position + offset);
        position += length;
    };
    size_t position = 0;
    add(position, imageStart, 1);
    add(position, 8 + 15 + 16, 1);
    for (size_t table = 0; table < 14; ++table) {
        add(position, 8 + 17 + 4 * 8, 1);
        add(position, 256 * 4, reservationStep);
        add(position, 2 * 8, 1);
        add(position, 1024 * (table == 0 ? 8 : 16), bucketStep);
    }
    EXPECT_EQ(position, size);
    return positions;
}

/// The bytes of a store of which one is different, or that end early.
class DamagedStream : public InputStream {

public:

    explicit DamagedStream(const std::string& bytes) :
        m_bytes(bytes),
        m_end(bytes.size()),
        m_damagedPosition(bytes.size()) { }

    void damage(size_t position, uint8_t mask) {
        m_damagedPosition = position;
        m_mask = mask;
    }

    void truncate(size_t end) { m_end = end; }

    void rewind() override { m_position = 0; }

    size_t read(void* data, size_t numberOfBytes) override {
        const size_t bytesRead = std::min(numberOfBytes, m_end - m_position);
        std::memcpy(data, m_bytes.data() + m_position, bytesRead);
        if (m_damagedPosition >= m_position && m_damagedPosition - m_position < bytesRead)
            static_cast<uint8_t*>(data)[m_damagedPosition - m_position] ^= m_mask;
        m_position += bytesRead;
        return bytesRead;
    }

    void skip(uint64_t numberOfBytes) override {
        if (numberOfBytes > m_end - m_position)
            Errors::throwPrematureEndOfFile();
        m_position += numberOfBytes;
    }

private:

    const std::string& m_bytes;
    size_t m_end;
    size_t m_damagedPosition;
    uint8_t m_mask = 0;
    size_t m_position = 0;
};

/// Why a store is refused; empty if it is opened.
std::string open(DamagedStream& input, bool checkEveryValue) {
    input.rewind();
    Dictionary::OpenOptions options;
    options.checkEveryValue = checkEveryValue;
    try {
        Dictionary::openStore(input, options);
        return "";
    }
    catch (const KavixException& exception) {
        return exception.getMessage();
    }
}

void expectReason(const std::string& message, size_t position) {
    // A region may ask for more address space than there is: that is an error of its own.
    const bool hasReason = message.rfind("The store cannot be opened: section '", 0) == 0 ||
                           message.rfind("An error occurred while reserving ", 0) == 0;
    EXPECT_TRUE(hasReason) << "position " << position << ": '" << message << "'";
}

}

TEST(DictionaryStoreDamage, AChangedByteIsRefusedWithAMessage) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const SampleStore store(width);
        const std::string bytes = store.toBytes();
        DamagedStream input(bytes);
        std::mt19937_64 random(4711 + static_cast<uint64_t>(width)); // which bit, and whether every value is checked
        for (const size_t position : getPositions(store, 61, 13)) {
            const uint64_t choice = random();
            input.damage(position, choice % 2 == 0 ? uint8_t(0xff) : static_cast<uint8_t>(1 << (choice / 2 % 8)));
            expectReason(open(input, choice / 16 % 2 == 0), position);
        }
        input.damage(0, 0);
        EXPECT_EQ(open(input, true), "") << "the store without damage";
    }
}

TEST(DictionaryStoreDamage, EveryBitOfTheFrameCounts) {
    const std::string bytes = SampleStore(ResourceIDWidth::BITS_32).toBytes();
    DamagedStream input(bytes);
    for (size_t position = 0; position < 40 + 5 * 40 + 8 + 32; ++position)
        for (int bit = 0; bit < 8; ++bit) {
            input.damage(position, static_cast<uint8_t>(1 << bit));
            expectReason(open(input, false), position);
        }
}

TEST(DictionaryStoreDamage, ATruncatedStoreIsRefusedWithAMessage) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const SampleStore store(width);
        const std::string bytes = store.toBytes();
        DamagedStream input(bytes);
        bool checkEveryValue = false;
        for (const size_t position : getPositions(store, 61, 61)) {
            input.truncate(position);
            expectReason(open(input, checkEveryValue = !checkEveryValue), position);
        }
        input.truncate(bytes.size() - 1);
        EXPECT_EQ(
            open(input, false),
            test::makeRefusal("dictionary-22", "the file ends inside the section: it is truncated"));
    }
}

/// With right checksums a change may go unnoticed where it changes nothing: then the dictionary is consistent.
TEST(DictionaryStoreDamage, ChangesUnderRightChecksumsAreRefusedOrHarmless) {
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        std::mt19937_64 random(815 + static_cast<uint64_t>(width));
        const SampleStore store(width);
        const test::StoreImage image = store.toImage();
        size_t refused = 0;
        for (size_t round = 0; round < 3000 / test::STRESS_DIVISOR; ++round) {
            test::StoreImage damaged = image;
            const size_t numberOfChanges = 1 + random() % 3;
            for (size_t change = 0; change < numberOfChanges; ++change) {
                std::string& bytes = damaged.m_sections[random() % damaged.m_sections.size()].m_bytes;
                bytes[random() % (random() % 2 == 0 ? bytes.size() : std::min<size_t>(bytes.size(), 1300))] ^=
                    static_cast<char>(1 << random() % 8);
            }
            SCOPED_TRACE("round " + std::to_string(round));
            try {
                const std::unique_ptr<Dictionary> dictionary = openStore(damaged.toBytes());
                EXPECT_EQ(test::findProblems(*dictionary), std::vector<std::string>());
                test::listResources(*dictionary, dictionary->takeSnapshot().resourceIDEnd);
                for (int i = 0; i < 20; ++i)
                    EXPECT_NE(dictionary->resolve(std::to_string(i), D_XSD_INT), 0u);
            }
            catch (const KavixException& exception) {
                ++refused;
            }
        }
        EXPECT_GT(refused, 100u);
    }
}

}
