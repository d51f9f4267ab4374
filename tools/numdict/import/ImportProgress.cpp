#include "numdict/import/ImportProgress.h"

#include "numdict/console/Sizes.h"

#include <fmt/format.h>

namespace kavix::numdict {

std::string ImportProgress::describe(double seconds) const {
    const uint64_t fileBytesRead = m_fileBytesRead.load(std::memory_order_relaxed);
    const uint64_t literals = m_literals.load(std::memory_order_relaxed);
    std::string text = formatSize(fileBytesRead);
    if (m_totalFileBytes != 0)
        text += ", " + formatShare(fileBytesRead, m_totalFileBytes);
    text += fmt::format(", {} literals", formatCount(literals));
    if (seconds > 0)
        text += fmt::format(", {}/s", formatCount(static_cast<uint64_t>(static_cast<double>(literals) / seconds)));
    if (fileBytesRead != 0 && fileBytesRead < m_totalFileBytes)
        text += fmt::format(
            ", {} left",
            formatDuration(
                seconds / static_cast<double>(fileBytesRead) * static_cast<double>(m_totalFileBytes - fileBytesRead)));
    return text;
}

}
