#pragma once

#include <cstddef>

namespace kavix {

/// The size of a page of virtual memory in bytes, a power of two. Thread-safe; queries the system once.
size_t getVMPageSize() noexcept;

}
