#include "numdict/input/LineList.h"

#include "numdict/console/Failures.h"
#include "numdict/console/Trim.h"
#include "numdict/input/LineBlocks.h"

#include <fmt/format.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <system_error>

namespace kavix::numdict {

void checkFileExists(const std::string& command, const std::string& path) {
    std::error_code error;
    if (path != "-" && (!std::filesystem::exists(path, error) || std::filesystem::is_directory(path, error)))
        throw UsageError(fmt::format("{}: there is no file '{}'", command, path));
}

std::string getShownName(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

void forEachLine(
    const std::string& command, const std::string& path,
    const std::function<void(std::string_view, uint64_t)>& function) {
    constexpr size_t BLOCK_SIZE = size_t(1) << 16;
    checkFileExists(command, path);
    try {
        std::atomic<uint64_t> bytesRead{0};
        LineBlocks blocks(path, bytesRead, BLOCK_SIZE, LineBlocks::Delivery::LINES_AT_ONCE);
        LineBlock block;
        while (blocks.next(block))
            block.forEachLine([&function](std::string_view line, uint64_t number) {
                if (line.ends_with('\r'))
                    line.remove_suffix(1);
                if (!trim(line, LINE_BLANKS).empty())
                    function(line, number);
            });
    }
    catch (const InputFailure& failure) {
        throw SystemFailure(fmt::format("{}: {}", getShownName(path), failure.what()));
    }
}

}
