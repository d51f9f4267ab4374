#pragma once

#include "numdict/console/ProgressDisplay.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace kavix::numdict {

/// Counts the bytes of a piece of work and shows them while it lasts. The counter is relaxed: nothing depends on it.
class ByteProgress {

public:

    /// @param what            "opening numbers.store"
    /// @param totalBytes      0 if it is unknown
    /// @param afterwards      what happens after the last byte, such as "checking"
    ByteProgress(std::string what, uint64_t totalBytes, std::string afterwards, bool isQuiet);

    ByteProgress(const ByteProgress&) = delete;

    ByteProgress& operator=(const ByteProgress&) = delete;

    void add(uint64_t numberOfBytes) noexcept { m_bytes.fetch_add(numberOfBytes, std::memory_order_relaxed); }

    uint64_t getBytes() const noexcept { return m_bytes.load(std::memory_order_relaxed); }

private:

    std::string describe(double seconds) const;

    const std::string m_what;
    const std::string m_afterwards;
    const uint64_t m_totalBytes;
    std::atomic<uint64_t> m_bytes;
    std::optional<ProgressDisplay> m_display; // the last: its thread reads the rest
};

}
