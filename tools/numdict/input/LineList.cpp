#include "numdict/input/LineList.h"

#include "numdict/console/Failures.h"
#include "numdict/input/LineBlocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <system_error>

namespace kavix::numdict {

void forEachLine(
    const std::string& command, const std::string& path,
    const std::function<void(std::string_view, uint64_t)>& function) {
    std::error_code error;
    if (path != "-" && (!std::filesystem::exists(path, error) || std::filesystem::is_directory(path, error)))
        throw UsageError(fmt::format("{}: there is no file '{}'", command, path));
    try {
        std::atomic<uint64_t> bytesRead{0};
        LineBlocks blocks(path, bytesRead, size_t(1) << 16);
        LineBlock block;
        while (blocks.next(block)) {
            std::string_view rest(block.m_bytes.data(), block.m_length);
            for (uint64_t number = block.m_firstLine; !rest.empty(); ++number) {
                const size_t end = std::min(rest.find('\n'), rest.size());
                std::string_view line = rest.substr(0, end);
                rest.remove_prefix(std::min(end + 1, rest.size()));
                const size_t begin = line.find_first_not_of(" \t\r");
                if (begin != std::string_view::npos)
                    function(line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin), number);
            }
        }
    }
    catch (const InputFailure& failure) {
        throw SystemFailure(fmt::format("{}: {}", path == "-" ? "standard input" : path, failure.what()));
    }
}

}
