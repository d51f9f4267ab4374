#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kavix {

/// Runs of decimal digits, read eight at a time and written two at a time. What integers and decimals have in common; signs,
/// points, zeros to strip and ranges are theirs.
///
/// A word of eight digits holds the value of a digit (0 to 9) in every byte, the first character in the lowest byte, so
/// that the most significant digit is in the least significant byte, whatever the byte order of the machine.
namespace DecimalDigits {

/// The longest run that is read into 64 bits: 10^19 - 1 < 2^64.
inline constexpr size_t MAX_PARSED_DIGITS = 19;

/// The powers of ten that fit 64 bits: 10^0 to 10^19.
inline constexpr std::array<uint64_t, 20> POWERS_OF_TEN = [] {
    std::array<uint64_t, 20> powers{};
    uint64_t power = 1;
    for (uint64_t& element : powers) {
        element = power;
        power *= 10; // wraps after the last element only
    }
    return powers;
}();

static_assert(POWERS_OF_TEN[19] == 10000000000000000000u);

/// "00" to "99", one after the other.
inline constexpr std::array<char, 200> DIGIT_PAIRS = [] {
    std::array<char, 200> pairs{};
    for (size_t pair = 0; pair < 100; ++pair) {
        pairs[2 * pair] = static_cast<char>('0' + pair / 10);
        pairs[2 * pair + 1] = static_cast<char>('0' + pair % 10);
    }
    return pairs;
}();

inline bool isDigit(char character) noexcept {
    return static_cast<unsigned char>(character - '0') <= 9;
}

/// Reads eight characters as a word of digits; it is one only if areDigits() says so.
inline uint64_t loadEight(const char* text) noexcept {
    uint64_t word;
    std::memcpy(&word, text, sizeof(word));
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap64(word);
    return word ^ 0x3030303030303030; // '0' to '9' are 0x30 to 0x39, and no other characters become 0 to 9
}

/// Reads four characters like loadEight(), into the lower half; the upper half is zero.
inline uint64_t loadFour(const char* text) noexcept {
    uint32_t word;
    std::memcpy(&word, text, sizeof(word));
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap32(word);
    return word ^ 0x30303030u;
}

/// Whether every byte is 0 to 9.
inline bool areDigits(uint64_t word) noexcept {
    // A byte b below 0x80 becomes b + 0x76 <= 0xF5, which carries nowhere and has its top bit set exactly if b >= 10. A
    // byte of 0x80 or more may carry into the next one, but has its own top bit set, and the answer is no either way.
    return ((word | (word + 0x7676767676767676)) & 0x8080808080808080) == 0;
}

/// The number, below 10^8, that a word of digits stands for.
inline uint64_t combineDigits(uint64_t word) noexcept {
    // Bytes 0, 2, 4 and 6 become pairs: 10 * 9 + 9 = 99 fits a byte, and no byte carries (10 * 9 <= 255). The odd bytes
    // are of no use afterwards.
    word = word * 10 + (word >> 8);
    const uint64_t pairs0And2 = word & 0x000000FF000000FF;         // pair 0 in bits 0-31, pair 2 in bits 32-63
    const uint64_t pairs1And3 = (word >> 16) & 0x000000FF000000FF; // pair 1 in bits 0-31, pair 3 in bits 32-63
    // One multiplication weighs two pairs; their sum gathers in the upper halves:
    //   upper half of the first   pair 0 * 10^6 + pair 2 * 100
    //   upper half of the second  pair 1 * 10^4 + pair 3
    // Both together are at most 99,999,999 < 2^32. The lower halves hold pair 0 * 100 + pair 1 <= 9999: no carry. What
    // pair 2 and pair 3 contribute beyond bit 63 is cut off.
    return (pairs0And2 * ((uint64_t{1000000} << 32) + 100) + pairs1And3 * ((uint64_t{10000} << 32) + 1)) >> 32;
}

/// Reads a run of at most 19 digits; an empty run is 0. Returns false, and leaves value alone, if there is another
/// character. Reads no byte outside the run.
inline bool tryParse(const char* text, size_t count, uint64_t& value) noexcept {
    if (count < 4) {
        uint64_t result = 0;
        for (size_t index = 0; index < count; ++index) {
            if (!isDigit(text[index])) [[unlikely]]
                return false;
            result = result * 10 + static_cast<uint64_t>(text[index] - '0');
        }
        value = result;
        return true;
    }
    // Words are aligned to the end of the run; the one in front takes the first characters, whatever of them the next one
    // has too, and shifts those out. What is shifted in is zero: leading zeros.
    if (count <= 8) {
        const uint64_t word = loadFour(text + count - 4) << 32 | loadFour(text) << (64 - 8 * count); // overlap: same bytes
        if (!areDigits(word)) [[unlikely]]
            return false;
        value = combineDigits(word);
        return true;
    }
    const uint64_t front = loadEight(text);
    const uint64_t last = loadEight(text + count - 8);
    if (!areDigits(front) || !areDigits(last)) [[unlikely]]
        return false;
    if (count <= 16) {
        value = combineDigits(front << (128 - 8 * count)) * 100000000 + combineDigits(last); // < 10^16
        return true;
    }
    const uint64_t middle = loadEight(text + count - 16);
    if (!areDigits(middle)) [[unlikely]]
        return false;
    // < 10^count <= 10^19 < 2^64; the shift is 40 to 56 bits.
    value = (combineDigits(front << (192 - 8 * count)) * 100000000 + combineDigits(middle)) * 100000000 + combineDigits(last);
    return true;
}

/// Writes exactly two digits of a number below 100.
inline void writeTwo(uint32_t value, char* buffer) noexcept {
    std::memcpy(buffer, &DIGIT_PAIRS[2 * value], 2);
}

/// Writes exactly four digits of a number below 10^4.
inline void writeFour(uint32_t value, char* buffer) noexcept {
    writeTwo(value / 100, buffer);
    writeTwo(value % 100, buffer + 2);
}

/// Writes exactly eight digits of a number below 10^8.
inline void writeEight(uint32_t value, char* buffer) noexcept {
    writeFour(value / 10000, buffer);
    writeFour(value % 10000, buffer + 4);
}

/// Writes the digits of a number below 100 and returns how many they are.
inline size_t writeUpToTwo(uint32_t value, char* buffer) noexcept {
    if (value < 10) {
        *buffer = static_cast<char>('0' + value);
        return 1;
    }
    writeTwo(value, buffer);
    return 2;
}

/// Writes the digits of a number below 10^8 and returns how many they are.
inline size_t writeUpToEight(uint32_t value, char* buffer) noexcept {
    if (value < 100)
        return writeUpToTwo(value, buffer);
    if (value < 10000) {
        const size_t length = writeUpToTwo(value / 100, buffer);
        writeTwo(value % 100, buffer + length);
        return length + 2;
    }
    if (value < 1000000) {
        const size_t length = writeUpToTwo(value / 10000, buffer);
        writeFour(value % 10000, buffer + length);
        return length + 4;
    }
    const uint32_t front = value / 10000; // 100 to 9999
    const size_t length = writeUpToTwo(front / 100, buffer);
    writeTwo(front % 100, buffer + length);
    writeFour(value % 10000, buffer + length + 2);
    return length + 6;
}

/// Writes the digits of a number, 1 to 20 of them, returns how many they are, and writes no byte behind them.
inline size_t write(uint64_t value, char* buffer) noexcept {
    constexpr uint64_t EIGHT_DIGITS = 100000000;
    if (value < EIGHT_DIGITS)
        return writeUpToEight(static_cast<uint32_t>(value), buffer);
    const uint32_t last = static_cast<uint32_t>(value % EIGHT_DIGITS);
    value /= EIGHT_DIGITS; // now below 2^64 / 10^8 < 10^12
    size_t length;
    if (value < EIGHT_DIGITS)
        length = writeUpToEight(static_cast<uint32_t>(value), buffer);
    else {
        length = writeUpToEight(static_cast<uint32_t>(value / EIGHT_DIGITS), buffer); // of a number below 10^4
        writeEight(static_cast<uint32_t>(value % EIGHT_DIGITS), buffer + length);
        length += 8;
    }
    writeEight(last, buffer + length);
    return length + 8;
}

}

}
