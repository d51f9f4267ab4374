#include "core/platform/system/HugePages.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string>

namespace kavix {

void HugePageCounter::addLine(std::string_view line) noexcept {
    constexpr std::string_view HUGE_PAGES = "AnonHugePages:";
    constexpr std::string_view FLAGS = "VmFlags:";
    if (line.starts_with(HUGE_PAGES)) {
        line.remove_prefix(HUGE_PAGES.size());
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        uint64_t kilobytes = 0;
        std::from_chars(line.data(), line.data() + line.size(), kilobytes);
        m_bytesOfMapping = kilobytes * 1024;
    }
    else if (line.starts_with(FLAGS)) {
        line.remove_prefix(FLAGS.size());
        // Each flag consists of a space and two letters.
        if (line.find(" hg") != std::string_view::npos)
            m_bytes += m_bytesOfMapping;
        m_bytesOfMapping = 0;
    }
}

std::optional<uint64_t> tryGetHugePageBytes() {
    std::ifstream file("/proc/self/smaps");
    HugePageCounter counter;
    bool hasFlags = false;
    for (std::string line; std::getline(file, line);) {
        hasFlags = hasFlags || line.starts_with("VmFlags:");
        counter.addLine(line);
    }
    return hasFlags ? std::optional<uint64_t>(counter.getBytes()) : std::nullopt;
}

}
