#include "core/platform/system/VirtualMemory.h"

#include <sys/mman.h>

namespace kavix::VirtualMemory {

void* reserve(size_t length) noexcept {
    void* const address = ::mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return address == MAP_FAILED ? nullptr : address;
}

bool commit(void* address, size_t length) noexcept {
    return ::mprotect(address, length, PROT_READ | PROT_WRITE) == 0;
}

bool decommit(void* address, size_t length) noexcept {
    return ::mmap(address, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

void adviseHugePages(void* address, size_t length) noexcept {
    ::madvise(address, length, MADV_HUGEPAGE);
}

void release(void* address, size_t length) noexcept {
    ::munmap(address, length);
}

}
