#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kavix {

/// The bytes backed by huge pages at this moment, of all memory of the process that requested them; nothing if the
/// system does not report it. Large regions request them, in every dictionary that is created with huge pages; the
/// system decides whether and when to grant them. Memory that got huge pages without a request is not counted.
/// Thread-safe. Takes milliseconds for each GB of the process: the system walks over its pages.
std::optional<uint64_t> tryGetHugePageBytes();

/// Sums them up from the lines of /proc/self/smaps. The last line of a mapping has its flags, including "hg" if it
/// requested huge pages.
class HugePageCounter {

public:

    /// Takes the next line, without its end.
    void addLine(std::string_view line) noexcept;

    uint64_t getBytes() const noexcept { return m_bytes; }

private:

    uint64_t m_bytes = 0;
    uint64_t m_bytesOfMapping = 0; // of the mapping whose flags have not been read yet
};

}
