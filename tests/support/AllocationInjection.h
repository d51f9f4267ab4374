#pragma once

#include <cstdint>

// Failures of operator new in the calling thread. Only for the executable of the fault tests; under the address and
// thread sanitizers, whose own operators stay, no allocation fails and wasHit() is always false.

namespace kavix::test {

/// While it lives, the n-th allocation of the calling thread from now on, and no other, throws std::bad_alloc.
class AllocationFault {

public:

    /// @param n  1 for the next allocation
    explicit AllocationFault(uint64_t n);
    ~AllocationFault();

    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;

    /// Whether the allocation was made to fail.
    bool wasHit() const;
};

}
