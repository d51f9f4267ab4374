#pragma once

#include "core/platform/stream/InputStream.h"
#include "core/platform/stream/OutputStream.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kavix {

/// A 64-bit checksum (XXH3-64, seed 0) of bytes that arrive in pieces. One thread at a time.
class Checksum {

public:

    /// @throws std::bad_alloc
    Checksum();

    ~Checksum();

    Checksum(const Checksum&) = delete;
    Checksum& operator=(const Checksum&) = delete;

    void update(const void* data, size_t numberOfBytes) noexcept;

    /// The checksum of the bytes so far.
    uint64_t getValue() const noexcept;

    void reset() noexcept;

private:

    struct State;
    std::unique_ptr<State> m_state;
};

/// The checksum of bytes that are available all at once.
/// @throws std::bad_alloc
uint64_t getChecksum(const void* data, size_t numberOfBytes);

/// Counts and checksums what is written to it and stores nothing.
class ChecksumOutputStream : public OutputStream {

public:

    void flush() override { }

    void write(const void* data, size_t numberOfBytes) override {
        m_checksum.update(data, numberOfBytes);
        m_numberOfBytes += numberOfBytes;
    }

    uint64_t getNumberOfBytes() const noexcept { return m_numberOfBytes; }

    uint64_t getChecksum() const noexcept { return m_checksum.getValue(); }

private:

    Checksum m_checksum;
    uint64_t m_numberOfBytes = 0;
};

/// A part of another stream, from its current position on: ends after its length, checksums what is read. The other
/// stream must not be read by anyone else during that time.
class ChecksumInputStream : public InputStream {

public:

    ChecksumInputStream(InputStream& input, uint64_t length) :
        m_input(input),
        m_remainingBytes(length) { }

    /// Not supported: a checksum is taken once, from the beginning.
    void rewind() override { Errors::throwCannotRewindSection(); }

    size_t read(void* data, size_t numberOfBytes) override;

    uint64_t getRemainingBytes() const noexcept { return m_remainingBytes; }

    uint64_t getChecksum() const noexcept { return m_checksum.getValue(); }

private:

    InputStream& m_input;
    Checksum m_checksum;
    uint64_t m_remainingBytes;
};

}
