#pragma once

#include <cstddef>
#include <cstdint>

namespace kavix {

/// The probing rule of the hash tables: an entry lies in the first bucket that was free when it was inserted, counted
/// from the bucket that its hash leads to; the last bucket is followed by the first. A table has mask + 1 buckets, a
/// power of two. So every bucket from where the hash leads to where the entry lies was occupied when it was inserted,
/// and a search that meets an empty bucket is over. Saved tables depend on this rule.
namespace LinearProbing {

/// The index of the bucket that a hash leads to.
inline size_t getFirst(uint64_t hash, size_t mask) noexcept {
    return hash & mask;
}

/// The index that follows another.
inline size_t getNext(size_t index, size_t mask) noexcept {
    return (index + 1) & mask;
}

/// How many buckets lie between the one that a hash leads to and an index: 0 if the hash leads to the index itself.
inline size_t getDistance(uint64_t hash, size_t index, size_t mask) noexcept {
    return (index - hash) & mask;
}

}

}
