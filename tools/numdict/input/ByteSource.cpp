#include "numdict/input/ByteSource.h"

#include "numdict/console/Failures.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

namespace kavix::numdict {

namespace {

constexpr size_t BUFFER_SIZE = 256 * 1024;

constexpr unsigned char GZIP_MAGIC[2] = {0x1f, 0x8b};

}

struct ByteSource::Inflater {

    z_stream m_stream{};
    bool m_isInsideMember = true;

    Inflater() {
        constexpr int GZIP_ONLY = 16;
        if (inflateInit2(&m_stream, MAX_WBITS + GZIP_ONLY) != Z_OK)
            throw std::bad_alloc();
    }

    ~Inflater() { inflateEnd(&m_stream); }
};

ByteSource::ByteSource(const std::string& path, std::atomic<uint64_t>& fileBytesRead) :
    m_fileBytesRead(fileBytesRead),
    m_fileDescriptor(-1),
    m_isStarted(false),
    m_buffer(new char[BUFFER_SIZE]),
    m_bufferNext(0),
    m_bufferEnd(0) {
    if (path == "-")
        m_fileDescriptor = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    else
        m_fileDescriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fileDescriptor < 0)
        throw InputFailure(std::string("cannot be opened: ") + std::strerror(errno));
}

ByteSource::~ByteSource() {
    ::close(m_fileDescriptor);
}

size_t ByteSource::readFile(char* buffer, size_t capacity) {
    for (;;) {
        const ssize_t count = ::read(m_fileDescriptor, buffer, capacity);
        if (count >= 0) {
            // Relaxed: only for showing progress.
            m_fileBytesRead.fetch_add(static_cast<uint64_t>(count), std::memory_order_relaxed);
            return static_cast<size_t>(count);
        }
        if (errno != EINTR)
            throw InputFailure(std::string("cannot be read: ") + std::strerror(errno));
    }
}

bool ByteSource::fillBuffer() {
    const size_t kept = m_bufferEnd - m_bufferNext;
    if (kept != 0)
        m_buffer[0] = m_buffer[m_bufferNext];
    m_bufferNext = 0;
    m_bufferEnd = kept;
    const size_t count = readFile(m_buffer.get() + kept, BUFFER_SIZE - kept);
    m_bufferEnd += count;
    return count != 0;
}

size_t ByteSource::read(char* buffer, size_t capacity) {
    if (!m_isStarted) {
        // A pipe may deliver a single byte at first.
        while (m_bufferEnd < sizeof(GZIP_MAGIC) && fillBuffer()) { }
        m_isStarted = true;
        if (m_bufferEnd >= sizeof(GZIP_MAGIC) && std::memcmp(m_buffer.get(), GZIP_MAGIC, sizeof(GZIP_MAGIC)) == 0)
            m_inflater = std::make_unique<Inflater>();
    }
    return m_inflater ? readCompressed(buffer, capacity) : readPlain(buffer, capacity);
}

size_t ByteSource::readPlain(char* buffer, size_t capacity) {
    if (m_bufferNext == m_bufferEnd)
        return readFile(buffer, capacity);
    const size_t count = std::min(capacity, m_bufferEnd - m_bufferNext);
    std::memcpy(buffer, m_buffer.get() + m_bufferNext, count);
    m_bufferNext += count;
    return count;
}

size_t ByteSource::readCompressed(char* buffer, size_t capacity) {
    z_stream& stream = m_inflater->m_stream;
    stream.next_out = reinterpret_cast<Bytef*>(buffer);
    stream.avail_out = static_cast<uInt>(std::min<size_t>(capacity, UINT_MAX));
    const uInt wanted = stream.avail_out;
    while (stream.avail_out == wanted) {
        if (m_bufferNext == m_bufferEnd && !fillBuffer()) {
            if (m_inflater->m_isInsideMember)
                throw InputFailure(
                    "the gzip data is cut off: the file is incomplete, fetch or copy it again ('gzip -t' checks it)");
            return 0;
        }
        if (!m_inflater->m_isInsideMember) {
            if (m_buffer[m_bufferNext] == 0) {
                ++m_bufferNext;
                continue;
            }
            inflateReset(&stream);
            m_inflater->m_isInsideMember = true;
        }
        stream.next_in = reinterpret_cast<Bytef*>(m_buffer.get() + m_bufferNext);
        stream.avail_in = static_cast<uInt>(m_bufferEnd - m_bufferNext);
        const int status = inflate(&stream, Z_NO_FLUSH);
        m_bufferNext = m_bufferEnd - stream.avail_in;
        if (status == Z_STREAM_END)
            m_inflater->m_isInsideMember = false;
        else if (status == Z_MEM_ERROR)
            throw std::bad_alloc();
        else if (status != Z_OK && status != Z_BUF_ERROR)
            throw InputFailure(
                std::string("the gzip data is damaged (") + (stream.msg != nullptr ? stream.msg : "unexpected data") +
                "): fetch or copy the file again ('gzip -t' checks it)");
    }
    return wanted - stream.avail_out;
}

}
