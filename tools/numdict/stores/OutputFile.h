#pragma once

#include "core/platform/stream/ReplacingFile.h"
#include "core/platform/system/Unmovable.h"

#include <optional>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// Where a command writes its result: standard output, or a file that appears whole or not at all.
class OutputFile : private Unmovable {

public:

    /// @param path  "-" for standard output
    /// @throws SystemCallException  the file cannot be written
    explicit OutputFile(const std::string& path);

    /// @throws SystemFailure, SystemCallException  writing failed
    void write(std::string_view text);

    /// Puts the file in place.
    void finish();

private:

    std::optional<ReplacingFile> m_file;
};

}
