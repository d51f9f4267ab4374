#pragma once

#include "core/platform/system/Unmovable.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kavix::numdict {

/// Where the rejected statements go: a file, or standard output. Workers append in any order to an unnamed temporary
/// file; finish() puts the statements in the order of files and lines into a file that appears whole, or prints them. A
/// failed or abandoned import leaves nothing, and an earlier file of that name unchanged.
class RejectedStatements : private Unmovable {

public:

    /// @param path  "-" for standard output
    /// @throws UsageError     something other than a regular file has that name
    /// @throws SystemFailure  the directory cannot be written to
    explicit RejectedStatements(std::string path);

    ~RejectedStatements();

    /// Appends consecutive statements of a file. Thread-safe.
    /// @param firstLine  the line of the first one; a later call for the file never has lines between these
    /// @throws SystemFailure  writing failed
    void append(size_t fileIndex, uint64_t firstLine, std::string_view statements);

    /// Writes the file, or to standard output; nothing is appended afterwards.
    /// @throws SystemFailure, SystemCallException  writing failed
    void finish();

private:

    /// Statements that were appended by one call.
    struct Run {
        size_t m_fileIndex;
        uint64_t m_firstLine;
        uint64_t m_offset;
        uint64_t m_length;
    };

    void readRun(const Run& run, std::string& statements) const;

    const std::string m_path;
    std::mutex m_mutex;

    // Guarded by the mutex.
    int m_fileDescriptor;
    uint64_t m_length;
    std::vector<Run> m_runs;
};

}
