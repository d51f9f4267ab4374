#pragma once

#include "core/data-store/numbers/XSDDecimal.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace kavix::benchmarks {

/// A bijection of 64-bit numbers (the finaliser of splitmix64): distinct indexes give distinct values that look random,
/// so no workload has to detect duplicates or store its values.
inline int64_t makeRandomInteger(uint64_t index) noexcept {
    index += 0x9e3779b97f4a7c15u;
    index = (index ^ (index >> 30)) * 0xbf58476d1ce4e5b9u;
    index = (index ^ (index >> 27)) * 0x94d049bb133111ebu;
    return static_cast<int64_t>(index ^ (index >> 31));
}

/// A source of random numbers below a bound: fast, and the same on every run.
class Random {

public:

    explicit Random(uint64_t seed) noexcept :
        m_next(seed << 40) { }

    uint64_t below(uint64_t bound) noexcept {
        const uint64_t number = static_cast<uint64_t>(makeRandomInteger(m_next++)) >> 32;
        return number * bound >> 32; // bounds are below 2^32
    }

    double fraction() noexcept {
        return static_cast<double>(static_cast<uint64_t>(makeRandomInteger(m_next++)) >> 11) * 0x1p-53;
    }

private:

    uint64_t m_next;
};

template<typename Key>
void shuffle(std::vector<Key>& keys) {
    Random random(3);
    for (size_t index = keys.size(); index > 1; --index)
        std::swap(keys[index - 1], keys[random.below(index)]);
}

/// values makeKey(first), ..., each once.
template<typename MakeKey>
auto makeKeys(size_t count, uint64_t first, MakeKey makeKey) {
    std::vector<decltype(makeKey(first))> keys(count);
    for (size_t index = 0; index < count; ++index)
        keys[index] = makeKey(first + index);
    return keys;
}

/// Draws from the values of a vector with equal probability.
template<typename Key>
std::vector<Key> drawFrom(const std::vector<Key>& values, size_t count) {
    Random random(5);
    std::vector<Key> keys(count);
    for (Key& key : keys)
        key = values[random.below(values.size())];
    return keys;
}

/// Draws of random integers whose ranks have a Zipf distribution (Gray et al., "Quickly generating billion-record
/// synthetic databases"): few values are most of the draws, as in real data.
inline std::vector<int64_t> drawZipf(size_t numberOfValues, double exponent, size_t count) {
    double zeta = 0;
    for (size_t rank = 1; rank <= numberOfValues; ++rank)
        zeta += std::pow(static_cast<double>(rank), -exponent);
    const double alpha = 1 / (1 - exponent);
    const double size = static_cast<double>(numberOfValues);
    const double eta = (1 - std::pow(2 / size, 1 - exponent)) / (1 - (1 + std::pow(0.5, exponent)) / zeta);
    Random random(7);
    std::vector<int64_t> keys(count);
    for (int64_t& key : keys) {
        const double fraction = random.fraction();
        const double scaled = fraction * zeta;
        uint64_t rank = 0;
        if (scaled >= 1)
            rank = scaled < 1 + std::pow(0.5, exponent)
                       ? 1
                       : static_cast<uint64_t>(size * std::pow(eta * fraction - eta + 1, alpha));
        key = makeRandomInteger(rank < numberOfValues ? rank : numberOfValues - 1);
    }
    return keys;
}

/// index / 100, normalised: a price.
inline XSDDecimal makePrice(uint64_t index) noexcept {
    uint8_t fractionDigits = 2;
    while (fractionDigits > 0 && index % 10 == 0) {
        index /= 10;
        --fractionDigits;
    }
    return XSDDecimal::fromNormalisedFields(static_cast<int64_t>(index), fractionDigits);
}

}
