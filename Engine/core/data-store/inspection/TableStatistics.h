#pragma once

#include <cstdint>

namespace kavix {

/// The state of one table of a Dictionary. A probe length is the number of buckets that finding a value examines: at
/// least 1.
struct TableStatistics {
    uint8_t m_datatypeID;
    uint64_t m_numberOfBuckets;
    uint64_t m_liveBuckets;
    uint64_t m_deletedBuckets;
    uint64_t m_reservedBuckets;
    uint64_t m_committedBytes;
    uint64_t m_totalProbeLength; // over all live buckets
    uint64_t m_maxProbeLength;
};

}
