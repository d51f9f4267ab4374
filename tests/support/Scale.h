#pragma once

#include <cstddef>

namespace kavix::test {

#if defined(__SANITIZE_THREAD__)
#define KAVIX_TEST_UNDER_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KAVIX_TEST_UNDER_THREAD_SANITIZER 1
#endif
#endif

/// By how much stress tests shrink where every memory access is watched.
#if defined(KAVIX_TEST_UNDER_THREAD_SANITIZER)
inline constexpr size_t STRESS_DIVISOR = 8;
#else
inline constexpr size_t STRESS_DIVISOR = 1;
#endif

}
