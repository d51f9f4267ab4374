#include "numdict/console/ByteProgress.h"

#include "numdict/console/Sizes.h"

#include <fmt/format.h>

#include <algorithm>
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

void CountingOutputStream::write(const void* data, size_t numberOfBytes) {
    constexpr size_t PIECE_SIZE = size_t(16) << 20;
    const char* position = static_cast<const char*>(data);
    while (numberOfBytes != 0) {
        const size_t size = std::min(numberOfBytes, PIECE_SIZE);
        m_output.write(position, size);
        m_progress.add(size);
        position += size;
        numberOfBytes -= size;
    }
}

}
