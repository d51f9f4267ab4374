#pragma once

#include "numdict/commands/Commands.h"

#include <functional>
#include <utility>
#include <vector>

namespace CLI {

class App;

}

namespace kavix::numdict {

/// The commands of the program with their options. The program's parser keeps references to this object.
class CommandLine {

public:

    /// Adds the commands to the program.
    explicit CommandLine(CLI::App& program);

    CommandLine(const CommandLine&) = delete;

    CommandLine& operator=(const CommandLine&) = delete;

    /// Runs the command that was given; there must be one. Returns the exit code.
    int run() const;

private:

    CLI::App& add(const char* name, const char* description, const char* help, std::function<int()> command);

    /// Adds a command that makes or opens dictionaries.
    CLI::App& addWithOptions(
        const char* name, const char* description, const char* help, DictionaryOptions& options,
        std::function<int()> command);

    void addImport();
    void addBench();
    void addEqual();
    void addParse();
    void addGenerate();
    void addResolve();
    void addGet();
    void addDump();
    void addRestore();
    void addCompact();
    void addStats();
    void addCheck();
    void addDiff();

    CLI::App& m_program;
    ImportCommand m_import;
    BenchCommand m_bench;
    EqualCommand m_equal;
    ParseCommand m_parse;
    GenerateCommand m_generate;
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
