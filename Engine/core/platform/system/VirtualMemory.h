#pragma once

#include <cstddef>

/// The system's calls for address space and pages. Each does one call and nothing else; lengths are in bytes and whole
/// pages. Thread-safe.
namespace kavix::VirtualMemory {

/// Reserves inaccessible address space. Returns null and sets errno on failure.
void* reserve(size_t length) noexcept;

/// Makes pages readable and writable; they are zero where they were never used. Returns false and sets errno on
/// failure.
bool commit(void* address, size_t length) noexcept;

/// Gives the pages back and leaves inaccessible address space. Returns false if the system refused: all is as before.
bool decommit(void* address, size_t length) noexcept;

/// Asks the system to use huge pages where the range has room for them. It may or may not; nothing else changes.
void adviseHugePages(void* address, size_t length) noexcept;

/// Gives address space and pages back.
void release(void* address, size_t length) noexcept;

}
