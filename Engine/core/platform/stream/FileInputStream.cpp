#include "core/platform/stream/FileInputStream.h"

#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace kavix {

namespace {

/// The limit for one system call: the result of read() for more than SSIZE_MAX bytes is not defined.
constexpr size_t MAX_BYTES_PER_CALL = size_t(1) << 30;

int openForReading(const std::string& fileName) {
    for (;;) {
        const int fileDescriptor = ::open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
        if (fileDescriptor >= 0)
            return fileDescriptor;
        if (errno != EINTR) // for example when opening a pipe waits for its writer
            Errors::throwCannotOpenInputFile(errno, std::string(fileName));
    }
}

/// Returns how many bytes were read; 0 for the end of the file.
size_t readSome(int fileDescriptor, const std::string& fileName, uint8_t* data, size_t numberOfBytes) {
    for (;;) {
        const ssize_t bytesRead = ::read(fileDescriptor, data, std::min(numberOfBytes, MAX_BYTES_PER_CALL));
        if (bytesRead >= 0)
            return static_cast<size_t>(bytesRead);
        if (errno != EINTR)
            Errors::throwCannotReadFile(errno, std::string(fileName));
    }
}

}

// The buffer is allocated before the file is opened, so that there is no file to close if the allocation fails.
FileInputStream::FileInputStream(std::string fileName) :
    m_fileName(std::move(fileName)),
    m_buffer(new uint8_t[BUFFER_SIZE]),
    m_fileDescriptor(openForReading(m_fileName)) { }

FileInputStream::~FileInputStream() {
    ::close(m_fileDescriptor);
}

void FileInputStream::rewind() {
    if (::lseek(m_fileDescriptor, 0, SEEK_SET) != 0)
        Errors::throwCannotRewindFile(errno, std::string(m_fileName));
    m_bufferBegin = 0;
    m_bufferEnd = 0;
}

size_t FileInputStream::read(void* data, size_t numberOfBytes) {
    if (numberOfBytes == 0)
        return 0;
    if (m_bufferBegin == m_bufferEnd) {
        if (numberOfBytes >= BUFFER_SIZE)
            return readSome(m_fileDescriptor, m_fileName, static_cast<uint8_t*>(data), numberOfBytes);
        const size_t bytesRead = readSome(m_fileDescriptor, m_fileName, m_buffer.get(), BUFFER_SIZE);
        m_bufferBegin = 0;
        m_bufferEnd = bytesRead;
    }
    const size_t bytesToCopy = std::min(numberOfBytes, m_bufferEnd - m_bufferBegin);
    std::memcpy(data, m_buffer.get() + m_bufferBegin, bytesToCopy);
    m_bufferBegin += bytesToCopy;
    return bytesToCopy;
}

void FileInputStream::skip(uint64_t numberOfBytes) {
    const uint64_t bufferedBytes = std::min<uint64_t>(numberOfBytes, m_bufferEnd - m_bufferBegin);
    m_bufferBegin += bufferedBytes;
    numberOfBytes -= bufferedBytes;
    if (numberOfBytes > static_cast<uint64_t>(std::numeric_limits<off_t>::max()))
        Errors::throwPrematureEndOfFile(); // no file is that long
    if (numberOfBytes != 0 && ::lseek(m_fileDescriptor, static_cast<off_t>(numberOfBytes), SEEK_CUR) < 0)
        InputStream::skip(numberOfBytes); // not seekable
}

}
