#include "numdict/console/ByteProgress.h"

#include "numdict/console/Sizes.h"

#include <fmt/format.h>

#include <utility>

namespace kavix::numdict {

ByteProgress::ByteProgress(std::string what, uint64_t totalBytes, std::string afterwards, bool isQuiet) :
    m_what(std::move(what)),
    m_afterwards(std::move(afterwards)),
    m_totalBytes(totalBytes),
    m_bytes(0) {
    if (!isQuiet)
        m_display.emplace([this](double seconds) { return describe(seconds); });
}

std::string ByteProgress::describe(double seconds) const {
    const uint64_t bytes = getBytes();
    if (m_totalBytes == 0)
        return fmt::format("{}: {}, {}", m_what, formatSize(bytes), formatDuration(seconds));
    if (bytes >= m_totalBytes)
        return fmt::format("{}: {}, {}", m_what, m_afterwards, formatDuration(seconds));
    return fmt::format("{}: {}, {}", m_what, formatSize(bytes), formatShare(bytes, m_totalBytes));
}

}
