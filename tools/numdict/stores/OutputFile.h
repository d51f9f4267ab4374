#pragma once

#include "core/platform/stream/ReplacingFile.h"

#include <cstddef>
#include <optional>
#include <string>

namespace kavix::numdict {

/// Where a command writes its result as text: standard output, or a file that appears whole or not at all.
class OutputFile {

public:

    /// @param path  "-" for standard output
    /// @throws SystemCallException  the file cannot be written
    explicit OutputFile(const std::string& path);

    OutputFile(const OutputFile&) = delete;

    OutputFile& operator=(const OutputFile&) = delete;

    /// Calls append(text), which adds what is to be written.
    /// @throws SystemFailure, SystemCallException  writing failed
    template<typename Append>
    void append(const Append& append) {
        append(m_buffer);
        if (m_buffer.size() >= BUFFER_SIZE)
            writeBuffer();
    }

    /// Writes what is left, and puts the file in place.
    /// @throws SystemFailure, SystemCallException  writing failed: an earlier file is unchanged
    void finish();

private:

    static constexpr size_t BUFFER_SIZE = size_t(1) << 18;

    void writeBuffer();

    std::optional<ReplacingFile> m_file;
    std::string m_buffer;
};

}
