#include "numdict/import/RejectedStatements.h"

#include "numdict/console/Failures.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <utility>

namespace kavix::numdict {

namespace {

[[noreturn]] void throwCannotWrite(const std::string& path) {
    throw SystemFailure("cannot write the rejected statements to '" + path + "': " + std::strerror(errno));
}

int makeTemporaryFile(const std::string& path, std::string& temporaryPath) {
    temporaryPath = path + ".XXXXXX";
    const int fileDescriptor = ::mkostemp(temporaryPath.data(), O_CLOEXEC);
    if (fileDescriptor < 0)
        throwCannotWrite(path);
    return fileDescriptor;
}

void writeAll(int fileDescriptor, const char* bytes, size_t length, const std::string& path) {
    while (length != 0) {
        const ssize_t count = ::write(fileDescriptor, bytes, length);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            throwCannotWrite(path);
        }
        bytes += count;
        length -= static_cast<size_t>(count);
    }
}

/// Closes and removes a temporary file unless it was given its name.
class TemporaryFile : private Unmovable {

public:

    explicit TemporaryFile(const std::string& path) :
        m_fileDescriptor(makeTemporaryFile(path, m_temporaryPath)) { }

    ~TemporaryFile() {
        ::close(m_fileDescriptor);
        if (!m_temporaryPath.empty())
            ::unlink(m_temporaryPath.c_str());
    }

    int getFileDescriptor() const noexcept { return m_fileDescriptor; }

    void rename(const std::string& path) {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        if (::fchmod(m_fileDescriptor, 0666 & ~mask) != 0 || ::fsync(m_fileDescriptor) != 0 ||
            std::rename(m_temporaryPath.c_str(), path.c_str()) != 0)
            throwCannotWrite(path);
        m_temporaryPath.clear();
    }

private:

    std::string m_temporaryPath;
    const int m_fileDescriptor;
};

}

RejectedStatements::RejectedStatements(std::string path) :
    m_path(std::move(path)),
    m_fileDescriptor(-1),
    m_length(0) {
    struct stat status;
    if (::stat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw UsageError("--rejected '" + m_path + "': name a regular file; it is replaced when the import has ended");
    std::string temporaryPath;
    m_fileDescriptor = makeTemporaryFile(m_path, temporaryPath);
    ::unlink(temporaryPath.c_str());
}

RejectedStatements::~RejectedStatements() {
    ::close(m_fileDescriptor);
}

void RejectedStatements::append(size_t fileIndex, uint64_t firstLine, std::string_view statements) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_runs.push_back(Run{fileIndex, firstLine, m_length, statements.size()});
    writeAll(m_fileDescriptor, statements.data(), statements.size(), m_path);
    m_length += statements.size();
}

void RejectedStatements::finish() {
    std::lock_guard<std::mutex> lock(m_mutex);
    // Stable: of runs that start in the same line, the one appended first comes first.
    std::stable_sort(m_runs.begin(), m_runs.end(), [](const Run& first, const Run& second) {
        return std::tie(first.m_fileIndex, first.m_firstLine) < std::tie(second.m_fileIndex, second.m_firstLine);
    });
    TemporaryFile file(m_path);
    std::string buffer;
    for (const Run& run : m_runs) {
        buffer.resize(run.m_length);
        for (uint64_t done = 0; done < run.m_length;) {
            const ssize_t count = ::pread(
                m_fileDescriptor, buffer.data() + done, run.m_length - done, static_cast<off_t>(run.m_offset + done));
            if (count == 0 || (count < 0 && errno != EINTR))
                throwCannotWrite(m_path);
            done += count > 0 ? static_cast<uint64_t>(count) : 0;
        }
        writeAll(file.getFileDescriptor(), buffer.data(), buffer.size(), m_path);
    }
    file.rename(m_path);
}

}
