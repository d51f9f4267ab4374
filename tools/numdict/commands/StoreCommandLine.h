#pragma once

#include "core/platform/system/Unmovable.h"
#include "numdict/commands/StoreCommands.h"

#include <functional>
#include <utility>
#include <vector>

namespace CLI {

class App;

}

namespace kavix::numdict {

/// The options of the commands that work on stores.
class StoreCommandLine : private Unmovable {

public:

    /// Adds the commands to the program.
    explicit StoreCommandLine(CLI::App& application);

    /// Runs the one that was given; there must be one. Returns the exit code.
    int run() const;

private:

    CLI::App* add(
        CLI::App& application, const char* name, const char* description, const char* footer, StoreOptions& options,
        std::function<int()> command);

    void addResolve(CLI::App& application);
    void addGet(CLI::App& application);
    void addDump(CLI::App& application);
    void addRestore(CLI::App& application);
    void addCompact(CLI::App& application);
    void addStats(CLI::App& application);
    void addCheck(CLI::App& application);
    void addDiff(CLI::App& application);

    ResolveCommand m_resolve;
    GetCommand m_get;
    DumpCommand m_dump;
    RestoreCommand m_restore;
    CompactCommand m_compact;
    StatsCommand m_stats;
    CheckCommand m_check;
    DiffCommand m_diff;
    std::vector<std::pair<CLI::App*, std::function<int()>>> m_commands;
};

}
