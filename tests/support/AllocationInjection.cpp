#include "support/AllocationInjection.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace kavix::test {

namespace {

thread_local uint64_t s_allocationsLeft = 0; // 1: the next one fails; 0: none
thread_local bool s_wasHit = false;

void* allocate(size_t size, size_t alignment) {
    if (s_allocationsLeft != 0 && --s_allocationsLeft == 0) {
        s_wasHit = true;
        throw std::bad_alloc();
    }
    // Whole multiples of the alignment, as the system's call requires; at least one.
    void* const memory = std::aligned_alloc(alignment, (size / alignment + 1) * alignment);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

}

AllocationFault::AllocationFault(uint64_t n) {
    s_wasHit = false;
    s_allocationsLeft = n;
}

AllocationFault::~AllocationFault() {
    s_allocationsLeft = 0;
}

bool AllocationFault::wasHit() const {
    return s_wasHit;
}

}

void* operator new(size_t size) {
    return kavix::test::allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new(size_t size, std::align_val_t alignment) {
    return kavix::test::allocate(size, static_cast<size_t>(alignment));
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t, std::align_val_t) noexcept {
    std::free(memory);
}
