#pragma once

#include "core/platform/stream/OutputStream.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace kavix::test {

/// A sink whose n-th write throws a std::runtime_error.
class FailingOutputStream : public OutputStream {

public:

    /// @param n  1 for the first write
    explicit FailingOutputStream(uint64_t n) :
        m_writesLeft(n) { }

    void flush() override { }

    void write(const void*, size_t) override {
        if (--m_writesLeft == 0)
            throw std::runtime_error("the device is full");
    }

private:

    uint64_t m_writesLeft; // up to the failing one, inclusive
};

}
