#include "numdict/stores/DictionaryOptions.h"

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
        throw UsageError(fmt::format(
            "{}: --memory '{}' is not a valid size; write 512M, 2G, 2GiB or a number of bytes", command, text));
    return *budget;
}

Dictionary::Options makeDictionaryOptions(
    uint64_t memoryBudgetBytes, const DictionaryOptions& options, unsigned resourceIDWidth) {
    Dictionary::Options result;
    result.memoryBudgetBytes = memoryBudgetBytes;
    result.resourceIDWidth = resourceIDWidth == 64 ? ResourceIDWidth::BITS_64 : ResourceIDWidth::BITS_32;
    result.useHugePages = !options.m_isWithoutHugePages;
    return result;
}

}
