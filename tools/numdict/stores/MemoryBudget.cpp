#include "numdict/stores/MemoryBudget.h"

#include "numdict/console/Failures.h"
#include "numdict/console/Sizes.h"

#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace kavix::numdict {

namespace {

constexpr uint64_t MINIMUM_DEFAULT_BUDGET = uint64_t(1) << 30;

}

uint64_t getMemoryBudget(const std::string& command, const std::string& text) {
    if (text.empty()) {
        const auto pages = static_cast<uint64_t>(std::max(0L, ::sysconf(_SC_PHYS_PAGES)));
        const auto pageSize = static_cast<uint64_t>(std::max(0L, ::sysconf(_SC_PAGESIZE)));
        return std::max(MINIMUM_DEFAULT_BUDGET, pages * pageSize / 2);
    }
    const std::optional<uint64_t> budget = tryParseSize(text);
    if (!budget)
        throw UsageError(
            fmt::format("{}: --memory '{}' is no size; write 512M, 2G, 2GiB or a number of bytes", command, text));
    return *budget;
}

}
