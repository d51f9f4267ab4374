#pragma once

#include <atomic>
#include <cstdint>

namespace kavix::numdict {

/// How far an import is. Written by its workers, read by whoever shows it; all relaxed, since nothing depends on it.
struct ImportProgress {
    std::atomic<uint64_t> m_fileBytesRead{0}; // before unpacking
    std::atomic<uint64_t> m_literals{0};
    uint64_t m_totalFileBytes = 0; // fixed before the import starts; 0 where it is not known
};

}
