#pragma once

#include "core/platform/stream/InputStream.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kavix {

/// A source of bytes in memory that the stream does not own; they must be kept while the stream is used. Returns as
/// many bytes as requested as long as there are that many. Neither throws nor allocates.
class MemoryInputStream : public InputStream {

public:

    MemoryInputStream(const void* data, size_t numberOfBytes) noexcept :
        m_data(static_cast<const uint8_t*>(data)),
        m_numberOfBytes(numberOfBytes) { }

    explicit MemoryInputStream(std::string_view content) noexcept :
        MemoryInputStream(content.data(), content.size()) { }

    ~MemoryInputStream() override;

    void rewind() override;

    size_t read(void* data, size_t numberOfBytes) override;

    size_t getRemainingBytes() const noexcept { return m_numberOfBytes - m_position; }

private:

    const uint8_t* m_data;
    size_t m_numberOfBytes;
    size_t m_position = 0;
};

}
