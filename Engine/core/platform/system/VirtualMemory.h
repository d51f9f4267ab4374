#pragma once

#include <cstddef>

/// The system's calls for address space and pages. Each function makes one call and does nothing else; lengths are in
/// bytes and whole pages. Thread-safe.
namespace kavix::VirtualMemory {

/// Reserves inaccessible address space. Returns null and sets errno on failure.
void* reserve(size_t length) noexcept;

/// Makes pages readable and writable; pages that were never used are zero. Returns false and sets errno on failure.
bool commit(void* address, size_t length) noexcept;

/// Releases the pages and leaves inaccessible address space. Returns false if the system refused: nothing has changed.
bool decommit(void* address, size_t length) noexcept;

/// Advises the system to use huge pages where the range has room for them, which it may or may not do.
void adviseHugePages(void* address, size_t length) noexcept;

/// Releases address space and pages.
void release(void* address, size_t length) noexcept;

}
