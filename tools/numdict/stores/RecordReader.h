#pragma once

#include "core/platform/system/Unmovable.h"
#include "numdict/stores/ResourceRecord.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kavix::numdict {

class LineBlocks;

/// A record cannot be accepted, for a reason of its own; the others are still processed.
class RecordFailure : public std::runtime_error {

public:

    using std::runtime_error::runtime_error;
};

struct BadRecord {
    uint64_t m_line;
    std::string m_message;
};

/// Reads what `dump` wrote (text, CSV or JSON lines, also gzip-compressed) with several threads. Malformed records, and
/// those that the consumer refuses with a RecordFailure, are counted, and the first ones kept.
class RecordReader : private Unmovable {

public:

    using Consumer = std::function<void(const ResourceRecord&)>;

    /// So many bad records are kept.
    static constexpr size_t LIMIT = 10;

    RecordReader(std::string path, unsigned numberOfThreads, std::string what, bool isQuiet);

    /// Hands all records to a function, which is called by many threads at once.
    /// @throws  what the function throws, other than RecordFailure; reading then ends early
    void read(const Consumer& consume);

    /// The bad records with the lowest lines, in order. A file that is damaged below the level of lines is one too.
    const std::vector<BadRecord>& getBadRecords() const noexcept { return m_badRecords; }

    uint64_t getNumberOfBadRecords() const noexcept { return m_numberOfBadRecords; }

private:

    void readBlocks(LineBlocks& blocks, std::atomic<bool>& shouldStop, const Consumer& consume);

    void readLine(std::string_view line, uint64_t number, const Consumer& consume);

    void addBadRecord(uint64_t line, std::string&& message);

    const std::string m_path;
    const unsigned m_numberOfThreads;
    const std::string m_what;
    const bool m_isQuiet;
    std::mutex m_mutex;

    // Guarded by the mutex while threads read.
    std::vector<BadRecord> m_badRecords;
    uint64_t m_numberOfBadRecords = 0;
    std::exception_ptr m_failure;
};

}
