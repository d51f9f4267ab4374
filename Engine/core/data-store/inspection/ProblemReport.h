#pragma once

#include <functional>
#include <string>

namespace kavix {

/// Receives the description of one problem, a clause without a full stop. It may throw to end the search.
using ProblemReport = std::function<void(std::string&& problem)>;

}
