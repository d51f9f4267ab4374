#pragma once

#include <cstdint>

namespace kavix {

/// The outcome of parsing a lexical form.
enum class LexicalFormStatus : uint8_t {
    VALID,
    MALFORMED, // not in the lexical space of the datatype
    OUT_OF_RANGE, // a well-formed number that the datatype itself excludes
    BEYOND_CAPACITY, // a value of the datatype that this system cannot hold exactly
};

}
