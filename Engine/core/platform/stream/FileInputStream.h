#pragma once

#include "core/platform/stream/InputStream.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kavix {

/// A file read from its beginning. One thread at a time.
///
/// Small reads are served from a buffer of BUFFER_SIZE bytes; a read of that size or more goes to the file directly
/// once the buffer is used up. A read may return fewer bytes than requested; readExactly() reads them all.
class FileInputStream : public InputStream {

public:

    /// In bytes.
    static constexpr size_t BUFFER_SIZE = 65536;

    /// @throws SystemCallException  the file cannot be opened for reading
    explicit FileInputStream(std::string fileName);

    FileInputStream(const FileInputStream&) = delete;

    FileInputStream& operator=(const FileInputStream&) = delete;

    ~FileInputStream() override;

    /// @throws SystemCallException  the file is not seekable, for example a pipe: the position is unchanged
    void rewind() override;

    /// @throws SystemCallException  the file cannot be read, for example because it is a directory
    size_t read(void* data, size_t numberOfBytes) override;

    /// Moves the position without reading if the file is seekable.
    void skip(uint64_t numberOfBytes) override;

    const std::string& getFileName() const noexcept { return m_fileName; }

private:

    std::string m_fileName;
    std::unique_ptr<uint8_t[]> m_buffer;
    size_t m_bufferBegin = 0; // the bytes from here to m_bufferEnd have not been read yet
    size_t m_bufferEnd = 0;
    int m_fileDescriptor;
};

}
