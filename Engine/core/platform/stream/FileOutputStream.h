#pragma once

#include "core/platform/stream/OutputStream.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kavix {

/// A file written from its beginning; its old content is lost. One thread at a time.
///
///   open --close--> closed
///
/// Small writes are collected in a buffer of BUFFER_SIZE bytes; a write of that size or more goes to the file directly,
/// after the content of the buffer. So the last bytes reach the file, and their errors the caller, in flush() or
/// close(): call close() to be certain that the file is complete. The destructor also writes and closes but reports
/// nothing.
class FileOutputStream : public OutputStream {

public:

    /// In bytes.
    static constexpr size_t BUFFER_SIZE = 65536;

    /// Creates the file, or truncates it.
    /// @throws SystemCallException  it cannot be opened for writing
    explicit FileOutputStream(std::string fileName);

    /// Takes over a file that is open for writing, at its current position; closes it if construction fails.
    FileOutputStream(std::string fileName, int fileDescriptor);

    FileOutputStream(const FileOutputStream&) = delete;

    FileOutputStream& operator=(const FileOutputStream&) = delete;

    /// Never throws.
    ~FileOutputStream() override;

    /// Passes the buffer to the operating system; does not wait for the device. After a failure the rest of the buffer
    /// is kept, and another flush() continues where this one stopped.
    /// @throws SystemCallException  the file cannot be written
    void flush() override;

    /// Flushes and waits until everything has been written to the device.
    /// @throws SystemCallException  the file cannot be written: it may be incomplete
    void synchronise();

    /// Requires an open file.
    /// @throws SystemCallException  the file cannot be written; how much of the data was written is unspecified
    void write(const void* data, size_t numberOfBytes) override;

    /// Flushes and closes; does nothing if the file is closed already. If flushing fails, the file stays open and
    /// close() may be repeated; if closing fails, the file is closed nevertheless.
    /// @throws SystemCallException  the file cannot be written or closed: it may be incomplete
    void close();

    bool isOpen() const noexcept { return m_fileDescriptor != CLOSED; }

    const std::string& getFileName() const noexcept { return m_fileName; }

private:

    static constexpr int CLOSED = -1;

    void writeBuffer();

    std::string m_fileName;
    std::unique_ptr<uint8_t[]> m_buffer;
    size_t m_bufferBegin = 0; // the bytes from here to m_bufferEnd have not been written yet
    size_t m_bufferEnd = 0;
    int m_fileDescriptor;
};

}
