#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/literals/LiteralGenerator.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

namespace kavix::numdict {

namespace {

constexpr size_t BUFFER_SIZE = size_t(1) << 20;

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

[[noreturn]] void throwCannotWrite(const std::string& path) {
    throw SystemFailure(fmt::format("cannot write '{}': {}", path, std::strerror(errno)));
}

}

int runGenerateCommand(const GenerateCommand& command) {
    const std::optional<uint64_t> numberOfLiterals = tryParseCount(command.m_numberOfLiterals);
    if (!numberOfLiterals)
        throw UsageError(fmt::format(
            "generate: --literals '{}' is not a valid count; write 1000000, 500k or 100M", command.m_numberOfLiterals));
    std::unique_ptr<std::FILE, FileCloser> file;
    if (command.m_outputPath != "-") {
        file.reset(std::fopen(command.m_outputPath.c_str(), "wbe"));
        if (!file)
            throwCannotWrite(command.m_outputPath);
    }
    const auto write = [&](const std::string& text) {
        if (!file)
            writeStandardOutput(text);
        else if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size())
            throwCannotWrite(command.m_outputPath);
    };
    LiteralGenerator generator(command.m_seed);
    std::string text;
    for (uint64_t index = 0; index < *numberOfLiterals; ++index) {
        generator.appendStatement(text);
        if (text.size() >= BUFFER_SIZE) {
            write(text);
            text.clear();
        }
    }
    write(text);
    if (file && std::fclose(file.release()) != 0)
        throwCannotWrite(command.m_outputPath);
    return EXIT_ALL_WELL;
}

}
