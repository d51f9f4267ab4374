#include "numdict/stores/CountingStreams.h"

#include <algorithm>

namespace kavix::numdict {

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
