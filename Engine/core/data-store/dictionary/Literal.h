#pragma once

#include <cstdint>
#include <exception>
#include <string_view>

namespace kavix {

/// A literal as it is written, without quotes. The characters are not owned and must outlive it.
struct Literal {
    std::string_view lexicalForm;
    uint8_t datatypeID = 0;
};

/// The outcome for a literal: a resource ID, or the error that resolving it alone would have thrown, or neither if it
/// was looked up and is absent.
struct Resolution {

    uint64_t resourceID = 0;
    std::exception_ptr error;

    /// Stores the outcome of an operation that returns a resource ID or throws; returns whether it did not throw. In
    /// that case it allocates nothing itself.
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
