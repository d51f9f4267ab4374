#include "numdict/stores/MappedFile.h"

#include "numdict/console/Failures.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

namespace kavix::numdict {

MappedFile::MappedFile(const std::string& path) :
    m_data(nullptr),
    m_length(0) {
    const int fileDescriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status { };
    bool isMapped = fileDescriptor >= 0 && ::fstat(fileDescriptor, &status) == 0;
    if (isMapped && status.st_size != 0) {
        m_length = static_cast<uint64_t>(status.st_size);
        void* const data = ::mmap(nullptr, m_length, PROT_READ, MAP_PRIVATE, fileDescriptor, 0);
        isMapped = data != MAP_FAILED;
        m_data = isMapped ? static_cast<const uint8_t*>(data) : nullptr;
    }
    const int errorNumber = errno;
    if (fileDescriptor >= 0)
        ::close(fileDescriptor); // the mapping stays
    if (!isMapped)
        throw SystemFailure(fmt::format("cannot read '{}': {}", path, std::strerror(errorNumber)));
}

MappedFile::~MappedFile() {
    if (m_data != nullptr)
        ::munmap(const_cast<uint8_t*>(m_data), m_length);
}

}
