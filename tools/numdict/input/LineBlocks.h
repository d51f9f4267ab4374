#pragma once

#include "numdict/console/Failures.h"
#include "numdict/input/ByteSource.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kavix::numdict {

/// Whole lines of a file. The buffer has room for one byte more than length, which the reader of the block may
/// overwrite, like all others. Blocks are reused: a worker keeps one.
struct LineBlock {
    std::vector<char> m_bytes;
    size_t m_length = 0;
    uint64_t m_firstLine = 1;

    /// Calls function(line, number) for each line, without its line end.
    template<typename Function>
    void forEachLine(const Function& function) const {
        std::string_view rest(m_bytes.data(), m_length);
        for (uint64_t number = m_firstLine; !rest.empty(); ++number) {
            const size_t end = std::min(rest.find('\n'), rest.size());
            function(rest.substr(0, end), number);
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
};

/// A file in a line format, cut into blocks at line ends, each with its first line number. Any number of threads take
/// blocks in turns, which works the same for files, pipes and gzip: cutting and decompressing is done by the
/// next idle worker. A byte order mark at the start is overwritten with spaces, so that columns stay right.
class LineBlocks {

public:

    static constexpr size_t DEFAULT_BLOCK_SIZE = size_t(4) << 20;

    /// A line may be longer than a block, but not longer than this.
    static constexpr size_t MAXIMUM_LINE_LENGTH = size_t(1) << 30;

    /// When a block is handed out: if it is full, or as soon as it has a whole line, so that what a person or another
    /// program writes line by line is answered line by line.
    enum class Delivery : uint8_t { FULL_BLOCKS, LINES_AT_ONCE };

    /// The file is opened by the first next().
    LineBlocks(
        std::string path, std::atomic<uint64_t>& fileBytesRead, size_t blockSize = DEFAULT_BLOCK_SIZE,
        Delivery delivery = Delivery::FULL_BLOCKS);

    LineBlocks(const LineBlocks&) = delete;

    LineBlocks& operator=(const LineBlocks&) = delete;

    /// Fetches the next block, or returns false at the end. Thread-safe.
    /// @throws InputFailure  the file cannot be read on; thrown once, with the line, after the last good block
    bool next(LineBlock& block);

    /// Whether next() may still have something. Thread-safe.
    bool mayHaveMore() const noexcept { return !m_isFinished.load(std::memory_order_relaxed); }

private:

    bool doNext(LineBlock& block);

    /// Reads into a block of which some bytes are filled, until it is to be handed out; returns whether the end was
    /// reached.
    /// @param length    the filled bytes; grows, also if reading fails
    /// @param linesEnd  one past the last line end among them; 0 for none
    bool fill(LineBlock& block, size_t& length, size_t& linesEnd);

    const std::string m_path;
    const size_t m_blockSize;
    const Delivery m_delivery;
    std::atomic<uint64_t>& m_fileBytesRead;
    std::mutex m_mutex;

    // Guarded by the mutex; the flag is also read without it, as a hint.
    std::atomic<bool> m_isFinished;
    std::optional<ByteSource> m_source;
    std::vector<char> m_carry; // the start of a line that the last block did not have the end of
    std::optional<InputFailure> m_failure;
    uint64_t m_nextLine;
    bool m_isAtStart;
};

}
