#include "core/platform/stream/MemoryInputStream.h"

#include <algorithm>
#include <cstring>

namespace kavix {

MemoryInputStream::~MemoryInputStream() = default;

void MemoryInputStream::rewind() {
    m_position = 0;
}

size_t MemoryInputStream::read(void* data, size_t numberOfBytes) {
    const size_t bytesToCopy = std::min(numberOfBytes, getRemainingBytes());
    if (bytesToCopy != 0) { // an empty read may have a null pointer
        std::memcpy(data, m_data + m_position, bytesToCopy);
        m_position += bytesToCopy;
    }
    return bytesToCopy;
}

}
