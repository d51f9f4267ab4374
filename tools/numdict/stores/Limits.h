#pragma once

#include <exception>
#include <optional>
#include <string>

namespace kavix::numdict {

/// What to do about a limit of the dictionary that was reached, or nothing if the failure is another one.
std::optional<std::string> tryExplainLimit(const std::exception& failure);

}
