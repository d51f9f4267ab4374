#include "numdict/input/LineBlocks.h"

#include "numdict/console/Failures.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace kavix::numdict {

namespace {

/// The number of line ends. In pieces so short that a byte holds the count of each, which lets the compiler compare
/// many bytes at once: this is done while other workers wait for their blocks.
uint64_t countLineEnds(const char* bytes, size_t length) {
    constexpr size_t PIECE_LENGTH = 128;
    uint64_t count = 0;
    for (; length >= PIECE_LENGTH; bytes += PIECE_LENGTH, length -= PIECE_LENGTH) {
        uint8_t countOfPiece = 0;
        for (size_t index = 0; index < PIECE_LENGTH; ++index)
            countOfPiece = static_cast<uint8_t>(countOfPiece + (bytes[index] == '\n'));
        count += countOfPiece;
    }
    return count + static_cast<uint64_t>(std::count(bytes, bytes + length, '\n'));
}

/// Makes room for so many bytes, and one more for the reader.
void ensureCapacity(LineBlock& block, size_t numberOfBytes) {
    if (block.m_bytes.size() <= numberOfBytes)
        block.m_bytes.resize(numberOfBytes + 1);
}

}

LineBlocks::LineBlocks(std::string path, std::atomic<uint64_t>& fileBytesRead, size_t blockSize, Delivery delivery) :
    m_path(std::move(path)),
    m_blockSize(blockSize),
    m_delivery(delivery),
    m_fileBytesRead(fileBytesRead),
    m_isFinished(false),
    m_nextLine(1),
    m_isAtStart(true) { }

bool LineBlocks::next(LineBlock& block) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isFinished.load(std::memory_order_relaxed))
        return false;
    try {
        if (doNext(block))
            return true;
        m_isFinished.store(true, std::memory_order_relaxed);
        return false;
    }
    catch (...) {
        m_isFinished.store(true, std::memory_order_relaxed);
        throw;
    }
}

bool LineBlocks::doNext(LineBlock& block) {
    if (m_failure)
        throw *m_failure;
    if (!m_source)
        m_source.emplace(m_path, m_fileBytesRead);
    ensureCapacity(block, std::max(m_blockSize, m_carry.size()));
    std::copy(m_carry.begin(), m_carry.end(), block.m_bytes.begin());
    size_t length = m_carry.size();
    size_t linesEnd = 0;
    m_carry.clear();
    bool isAtEnd = false;
    try {
        isAtEnd = fill(block, length, linesEnd);
    }
    catch (const InputFailure& failure) {
        // The lines that were read whole are good; the failure follows them. The rest of a line is dropped.
        length = linesEnd;
        m_failure.emplace(failure.what(), m_nextLine + countLineEnds(block.m_bytes.data(), length));
        if (length == 0)
            throw *m_failure;
    }
    if (!isAtEnd) {
        m_carry.assign(block.m_bytes.data() + linesEnd, block.m_bytes.data() + length);
        length = linesEnd;
    }
    if (std::exchange(m_isAtStart, false) && length >= 3 && std::memcmp(block.m_bytes.data(), "\xEF\xBB\xBF", 3) == 0)
        std::memset(block.m_bytes.data(), ' ', 3);
    block.m_length = length;
    block.m_firstLine = m_nextLine;
    m_nextLine += countLineEnds(block.m_bytes.data(), length);
    return length != 0;
}

bool LineBlocks::fill(LineBlock& block, size_t& length, size_t& linesEnd) {
    for (size_t limit = std::max(m_blockSize, length);;) {
        if (length == limit) {
            if (linesEnd != 0)
                return false;
            if (length > MAXIMUM_LINE_LENGTH)
                throw InputFailure("the line is longer than 1 GiB: not a line-based format", m_nextLine);
            limit *= 2;
            ensureCapacity(block, limit);
        }
        const size_t count = m_source->read(block.m_bytes.data() + length, limit - length);
        if (count == 0)
            return true;
        if (const void* lineEnd = memrchr(block.m_bytes.data() + length, '\n', count))
            linesEnd = static_cast<size_t>(static_cast<const char*>(lineEnd) - block.m_bytes.data()) + 1;
        length += count;
        if (linesEnd != 0 && m_delivery == Delivery::LINES_AT_ONCE)
            return false;
    }
}

}
