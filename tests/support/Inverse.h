#pragma once

#include <cstdint>

namespace kavix::test {

/// The inverse of an odd number modulo 2^64: hashes are products, so tests can ask for the key of a hash.
constexpr uint64_t getInverse(uint64_t number) {
    uint64_t result = number; // right in the lowest 3 bits; each step doubles that
    for (int step = 0; step < 5; ++step)
        result *= 2 - number * result;
    return result;
}

}
