#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace kavix::numdict {

/// The progress of an import. Written by its workers, read by the thread that shows it; all relaxed, since nothing
/// depends on it.
struct ImportProgress {
    std::atomic<uint64_t> m_fileBytesRead{0}; // before decompression
    std::atomic<uint64_t> m_literals{0};
    uint64_t m_totalFileBytes = 0; // fixed before the import starts; 0 if unknown

    /// "1.2 GiB, 42%, 3,100,000 literals, 2,000,000/s, 1 min 5 s left" after so many seconds; the share and the time
    /// left only if the total is known.
    std::string describe(double seconds) const;
};

}
