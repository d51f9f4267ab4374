#pragma once

#include <cstdint>
#include <utility>

namespace kavix {

/// What a caller of a Dictionary sees: the resources whose ID and whose record in the data pool lie below these bounds.
/// A value; it keeps nothing alive and becomes invalid when the dictionary is compacted.
struct Snapshot {

    uint64_t resourceIDEnd;
    uint64_t dataPoolEnd;

    /// In the form in which the dictionaries of the families take it.
    std::pair<uint64_t, uint64_t> toVisibility() const noexcept { return {resourceIDEnd, dataPoolEnd}; }

    bool operator==(const Snapshot&) const = default;
};

}
