#pragma once

#include "core/platform/stream/InputStream.h"
#include "core/platform/stream/OutputStream.h"
#include "numdict/console/ByteProgress.h"

#include <cstddef>
#include <cstdint>

namespace kavix::numdict {

/// Counts what is read from another stream.
class CountingInputStream : public InputStream {

public:

    CountingInputStream(InputStream& input, ByteProgress& progress) :
        m_input(input),
        m_progress(progress) { }

    void rewind() override { m_input.rewind(); }

    size_t read(void* data, size_t numberOfBytes) override {
        const size_t bytesRead = m_input.read(data, numberOfBytes);
        m_progress.add(bytesRead);
        return bytesRead;
    }

    void skip(uint64_t numberOfBytes) override { m_input.skip(numberOfBytes); }

private:

    InputStream& m_input;
    ByteProgress& m_progress;
};

/// Counts what is written to another stream, which takes it in pieces, so that the count grows steadily.
class CountingOutputStream : public OutputStream {

public:

    CountingOutputStream(OutputStream& output, ByteProgress& progress) :
        m_output(output),
        m_progress(progress) { }

    void flush() override { m_output.flush(); }

    void write(const void* data, size_t numberOfBytes) override;

private:

    OutputStream& m_output;
    ByteProgress& m_progress;
};

}
