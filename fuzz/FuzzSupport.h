#pragma once

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

/// Where the fields of a dictionary image lie, as long as its tables have 1024 buckets.
struct ImageLayout {

    static constexpr size_t FIRST_TABLE = 8 + 15 + 16;
    static constexpr size_t TABLE_HEADER = 8 + 17;
    static constexpr size_t COUNTS = 4 * 8;
    static constexpr size_t RESERVATIONS = 256 * 4;
    static constexpr size_t REGION = 2 * 8;
    static constexpr size_t BUCKETS = TABLE_HEADER + COUNTS + RESERVATIONS + REGION;

    static size_t getTable(size_t table) noexcept {
        return FIRST_TABLE + table * BUCKETS + (table == 0 ? 0 : 8 * 1024 + (table - 1) * 16 * 1024);
    }

    static size_t getBucketSize(size_t table) noexcept { return table == 0 ? 8 : 16; }
};

/// Changes a dictionary image as the input says:  kind, place, number
inline void changeImage(std::string& image, Input& input) {
    const uint8_t kind = input.take<uint8_t>();
    const uint16_t place = input.take<uint16_t>();
    const uint64_t number = input.take<uint64_t>();
    const size_t table = place % 14;
    const size_t tablePosition = ImageLayout::getTable(table);
    const size_t index = place / 14;
    switch (kind % 6) {
    case 0: // a count or the region's size, of a table
        overwrite(
            image,
            tablePosition + ImageLayout::TABLE_HEADER +
                (index % 6 < 4 ? index % 6 * 8 : ImageLayout::COUNTS + ImageLayout::RESERVATIONS + (index % 6 - 4) * 8),
            number);
        break;
    case 1: // a reservation
        overwrite(
            image, tablePosition + ImageLayout::TABLE_HEADER + ImageLayout::COUNTS + index % 256 * 4,
            static_cast<uint32_t>(number));
        break;
    case 2: // the key word of a bucket
        overwrite(
            image, tablePosition + ImageLayout::BUCKETS + index % 1024 * ImageLayout::getBucketSize(table), number);
        break;
    case 3: // the value of a bucket, or the next key word
        overwrite(
            image, tablePosition + ImageLayout::BUCKETS + index % 1024 * ImageLayout::getBucketSize(table) + 8, number);
        break;
    case 4: // any byte of the front, where the bounds and the first headers are
        overwrite(image, place % 2048, static_cast<uint8_t>(number));
        break;
    default: // another length
        image.resize(number % 500'000, '\0');
    }
}

}
