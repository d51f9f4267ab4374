#pragma once

#include "core/platform/stream/MemoryOutputStream.h"

#include <string>

namespace kavix::test {

/// Puts the bytes of an image together: numbers as they lie in memory, and text.
class ByteWriter {

public:

    template<typename Number>
    ByteWriter& put(Number number) {
        m_bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
        return *this;
    }

    ByteWriter& putText(const std::string& text) {
        m_bytes += text;
        return *this;
    }

    const std::string& getBytes() const { return m_bytes; }

private:

    std::string m_bytes;
};

/// What the save() of a region, a table or a dictionary writes.
template<typename Saved>
std::string saveToBytes(const Saved& saved) {
    MemoryOutputStream output;
    saved.save(output);
    return output.takeContent();
}

}
