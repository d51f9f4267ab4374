#pragma once

#include <string>
#include <string_view>

namespace kavix::numdict {

/// A text as Turtle quotes it, on one line: "…" with escapes.
std::string makeTurtleString(std::string_view text);

}
