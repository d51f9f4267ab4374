#include "numdict/commands/Commands.h"

#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/KavixException.h"
#include "numdict/console/Failures.h"
#include "numdict/console/StandardError.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/stores/Limits.h"

#include <fmt/format.h>

#include <exception>
#include <new>
#include <optional>
#include <string>

namespace kavix::numdict {

namespace {

int report(int exitCode, const std::string& message) {
    printMessage(message);
    return exitCode;
}

}

int runGuarded(const std::function<int()>& command) {
    try {
        const int exitCode = command();
        flushStandardOutput();
        return exitCode;
    }
    catch (const UsageError& error) {
        return report(EXIT_USAGE_ERROR, error.what());
    }
    catch (const std::bad_alloc&) {
        return report(EXIT_FAILURE_INSIDE, "the machine is out of memory");
    }
    catch (const std::exception& error) {
        if (const std::optional<std::string> advice = tryExplainLimit(error))
            return report(EXIT_LIMIT_REACHED, *advice);
        const auto* exception = dynamic_cast<const KavixException*>(&error);
        if (exception != nullptr && comesFrom(*exception, ErrorSites::CANNOT_RESERVE_ADDRESS_SPACE))
            return report(
                EXIT_FAILURE_INSIDE,
                fmt::format(
                    "The system grants too little address space: raise the limit of the process (ulimit -v). ({})",
                    exception->getMessage()));
        return report(EXIT_FAILURE_INSIDE, error.what());
    }
}

}
