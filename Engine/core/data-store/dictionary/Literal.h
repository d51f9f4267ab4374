#pragma once

#include <cstdint>
#include <exception>
#include <string_view>

namespace kavix {

/// A literal as it is written, without quotes. The characters belong to somebody else, who must outlive it.
struct Literal {
    std::string_view lexicalForm;
    uint8_t datatypeID = 0;
};

/// What became of a literal: a resource ID, or the error that resolving it alone would have thrown, or neither where it
/// was looked up and is absent.
struct Resolution {

    uint64_t resourceID = 0;
    std::exception_ptr error;

    /// Makes this what comes of an operation that returns a resource ID or throws; returns whether it has not thrown.
    /// Allocates nothing itself then.
    template<typename Operation>
    bool trySet(Operation operation) noexcept {
        try {
            resourceID = operation();
            error = nullptr;
        }
        catch (...) {
            resourceID = 0;
            error = std::current_exception();
        }
        return error == nullptr;
    }
};

}
