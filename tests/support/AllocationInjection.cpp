#include "support/AllocationInjection.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace kavix::test {

namespace {

thread_local uint64_t s_allocationsLeft = 0; // 1: the next one fails; 0: none
thread_local bool s_wasHit = false;

[[maybe_unused]] void* allocate(size_t size, size_t alignment) {
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

// The sanitizers bring allocation operators of their own, which must stay: nothing fails there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KAVIX_TEST_KEEPS_ALLOCATION_OPERATORS
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KAVIX_TEST_KEEPS_ALLOCATION_OPERATORS
#endif
#endif

#if !defined(KAVIX_TEST_KEEPS_ALLOCATION_OPERATORS)

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

#endif
