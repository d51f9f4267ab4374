#pragma once

#include "core/platform/errors/ErrorCatalogue.h"

#include <cstddef>
#include <cstdint>

namespace kavix {

/// A source of bytes. One thread at a time.
class InputStream {

public:

    virtual ~InputStream() = default;

    /// Returns to the first byte. Throws if the source cannot be read twice.
    virtual void rewind() = 0;

    /// Reads up to numberOfBytes bytes and returns how many it stored; 0 means the end of the stream (or that no byte
    /// was requested). Throws if reading fails.
    virtual size_t read(void* data, size_t numberOfBytes) = 0;

    /// Skips numberOfBytes bytes. Skipping beyond the end may be detected only by the next read.
    virtual void skip(uint64_t numberOfBytes);
};

/// Reads exactly numberOfBytes bytes; throws "Premature end of file." if the stream ends earlier.
inline void readExactly(InputStream& input, void* data, size_t numberOfBytes) {
    uint8_t* position = static_cast<uint8_t*>(data);
    while (numberOfBytes != 0) {
        const size_t bytesRead = input.read(position, numberOfBytes);
        if (bytesRead == 0)
            Errors::throwPrematureEndOfFile();
        position += bytesRead;
        numberOfBytes -= bytesRead;
    }
}

}
