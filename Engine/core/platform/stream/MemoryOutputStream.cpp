#include "core/platform/stream/MemoryOutputStream.h"

namespace kavix {

MemoryOutputStream::~MemoryOutputStream() = default;

void MemoryOutputStream::flush() { }

void MemoryOutputStream::write(const void* data, size_t numberOfBytes) {
    if (numberOfBytes != 0) // an empty write may have a null pointer
        m_content.append(static_cast<const char*>(data), numberOfBytes);
}

}
