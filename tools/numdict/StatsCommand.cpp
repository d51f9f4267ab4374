#include "numdict/Failures.h"
#include "numdict/OutputFile.h"
#include "numdict/StandardOutput.h"
#include "numdict/StoreCommands.h"
#include "numdict/StoreStatistics.h"

namespace kavix::numdict {

int runStatsCommand(const StatsCommand& command) {
    const std::unique_ptr<Dictionary> dictionary = openStoreFile("stats", command.m_storePath, command.m_options);
    const StoreStatistics statistics = collectStatistics(*dictionary);
    writeStandardOutput(command.m_isJSON ? formatStatisticsAsJSON(statistics, *dictionary, command.m_storePath) : formatStatistics(statistics, isStandardOutputTerminal()));
    return EXIT_ALL_WELL;
}

}
