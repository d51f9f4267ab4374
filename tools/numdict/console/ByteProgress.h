#pragma once

#include "core/platform/stream/InputStream.h"
#include "core/platform/stream/OutputStream.h"
#include "core/platform/system/Unmovable.h"
#include "numdict/console/ProgressDisplay.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kavix::numdict {

/// Counts the bytes of a piece of work and shows them while it lasts. The counter is relaxed: nothing depends on it.
class ByteProgress : private Unmovable {

public:

    /// @param what            "opening numbers.store"
    /// @param totalBytes      0 where it is not known
    /// @param afterwards      what goes on once all bytes have come, such as "checking"
    ByteProgress(std::string what, uint64_t totalBytes, std::string afterwards, bool isQuiet);

    void add(uint64_t numberOfBytes) noexcept { m_bytes.fetch_add(numberOfBytes, std::memory_order_relaxed); }

    uint64_t getBytes() const noexcept { return m_bytes.load(std::memory_order_relaxed); }

private:

    std::string describe(double seconds) const;

    const std::string m_what;
    const std::string m_afterwards;
    const uint64_t m_totalBytes;
    std::atomic<uint64_t> m_bytes;
    std::optional<ProgressDisplay> m_display; // the last: its thread reads the rest
};

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
