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

constexpr char TEMPORARY_SUFFIX[] = ".new";
constexpr mode_t PERMISSIONS = 0666; // less what the user masks out

std::string resolveSymbolicLinks(const std::string& fileName) {
    char resolved[PATH_MAX];
    return ::realpath(fileName.c_str(), resolved) != nullptr ? std::string(resolved) : fileName;
}

std::string getFolder(const std::string& fileName) {
    const size_t slash = fileName.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : fileName.substr(0, slash);
}

/// Whether a name still leads to the open file: the previous writer may have renamed it while we waited for its lock.
bool isNameOf(const std::string& fileName, int fileDescriptor) {
    struct stat byName, byDescriptor;
    return ::stat(fileName.c_str(), &byName) == 0 && ::fstat(fileDescriptor, &byDescriptor) == 0 && byName.st_dev == byDescriptor.st_dev && byName.st_ino == byDescriptor.st_ino;
}

int openAndLock(const std::string& fileName) {
    for (;;) {
        const int fileDescriptor = ::open(fileName.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, PERMISSIONS);
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

}

ReplacingFile::ReplacingFile(const std::string& fileName) :
    m_fileName(resolveSymbolicLinks(fileName)),
    m_temporaryFileName(m_fileName + TEMPORARY_SUFFIX)
{
    const int fileDescriptor = openAndLock(m_temporaryFileName);
    m_stream = std::make_unique<FileOutputStream>(m_temporaryFileName, fileDescriptor);
    if (::ftruncate(fileDescriptor, 0) != 0)
        Errors::throwCannotWriteFile(errno, std::string(m_temporaryFileName));
    struct stat target;
    if (::stat(m_fileName.c_str(), &target) == 0)
        ::fchmod(fileDescriptor, target.st_mode & 07777); // the new file is for whom the old one was, as far as we may say so
}

ReplacingFile::~ReplacingFile() {
    if (!m_isInPlace && m_stream != nullptr)
        ::unlink(m_temporaryFileName.c_str()); // before the lock goes with the stream, so that it is surely ours
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
