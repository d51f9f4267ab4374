#pragma once

#include "core/platform/stream/InputStream.h"
#include "core/platform/stream/OutputStream.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

namespace kavix::test {

/// Collects what is written.
class MemoryOutputStream : public OutputStream {

public:

    void flush() override { }

    void write(const void* data, size_t numberOfBytes) override {
        if (numberOfBytes != 0)
            m_bytes.append(static_cast<const char*>(data), numberOfBytes);
    }

    template<typename Number>
    MemoryOutputStream& put(Number number) {
        write(&number, sizeof(number));
        return *this;
    }

    MemoryOutputStream& putText(const std::string& text) {
        m_bytes += text;
        return *this;
    }

    const std::string& getBytes() const { return m_bytes; }

private:

    std::string m_bytes;
};

/// Delivers bytes, at most a given number at a time.
class MemoryInputStream : public InputStream {

public:

    explicit MemoryInputStream(std::string bytes, size_t maximumPerRead = std::numeric_limits<size_t>::max()) :
        m_bytes(std::move(bytes)),
        m_maximumPerRead(maximumPerRead) { }

    void rewind() override { m_position = 0; }

    size_t read(void* data, size_t numberOfBytes) override {
        const size_t bytesRead = std::min({numberOfBytes, m_maximumPerRead, m_bytes.size() - m_position});
        if (bytesRead != 0)
            std::memcpy(data, m_bytes.data() + m_position, bytesRead);
        m_position += bytesRead;
        return bytesRead;
    }

    /// How many bytes were read so far.
    size_t getPosition() const { return m_position; }

private:

    std::string m_bytes;
    size_t m_maximumPerRead;
    size_t m_position = 0;
};

}
