#include "numdict/import/RejectedStatements.h"

#include "numdict/console/Failures.h"
#include "numdict/stores/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <tuple>
#include <utility>

namespace kavix::numdict {

namespace {

[[noreturn]] void throwCannotWrite(const std::string& path) {
    throw SystemFailure("cannot write the rejected statements to '" + path + "': " + std::strerror(errno));
}

/// A file without a name beside the one that it will be copied to, or in the folder for temporary files.
int makeTemporaryFile(const std::string& path) {
    std::string temporaryPath = path + ".XXXXXX";
    if (path == "-") {
        std::error_code error;
        const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
        if (error)
            throw SystemFailure("there is no folder for temporary files: " + error.message());
        temporaryPath = folder / "numdict-rejected.XXXXXX";
    }
    const int fileDescriptor = ::mkostemp(temporaryPath.data(), O_CLOEXEC);
    if (fileDescriptor < 0)
        throwCannotWrite(temporaryPath);
    ::unlink(temporaryPath.c_str());
    return fileDescriptor;
}

}

RejectedStatements::RejectedStatements(std::string path) :
    m_path(std::move(path)),
    m_fileDescriptor(-1),
    m_length(0) {
    struct stat status;
    if (m_path != "-" && ::stat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw UsageError("--rejected '" + m_path + "': name a regular file; it is replaced when the import has ended");
    m_fileDescriptor = makeTemporaryFile(m_path);
}

RejectedStatements::~RejectedStatements() {
    ::close(m_fileDescriptor);
}

void RejectedStatements::append(size_t fileIndex, uint64_t firstLine, std::string_view statements) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_runs.push_back(Run{fileIndex, firstLine, m_length, statements.size()});
    while (!statements.empty()) {
        const ssize_t count = ::write(m_fileDescriptor, statements.data(), statements.size());
        if (count < 0) {
            if (errno == EINTR)
                continue;
            throwCannotWrite(m_path);
        }
        statements.remove_prefix(static_cast<size_t>(count));
        m_length += static_cast<uint64_t>(count);
    }
}

void RejectedStatements::readRun(const Run& run, std::string& statements) const {
    statements.resize(run.m_length);
    for (uint64_t done = 0; done < run.m_length;) {
        const ssize_t count = ::pread(
            m_fileDescriptor, statements.data() + done, run.m_length - done, static_cast<off_t>(run.m_offset + done));
        if (count == 0 || (count < 0 && errno != EINTR))
            throwCannotWrite(m_path);
        done += count > 0 ? static_cast<uint64_t>(count) : 0;
    }
}

void RejectedStatements::finish() {
    std::lock_guard<std::mutex> lock(m_mutex);
    // Stable: of runs that start in the same line, the one appended first comes first.
    std::stable_sort(m_runs.begin(), m_runs.end(), [](const Run& first, const Run& second) {
        return std::tie(first.m_fileIndex, first.m_firstLine) < std::tie(second.m_fileIndex, second.m_firstLine);
    });
    OutputFile file(m_path);
    std::string statements;
    for (const Run& run : m_runs) {
        readRun(run, statements);
        file.append([&statements](std::string& text) { text += statements; });
    }
    file.finish();
}

}
