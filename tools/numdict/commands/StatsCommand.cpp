#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/stores/StoreFile.h"
#include "numdict/stores/StoreStatistics.h"

#include <memory>

namespace kavix::numdict {

int runStatsCommand(const StatsCommand& command) {
    const std::unique_ptr<Dictionary> dictionary = openStoreFile("stats", command.m_storePath, command.m_options);
    const StoreStatistics statistics = collectStatistics(*dictionary);
    writeStandardOutput(
        command.m_isJSON ? formatStatisticsAsJSON(statistics, *dictionary, command.m_storePath)
                         : formatStatistics(statistics, isStandardOutputTerminal()));
    return EXIT_ALL_WELL;
}

}
