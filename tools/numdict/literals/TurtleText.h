#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// A text as Turtle quotes it, on one line: "…" with escapes.
std::string makeTurtleString(std::string_view text);

/// What the library says about an invalid lexical form of a numeric datatype; empty for a valid one.
std::string getRejectionMessage(uint8_t datatypeID, std::string_view lexicalForm);

}
