#pragma once

#include <cstdint>
#include <limits>

namespace kavix::test {

/// Integers whose bytes, in 32 or 64 bits, are those of the markers of empty, busy and deleted buckets, and their
/// neighbours.
inline constexpr int64_t MARKER_LOOKALIKES[] = {
    0,          -1,         -2,          1, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max(),
    0xffffffff, 0xfffffffe, -0x100000000};

}
