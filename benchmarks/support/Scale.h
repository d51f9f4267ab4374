#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace kavix::benchmarks {

/// KAVIX_BENCHMARK_SCALE multiplies the number of values of every workload: 1 gives the published tables, 0.01 a quick
/// run.
inline double getScale() {
    const char* text = std::getenv("KAVIX_BENCHMARK_SCALE");
    return text == nullptr ? 1.0 : std::atof(text);
}

/// A number of values, scaled; at least 1024.
inline size_t scaled(size_t numberOfValues) {
    return std::max<size_t>(1024, static_cast<size_t>(static_cast<double>(numberOfValues) * getScale()));
}

}
