#include "core/platform/stream/FileOutputStream.h"

#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace kavix {

namespace {

/// The limit for one system call: the result of write() for more than SSIZE_MAX bytes is not defined.
constexpr size_t MAX_BYTES_PER_CALL = size_t(1) << 30;

constexpr mode_t PERMISSIONS = 0666; // minus the bits of the umask

int openForWriting(const std::string& fileName) {
    for (;;) {
        const int fileDescriptor = ::open(fileName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, PERMISSIONS);
        if (fileDescriptor >= 0)
            return fileDescriptor;
        if (errno != EINTR) // for example when opening a pipe waits for its reader
            Errors::throwCannotOpenOutputFile(errno, std::string(fileName));
    }
}

/// Writes at least one of the bytes, which must not be empty; returns how many.
size_t writeSome(int fileDescriptor, const std::string& fileName, const uint8_t* data, size_t numberOfBytes) {
    for (;;) {
        const ssize_t bytesWritten = ::write(fileDescriptor, data, std::min(numberOfBytes, MAX_BYTES_PER_CALL));
        if (bytesWritten > 0)
            return static_cast<size_t>(bytesWritten);
        if (bytesWritten == 0) // a device that accepts nothing without an error: retrying might never end
            Errors::throwCannotWriteFile(EIO, std::string(fileName));
        if (errno != EINTR)
            Errors::throwCannotWriteFile(errno, std::string(fileName));
    }
}

}

// The buffer is allocated before the file is opened, so that there is no file to close if the allocation fails.
FileOutputStream::FileOutputStream(std::string fileName) :
    m_fileName(std::move(fileName)),
    m_buffer(new uint8_t[BUFFER_SIZE]),
    m_fileDescriptor(openForWriting(m_fileName)) { }

FileOutputStream::FileOutputStream(std::string fileName, int fileDescriptor) try :
    m_fileName(std::move(fileName)),
    m_buffer(new uint8_t[BUFFER_SIZE]),
    m_fileDescriptor(fileDescriptor) { }
catch (...) {
    ::close(fileDescriptor);
}

FileOutputStream::~FileOutputStream() {
    if (!isOpen())
        return;
    try {
        writeBuffer();
    }
    catch (...) {
        // A destructor cannot report errors; close() does.
    }
    ::close(m_fileDescriptor);
}

void FileOutputStream::flush() {
    writeBuffer();
}

void FileOutputStream::synchronise() {
    writeBuffer();
    if (::fsync(m_fileDescriptor) != 0)
        Errors::throwCannotSynchroniseFile(errno, std::string(m_fileName));
}

void FileOutputStream::write(const void* data, size_t numberOfBytes) {
    assert(isOpen());
    const uint8_t* position = static_cast<const uint8_t*>(data);
    if (numberOfBytes > BUFFER_SIZE - m_bufferEnd)
        writeBuffer();
    if (numberOfBytes >= BUFFER_SIZE) {
        while (numberOfBytes != 0) {
            const size_t bytesWritten = writeSome(m_fileDescriptor, m_fileName, position, numberOfBytes);
            position += bytesWritten;
            numberOfBytes -= bytesWritten;
        }
    }
    else if (numberOfBytes != 0) { // an empty write may have a null pointer
        std::memcpy(m_buffer.get() + m_bufferEnd, position, numberOfBytes);
        m_bufferEnd += numberOfBytes;
    }
}

void FileOutputStream::close() {
    if (!isOpen())
        return;
    writeBuffer();
    const int fileDescriptor = m_fileDescriptor;
    m_fileDescriptor = CLOSED;
    // Never repeated: Linux has released the descriptor even if the call fails, and another thread may have got the
    // same number by now. An interrupted close loses no written data.
    if (::close(fileDescriptor) != 0 && errno != EINTR)
        Errors::throwCannotCloseFile(errno, std::string(m_fileName));
}

void FileOutputStream::writeBuffer() {
    while (m_bufferBegin != m_bufferEnd)
        m_bufferBegin +=
            writeSome(m_fileDescriptor, m_fileName, m_buffer.get() + m_bufferBegin, m_bufferEnd - m_bufferBegin);
    m_bufferBegin = 0;
    m_bufferEnd = 0;
}

}
