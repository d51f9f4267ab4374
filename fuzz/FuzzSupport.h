#pragma once

#include "core/data-store/dictionary/NumericImageFormat.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

// What the fuzzers share. A store has 240 KB, nearly all of it zero, so the input is not a store but a list of changes
// to a small intact one; a change names a field rather than a byte, so that mutations meet fields and not only empty
// buckets.

namespace kavix::fuzz {

/// Ends the process: a promise was broken.
[[noreturn]] inline void fail(const char* promise) {
    std::fprintf(stderr, "BROKEN PROMISE: %s\n", promise);
    std::abort();
}

inline void require(bool condition, const char* promise) {
    if (!condition)
        fail(promise);
}

/// Numbers taken from the front of the input; zero when it is used up.
class Input {

public:

    Input(const uint8_t* data, size_t size) noexcept :
        m_data(data),
        m_size(size) { }

    bool isEmpty() const noexcept { return m_size == 0; }

    template<typename Number>
    Number take() noexcept {
        Number number = 0;
        const size_t taken = m_size < sizeof(number) ? m_size : sizeof(number);
        if (taken != 0)
            std::memcpy(&number, m_data, taken);
        m_data += taken;
        m_size -= taken;
        return number;
    }

private:

    const uint8_t* m_data;
    size_t m_size;
};

/// Overwrites part of some bytes with a number, where it fits.
template<typename Number>
void overwrite(std::string& bytes, size_t position, Number number) {
    if (position <= bytes.size() && bytes.size() - position >= sizeof(number))
        std::memcpy(bytes.data() + position, &number, sizeof(number));
}

/// Where a table of a dictionary image lies, as long as all tables have the smallest size.
/// @param table  0 for xsd:decimal, 1 to 13 for the integer datatypes
inline size_t getTablePosition(size_t table) noexcept {
    size_t position = NumericImageFormat::TABLES_OFFSET;
    for (size_t before = 0; before < table; ++before)
        position += TableImageFormat::BUCKETS_OFFSET +
                    NumericImageFormat::getBucketSize(static_cast<uint8_t>(D_XSD_DECIMAL + before)) *
                        TableImageFormat::MINIMUM_NUMBER_OF_BUCKETS;
    return position;
}

/// Changes a dictionary image as the input says:  kind, place, number
inline void changeImage(std::string& image, Input& input) {
    const uint8_t kind = input.take<uint8_t>();
    const uint16_t place = input.take<uint16_t>();
    const uint64_t number = input.take<uint64_t>();
    const size_t table = place % 14;
    const size_t tablePosition = getTablePosition(table);
    const size_t bucketSize = NumericImageFormat::getBucketSize(static_cast<uint8_t>(D_XSD_DECIMAL + table));
    const size_t index = place / 14;
    const size_t bucketPosition = tablePosition + TableImageFormat::BUCKETS_OFFSET +
                                  index % TableImageFormat::MINIMUM_NUMBER_OF_BUCKETS * bucketSize;
    switch (kind % 6) {
    case 0: // a count or the region's size, of a table
        overwrite(
            image,
            tablePosition + (index % 6 < 4 ? TableImageFormat::NUMBER_OF_BUCKETS_OFFSET + index % 6 * 8
                                           : TableImageFormat::CAPACITY_OFFSET + (index % 6 - 4) * 8),
            number);
        break;
    case 1: // a reservation
        overwrite(
            image, tablePosition + TableImageFormat::RESERVATIONS_OFFSET + index % NUMBER_OF_THREAD_SLOTS * 4,
            static_cast<uint32_t>(number));
        break;
    case 2: // the key word of a bucket
        overwrite(image, bucketPosition, number);
        break;
    case 3: // the value of a bucket, or the next key word
        overwrite(image, bucketPosition + 8, number);
        break;
    case 4: // any byte of the front, where the bounds and the first headers are
        overwrite(image, place % 2048, static_cast<uint8_t>(number));
        break;
    default: // another length
        image.resize(number % 500'000, '\0');
    }
}

}
