#include "core/platform/stream/ReplacingFile.h"

#include "core/platform/errors/ErrorCatalogue.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kavix {

namespace {

constexpr char TEMPORARY_SUFFIX[] = ".unfinished";
constexpr mode_t PERMISSIONS = 0666; // minus the bits of the umask

std::string getFolder(const std::string& fileName) {
    const size_t slash = fileName.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : fileName.substr(0, slash);
}

/// The file that a name refers to, which need not exist yet.
std::string resolveSymbolicLinks(const std::string& fileName) {
    std::string result = fileName;
    for (;;) {
        char buffer[PATH_MAX];
        if (::realpath(result.c_str(), buffer) != nullptr)
            return buffer;
        if (errno != ENOENT)
            return result; // opening the file will report why
        const ssize_t length = ::readlink(result.c_str(), buffer, sizeof(buffer));
        if (length < 0)
            return result;
        // A dangling link. The loop ends, since a cycle of links is a different error from a missing file.
        const std::string target(buffer, static_cast<size_t>(length));
        result = target.starts_with('/') ? target : getFolder(result) + "/" + target;
    }
}

/// Whether a name still refers to the open file: the previous writer may have renamed it while we waited for its lock.
bool isNameOf(const std::string& fileName, int fileDescriptor) {
    struct stat byName, byDescriptor;
    return ::stat(fileName.c_str(), &byName) == 0 && ::fstat(fileDescriptor, &byDescriptor) == 0 &&
           byName.st_dev == byDescriptor.st_dev && byName.st_ino == byDescriptor.st_ino;
}

/// @param permissions  of a file that does not exist yet, minus the bits of the umask
int openAndLock(const std::string& fileName, mode_t permissions) {
    for (;;) {
        // No link is followed: its target is not ours, and would be truncated.
        const int fileDescriptor = ::open(fileName.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, permissions);
        if (fileDescriptor < 0)
            Errors::throwCannotOpenOutputFile(errno, std::string(fileName));
        if (::flock(fileDescriptor, LOCK_EX | LOCK_NB) != 0) {
            const int errorNumber = errno;
            ::close(fileDescriptor);
            Errors::throwCannotLockFile(errorNumber, std::string(fileName));
        }
        if (isNameOf(fileName, fileDescriptor))
            return fileDescriptor;
        ::close(fileDescriptor);
    }
}

/// A temporary file that is removed and closed again unless it is released and kept.
class TemporaryFile {

public:

    TemporaryFile(const std::string& fileName, mode_t permissions) :
        m_fileName(fileName),
        m_fileDescriptor(openAndLock(fileName, permissions)) { }

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    ~TemporaryFile() {
        if (m_isOurs)
            ::unlink(m_fileName.c_str());
        if (m_fileDescriptor >= 0)
            ::close(m_fileDescriptor);
    }

    int getFileDescriptor() const noexcept { return m_fileDescriptor; }

    /// Passes the open file on; the destructor still removes it.
    int releaseFileDescriptor() noexcept { return std::exchange(m_fileDescriptor, -1); }

    void keep() noexcept { m_isOurs = false; }

private:

    const std::string& m_fileName;
    int m_fileDescriptor;
    bool m_isOurs = true;
};

}

ReplacingFile::ReplacingFile(const std::string& fileName) :
    m_fileName(resolveSymbolicLinks(fileName)),
    m_temporaryFileName(m_fileName + TEMPORARY_SUFFIX) {
    struct stat target;
    const bool hasTarget = ::stat(m_fileName.c_str(), &target) == 0;
    if (hasTarget && !S_ISREG(target.st_mode)) // renaming would replace a device or a pipe
        Errors::throwCannotOpenOutputFile(S_ISDIR(target.st_mode) ? EISDIR : EINVAL, std::string(m_fileName));
    // The new file has the permissions of the old one, as far as we may set them, from its creation on.
    TemporaryFile file(m_temporaryFileName, hasTarget ? target.st_mode & PERMISSIONS : PERMISSIONS);
    if (::ftruncate(file.getFileDescriptor(), 0) != 0)
        Errors::throwCannotWriteFile(errno, std::string(m_temporaryFileName));
    if (hasTarget)
        ::fchmod(file.getFileDescriptor(), target.st_mode & 07777);
    std::string streamFileName = m_temporaryFileName;
    // The object's memory is allocated first, so that nothing fails between releasing the descriptor and taking it
    // over.
    m_stream.reset(new FileOutputStream(std::move(streamFileName), file.releaseFileDescriptor()));
    file.keep();
}

ReplacingFile::~ReplacingFile() {
    if (!m_isInPlace && m_stream != nullptr)
        ::unlink(m_temporaryFileName.c_str()); // while the stream holds the lock, so that the file is ours
}

void ReplacingFile::commit() {
    m_stream->synchronise();
    if (::rename(m_temporaryFileName.c_str(), m_fileName.c_str()) != 0)
        Errors::throwCannotRenameFile(errno, std::string(m_temporaryFileName), std::string(m_fileName));
    m_isInPlace = true;
    const std::string folder = getFolder(m_fileName);
    const int folderDescriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderDescriptor < 0)
        Errors::throwCannotSynchroniseFolder(errno, std::string(folder), std::string(m_fileName));
    const int result = ::fsync(folderDescriptor);
    const int errorNumber = errno;
    ::close(folderDescriptor);
    if (result != 0)
        Errors::throwCannotSynchroniseFolder(errorNumber, std::string(folder), std::string(m_fileName));
}

}
