#pragma once

#include "core/platform/stream/MemoryInputStream.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace kavix::test {

/// Returns at most a given number of bytes a read, as pipes and sockets do; counts the reads. It does not own the
/// bytes.
class ShortReadInputStream : public InputStream {

public:

    ShortReadInputStream(std::string_view content, size_t maximumBytesPerRead) :
        m_content(content),
        m_maximumBytesPerRead(maximumBytesPerRead) { }

    void rewind() override { m_content.rewind(); }

    size_t read(void* data, size_t numberOfBytes) override {
        ++m_numberOfReads;
        return m_content.read(data, std::min(numberOfBytes, m_maximumBytesPerRead));
    }

    size_t getNumberOfReads() const { return m_numberOfReads; }

    size_t getRemainingBytes() const { return m_content.getRemainingBytes(); }

private:

    MemoryInputStream m_content;
    size_t m_maximumBytesPerRead;
    size_t m_numberOfReads = 0;
};

}
