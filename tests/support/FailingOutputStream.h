#pragma once

#include "core/platform/stream/OutputStream.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace kavix::test {

/// A sink that takes a number of writes; the next one throws a std::runtime_error.
class FailingOutputStream : public OutputStream {

public:

    explicit FailingOutputStream(uint64_t writesBeforeFailure) :
        m_writesBeforeFailure(writesBeforeFailure) { }

    void flush() override { }

    void write(const void*, size_t) override {
        if (m_writesBeforeFailure-- == 0)
            throw std::runtime_error("the device is full");
    }

private:

    uint64_t m_writesBeforeFailure;
};

}
