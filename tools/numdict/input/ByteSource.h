#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kavix::numdict {

/// The bytes of a file or of standard input ("-"). gzip is recognised by its first two bytes and decompressed, with any
/// number of members; zero padding after the last member is ignored. Used by one thread at a time.
class ByteSource {

public:

    /// @param fileBytesRead  grows by what is read from the file, before decompression; any thread may read it
    /// @throws InputFailure  the file cannot be opened
    ByteSource(const std::string& path, std::atomic<uint64_t>& fileBytesRead);

    ByteSource(const ByteSource&) = delete;

    ByteSource& operator=(const ByteSource&) = delete;

    ~ByteSource();

    /// Reads up to capacity bytes, at least one unless the end is reached: then returns 0.
    /// @throws InputFailure  reading failed, or the gzip data is damaged or cut off; what was read before is good
    size_t read(char* buffer, size_t capacity);

private:

    struct Inflater;

    /// Fills the buffer of file bytes, which must be empty or hold a single byte, and returns false at the end.
    bool fillBuffer();

    size_t readFile(char* buffer, size_t capacity);

    size_t readPlain(char* buffer, size_t capacity);

    size_t readCompressed(char* buffer, size_t capacity);

    std::atomic<uint64_t>& m_fileBytesRead;
    int m_fileDescriptor;
    bool m_isStarted;
    std::unique_ptr<char[]> m_buffer;
    size_t m_bufferNext;
    size_t m_bufferEnd;
    std::unique_ptr<Inflater> m_inflater; // null for plain input
};

}
