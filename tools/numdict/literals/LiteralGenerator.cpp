#include "numdict/literals/LiteralGenerator.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace kavix::numdict {

namespace {

/// The finaliser of SplitMix64: spreads every bit of the argument over the result.
uint64_t mix(uint64_t value) {
    value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9ULL;
    value = (value ^ value >> 27) * 0x94d049bb133111ebULL;
    return value ^ value >> 31;
}

void appendNumber(uint64_t number, std::string& text) {
    char digits[20];
    const auto result = std::to_chars(digits, digits + sizeof(digits), number);
    text.append(digits, static_cast<size_t>(result.ptr - digits));
}

/// The number with its last digits after the point.
void appendFixedPoint(uint64_t unscaled, unsigned fractionDigits, std::string& text) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof(digits), unscaled);
    std::string_view all(digits, static_cast<size_t>(result.ptr - digits));
    if (all.size() > fractionDigits) {
        text.append(all.substr(0, all.size() - fractionDigits));
        all.remove_prefix(all.size() - fractionDigits);
        text += '.';
    }
    else {
        text.append("0.");
        text.append(fractionDigits - all.size(), '0');
    }
    text.append(all);
}

void appendSubject(std::string_view kind, uint64_t number, std::string_view predicate, std::string& text) {
    text.append("<http://example.org/").append(kind);
    appendNumber(number, text);
    text.append("> <http://example.org/").append(predicate).append("> \"");
}

void appendDatatype(std::string_view name, std::string& text) {
    text.append("\"^^<http://www.w3.org/2001/XMLSchema#").append(name).append("> .\n");
}

}

LiteralGenerator::LiteralGenerator(uint64_t seed) noexcept :
    m_state(mix(seed + 0x9e3779b97f4a7c15ULL)) { }

uint64_t LiteralGenerator::next() noexcept {
    m_state += 0x9e3779b97f4a7c15ULL;
    return mix(m_state);
}

uint64_t LiteralGenerator::nextBelow(uint64_t bound) noexcept {
    // The upper half of the product of two 32-bit numbers: bounds here are far below 2^32, so no value is favoured
    // visibly.
    return (next() >> 32) * bound >> 32;
}

uint64_t LiteralGenerator::nextRank(unsigned bits) noexcept {
    const uint64_t random = next();
    const uint64_t octave = (random >> 32) * bits >> 32;
    const uint64_t size = uint64_t(1) << octave;
    return size - 1 + ((random & 0xffffffffULL) & (size - 1));
}

void LiteralGenerator::appendStatement(std::string& text) {
    const uint64_t kind = nextBelow(100);
    if (kind < 30)
        appendPrice(text);
    else if (kind < 50)
        appendRating(text);
    else if (kind < 60)
        appendYear(text);
    else if (kind < 65)
        appendIdentifier(text);
    else if (kind < 85)
        appendReading(text);
    else
        appendCount(text);
}

void LiteralGenerator::appendPrice(std::string& text) {
    // Prices have favourites, and most end in 99.
    const uint64_t price = mix(nextRank(16)) % 2000;
    const uint64_t cents = nextBelow(10) < 6 ? 99 : nextRank(7) % 100;
    appendSubject("product/", nextRank(22), "price", text);
    appendFixedPoint(price * 100 + cents, 2, text);
    appendDatatype("decimal", text);
}

void LiteralGenerator::appendRating(std::string& text) {
    appendSubject("product/", nextRank(22), "rating", text);
    appendNumber(std::max(nextBelow(10), nextBelow(10)) + 1, text); // high ratings are more frequent
    appendDatatype("integer", text);
}

void LiteralGenerator::appendYear(std::string& text) {
    appendSubject("product/", nextRank(22), "year", text);
    appendNumber(2025 - nextRank(7) % 126, text);
    appendDatatype("int", text);
}

void LiteralGenerator::appendIdentifier(std::string& text) {
    const uint64_t product = nextRank(24);
    appendSubject("product/", product, "identifier", text);
    appendNumber(1000000000000ULL + mix(product) % 9000000000000ULL, text);
    appendDatatype("long", text);
}

void LiteralGenerator::appendReading(std::string& text) {
    constexpr uint64_t POWERS[7] = {1, 10, 100, 1000, 10000, 100000, 1000000};
    const uint64_t sensor = nextRank(12);
    const auto fractionDigits = static_cast<unsigned>(1 + mix(sensor) % 6); // a sensor always has the same
    const uint64_t scale = POWERS[fractionDigits];
    // Around 15, seldom far from it, as the sum of three draws.
    const uint64_t above = nextBelow(20 * scale) + nextBelow(20 * scale) + nextBelow(20 * scale);
    const uint64_t zero = 15 * scale;
    appendSubject("sensor/", sensor, "reading", text);
    if (above < zero)
        text += '-';
    appendFixedPoint(above < zero ? zero - above : above - zero, fractionDigits, text);
    appendDatatype("decimal", text);
}

void LiteralGenerator::appendCount(std::string& text) {
    appendSubject("product/", nextRank(22), "stock", text);
    appendNumber(nextRank(20), text);
    appendDatatype("nonNegativeInteger", text);
}

}
