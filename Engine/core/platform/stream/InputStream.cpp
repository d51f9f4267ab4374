#include "core/platform/stream/InputStream.h"

#include <algorithm>

namespace kavix {

void InputStream::skip(uint64_t numberOfBytes) {
    uint8_t buffer[4096];
    while (numberOfBytes != 0) {
        const size_t bytesRead = read(buffer, std::min<uint64_t>(numberOfBytes, sizeof(buffer)));
        if (bytesRead == 0)
            Errors::throwPrematureEndOfFile();
        numberOfBytes -= bytesRead;
    }
}

}
