#pragma once

#include <cstddef>

namespace kavix {

/// A sink of bytes. One thread at a time.
class OutputStream {

public:

    virtual ~OutputStream() = default;

    /// Passes everything written so far to the destination. Throws if that fails.
    virtual void flush() = 0;

    /// Writes exactly numberOfBytes bytes, or throws; after a failed write the content of the destination is
    /// unspecified.
    virtual void write(const void* data, size_t numberOfBytes) = 0;
};

}
