#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kavix {

/// The bytes that lie on huge pages at this moment, of all memory of the process that asked for them; nothing where the
/// system does not tell. Regions that are large enough ask, of every dictionary that is made with huge pages; whether
/// and when the system grants them is up to the system. Memory that got huge pages without having asked is not counted.
/// Thread-safe. Takes milliseconds for each GB of the process: the system walks over its pages.
std::optional<uint64_t> tryGetHugePageBytes();

/// Adds them up from the lines of /proc/self/smaps. The last line of a mapping has its flags, among them "hg" if it
/// asked.
class HugePageCounter {

public:

    /// Takes the next line, without its end.
    void addLine(std::string_view line) noexcept;

    uint64_t getBytes() const noexcept { return m_bytes; }

private:

    uint64_t m_bytes = 0;
    uint64_t m_bytesOfMapping = 0; // of the mapping whose flags are still to come
};

}
