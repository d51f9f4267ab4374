#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kavix {

/// Runs of decimal digits, read eight at a time and written two at a time: what integers and decimals have in common.
/// Signs, points, stripping of zeros and ranges are left to them.
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

/// The value of a digit; of another character, more than 9.
inline uint32_t getDigit(char character) noexcept {
    return static_cast<unsigned char>(character - '0');
}

inline bool isDigit(char character) noexcept {
    return getDigit(character) <= 9;
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

/// Reads two characters like loadEight(), into the lowest quarter; the others are zero.
inline uint64_t loadTwo(const char* text) noexcept {
    uint16_t word;
    std::memcpy(&word, text, sizeof(word));
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap16(word);
    return static_cast<uint64_t>(word ^ 0x3030u);
}

/// Reads the last count characters of a word, 1 to 8; those before them are zero digits. Reads no other byte.
inline uint64_t loadUpToEight(const char* text, size_t count) noexcept {
    // Where two loads overlap they have the same bytes at the same positions.
    if (count >= 4)
        return loadFour(text + count - 4) << 32 | loadFour(text) << (64 - 8 * count);
    if (count >= 2)
        return loadTwo(text + count - 2) << 48 | loadTwo(text) << (64 - 8 * count);
    return static_cast<uint64_t>(static_cast<unsigned char>(*text) ^ 0x30u) << 56;
}

/// The top bits of bytes that are not 0 to 9: zero if and only if the word is one of digits. The lowest one marks the
/// first such byte; after a byte of 0x80 or more a digit may be marked as well.
inline uint64_t markNonDigits(uint64_t word) noexcept {
    // A byte b below 0x80 becomes b + 0x76 <= 0xF5, which does not carry and has its top bit set if and only if b >=
    // 10. A byte of 0x80 or more may carry into the next one, but has its own top bit set.
    return (word | (word + 0x7676767676767676)) & 0x8080808080808080;
}

/// Whether every byte is 0 to 9.
inline bool areDigits(uint64_t word) noexcept {
    return markNonDigits(word) == 0;
}

/// The number, below 10^8, that a word of digits represents.
inline uint64_t combineDigits(uint64_t word) noexcept {
    // Bytes 0, 2, 4 and 6 become pairs: 10 * 9 + 9 = 99 fits a byte, and no byte carries (10 * 9 <= 255). The odd bytes
    // are not used afterwards.
    word = word * 10 + (word >> 8);
    const uint64_t pairs0And2 = word & 0x000000FF000000FF; // pair 0 in bits 0-31, pair 2 in bits 32-63
    const uint64_t pairs1And3 = (word >> 16) & 0x000000FF000000FF; // pair 1 in bits 0-31, pair 3 in bits 32-63
    // One multiplication weighs two pairs; their sum accumulates in the upper halves:
    //   upper half of the first   pair 0 * 10^6 + pair 2 * 100
    //   upper half of the second  pair 1 * 10^4 + pair 3
    // Both together are at most 99,999,999 < 2^32. The lower halves hold pair 0 * 100 + pair 1 <= 9999: no carry. What
    // pair 2 and pair 3 contribute beyond bit 63 is cut off.
    return (pairs0And2 * ((uint64_t{1000000} << 32) + 100) + pairs1And3 * ((uint64_t{10000} << 32) + 1)) >> 32;
}

/// The word without the byte whose top bit is set in mask, its only bit: the bytes before that one move up by one.
inline uint64_t removeByte(uint64_t word, uint64_t mask) noexcept {
    const uint64_t first = mask >> 7; // the lowest bit of the byte
    return (word & (0 - (mask << 1))) | (word & (first - 1)) << 8;
}

/// Reads a run of at most 19 digits; an empty run is 0. Returns false, and leaves value unchanged, if there is another
/// character. Reads no byte outside the run.
[[gnu::always_inline]] inline bool tryParse(const char* text, size_t count, uint64_t& value) noexcept {
    if (count < 4) {
        uint32_t result = 0;
        for (size_t index = 0; index < count; ++index) {
            const uint32_t digit = getDigit(text[index]);
            if (digit > 9) [[unlikely]]
                return false;
            result = result * 10 + digit;
        }
        value = result;
        return true;
    }
    // Words are aligned to the end of the run; the first one reads the first characters, including any that the next
    // one has too, and shifts those out. Zeros are shifted in: leading zeros.
    if (count <= 8) {
        const uint64_t word = loadUpToEight(text, count);
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
    value = (combineDigits(front << (192 - 8 * count)) * 100000000 + combineDigits(middle)) * 100000000 +
            combineDigits(last);
    return true;
}

/// Writes exactly two digits of a number below 100.
inline void writeTwo(uint32_t value, char* buffer) noexcept {
    std::memcpy(buffer, &DIGIT_PAIRS[2 * value], 2);
}

/// A number below 10^4, divided by 100; written out, because compilers use more steps to support larger numbers.
inline uint32_t getHundreds(uint32_t value) noexcept {
    return value * 5243 >>
           19; // 5243 / 2^19 = 0.01 + 3.05e-7; too much by less than 0.01 up to 10^4, and so never the next number
}

/// Writes exactly four digits of a number below 10^4.
inline void writeFour(uint32_t value, char* buffer) noexcept {
    const uint32_t hundreds = getHundreds(value);
    writeTwo(hundreds, buffer);
    writeTwo(value - hundreds * 100, buffer + 2);
}

/// Writes exactly eight digits of a number below 10^8.
inline void writeEight(uint32_t value, char* buffer) noexcept {
    writeFour(value / 10000, buffer);
    writeFour(value % 10000, buffer + 4);
}

/// Writes the digits of a number below 10^4 and returns how many they are.
inline size_t writeUpToFour(uint32_t value, char* buffer) noexcept {
    if (value < 100) {
        if (value < 10) {
            *buffer = static_cast<char>('0' + value);
            return 1;
        }
        writeTwo(value, buffer);
        return 2;
    }
    const uint32_t hundreds = getHundreds(value);
    if (value < 1000) {
        *buffer = static_cast<char>('0' + hundreds);
        writeTwo(value - hundreds * 100, buffer + 1);
        return 3;
    }
    writeTwo(hundreds, buffer);
    writeTwo(value - hundreds * 100, buffer + 2);
    return 4;
}

/// Writes the digits of a number from 10^4 to 10^8 - 1 and returns how many they are.
inline size_t writeFiveToEight(uint32_t value, char* buffer) noexcept {
    const size_t length = writeUpToFour(value / 10000, buffer);
    writeFour(value % 10000, buffer + length);
    return length + 4;
}

/// Writes exactly count digits, 1 to 8, of a number below 10^count: with leading zeros.
inline void writePadded(uint32_t value, size_t count, char* buffer) noexcept {
    if (count > 4) {
        const uint32_t front = value / 10000;
        writeFour(value - front * 10000, buffer + count - 4);
        value = front;
        count -= 4;
    }
    // The last two at once, and then those before them.
    if (count == 2) {
        writeTwo(value, buffer);
        return;
    }
    if (count == 1) {
        *buffer = static_cast<char>('0' + value);
        return;
    }
    const uint32_t hundreds = getHundreds(value);
    writeTwo(value - hundreds * 100, buffer + count - 2);
    if (count == 3)
        *buffer = static_cast<char>('0' + hundreds);
    else
        writeTwo(hundreds, buffer);
}

/// Writes the digits of a number, 1 to 20 of them, returns how many they are, and writes no byte after them.
inline size_t write(uint64_t value, char* buffer) noexcept {
    constexpr uint64_t EIGHT_DIGITS = 100000000;
    if (value < 10000)
        return writeUpToFour(static_cast<uint32_t>(value), buffer);
    if (value < EIGHT_DIGITS)
        return writeFiveToEight(static_cast<uint32_t>(value), buffer);
    const uint32_t last = static_cast<uint32_t>(value % EIGHT_DIGITS);
    value /= EIGHT_DIGITS; // now below 2^64 / 10^8 < 10^12
    size_t length;
    if (value < 10000)
        length = writeUpToFour(static_cast<uint32_t>(value), buffer);
    else if (value < EIGHT_DIGITS)
        length = writeFiveToEight(static_cast<uint32_t>(value), buffer);
    else {
        length = writeUpToFour(static_cast<uint32_t>(value / EIGHT_DIGITS), buffer);
        writeEight(static_cast<uint32_t>(value % EIGHT_DIGITS), buffer + length);
        length += 8;
    }
    writeEight(last, buffer + length);
    return length + 8;
}

}

}
