#include "numdict/stores/Limits.h"

#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/KavixException.h"

#include <fmt/format.h>

namespace kavix::numdict {

std::optional<std::string> tryExplainLimit(const std::exception& failure) {
    const auto* exception = dynamic_cast<const KavixException*>(&failure);
    if (exception == nullptr)
        return std::nullopt;
    if (comesFrom(*exception, ErrorSites::OUT_OF_MEMORY))
        return fmt::format("The memory budget is used up: give more with --memory. ({})", exception->getMessage());
    if (comesFrom(*exception, ErrorSites::RESOURCE_CAPACITY_EXCEEDED_FOR_BLOCK) ||
        comesFrom(*exception, ErrorSites::RESOURCE_CAPACITY_EXCEEDED_FOR_SINGLE_ID) ||
        comesFrom(*exception, ErrorSites::REGION_CAPACITY_EXCEEDED))
        return fmt::format("The resource IDs are used up: import with --id-width 64. ({})", exception->getMessage());
    return std::nullopt;
}

}
