#pragma once

#include "core/platform/collections/ThreadContext.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kavix {

/// The image of a saved hash table. All numbers are in the byte order of the machine, nothing is padded:
///
///   offset  bytes           field
///        0  8               the length of the header, 17
///        8  17              the header, "ParallelHashTable"
///       25  8               the number of buckets: a power of two, at least 1024
///       33  8               the resize threshold: the number of buckets times the load factor, rounded down
///       41  8               the used count: live and deleted buckets, and free reservations
///       49  8               the deleted count
///       57  256 x 4         the free reservations of each thread slot
///     1081  8               the capacity of the region, in buckets; if it is 0 the image ends here
///     1089  8               the end of the region, in buckets: at least the number of buckets
///     1097  end x size      the buckets; their layout is the table's own
namespace TableImageFormat {

inline constexpr std::string_view HEADER = "ParallelHashTable";

inline constexpr uint64_t NUMBER_OF_BUCKETS_OFFSET = sizeof(uint64_t) + HEADER.size();
inline constexpr uint64_t RESERVATIONS_OFFSET = NUMBER_OF_BUCKETS_OFFSET + 4 * sizeof(uint64_t);
inline constexpr uint64_t CAPACITY_OFFSET = RESERVATIONS_OFFSET + NUMBER_OF_THREAD_SLOTS * sizeof(uint32_t);
inline constexpr uint64_t END_OFFSET = CAPACITY_OFFSET + sizeof(uint64_t);
inline constexpr uint64_t BUCKETS_OFFSET = END_OFFSET + sizeof(uint64_t);

static_assert(NUMBER_OF_BUCKETS_OFFSET == 25 && RESERVATIONS_OFFSET == 57 && BUCKETS_OFFSET == 1097);

/// The smallest table.
inline constexpr size_t MINIMUM_NUMBER_OF_BUCKETS = 1024;

/// The share of the buckets that may be used before the table grows.
inline constexpr double LOAD_FACTOR = 0.7;

inline uint64_t getResizeThreshold(uint64_t numberOfBuckets) noexcept {
    return static_cast<uint64_t>(static_cast<double>(numberOfBuckets) * LOAD_FACTOR);
}

}

}
