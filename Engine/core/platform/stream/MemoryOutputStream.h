#pragma once

#include "core/platform/stream/OutputStream.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace kavix {

/// A sink that keeps the bytes in memory. One thread at a time.
class MemoryOutputStream : public OutputStream {

public:

    MemoryOutputStream() = default;

    ~MemoryOutputStream() override;

    /// Does nothing: written bytes need no flushing.
    void flush() override;

    /// Appends the bytes, which may be part of this stream's own content.
    /// @throws std::bad_alloc  the content is unchanged
    void write(const void* data, size_t numberOfBytes) override;

    /// The bytes written so far; valid until the next write, clear or takeContent.
    std::string_view getContent() const noexcept { return m_content; }

    const uint8_t* getData() const noexcept { return reinterpret_cast<const uint8_t*>(m_content.data()); }

    size_t getSize() const noexcept { return m_content.size(); }

    /// Moves the bytes to the caller; the stream is empty afterwards.
    std::string takeContent() noexcept { return std::exchange(m_content, std::string()); }

    void clear() noexcept { m_content.clear(); }

private:

    std::string m_content;
};

}
