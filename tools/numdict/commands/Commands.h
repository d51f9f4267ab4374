#pragma once

#include "numdict/stores/DictionaryOptions.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kavix::numdict {

// The commands, as CommandLine has parsed them: required values are there, numbers are in their ranges, and options
// that exclude each other are not both there. Each returns the exit code; failures are exceptions, which runGuarded()
// turns into messages and codes. A store that cannot be opened is a StoreFailure, except for check, whose task is to
// report it.

struct ImportCommand {
    std::vector<std::string> m_paths;
    std::string m_format; // empty: by extension
    unsigned m_numberOfThreads = 0; // 0: one for each processor
    unsigned m_resourceIDWidth = 0; // 0: that of the store, or 32
    std::string m_storePath; // empty: the dictionary ends with the program
    bool m_isDryRun = false;
    bool m_isStrict = false;
    bool m_isTrimming = false;
    bool m_isJSON = false;
    std::string m_rejectedPath; // empty: none; "-": standard output
    std::vector<std::string> m_literalsToResolve;
    std::vector<uint64_t> m_resourceIDsToGet;
    DictionaryOptions m_options;
};

int runImportCommand(const ImportCommand& command);

struct BenchCommand {
    std::vector<std::string> m_paths;
    std::string m_format; // empty: by extension
    std::vector<unsigned> m_numbersOfThreads; // empty: 1, 2, 4 and so on up to the number of processors
    unsigned m_repetitions = 5;
    unsigned m_resourceIDWidth = 32;
    bool m_isJSON = false;
    DictionaryOptions m_options;
};

int runBenchCommand(const BenchCommand& command);

struct EqualCommand {
    std::string m_literal;
};

int runEqualCommand(const EqualCommand& command);

struct ParseCommand {
    std::vector<std::string> m_literals;
    std::string m_file; // empty: none; "-" for standard input
    bool m_isJSON = false;
};

int runParseCommand(const ParseCommand& command);

struct GenerateCommand {
    std::string m_numberOfLiterals = "1M";
    uint64_t m_seed = 1;
    std::string m_outputPath = "-";
};

int runGenerateCommand(const GenerateCommand& command);

struct ResolveCommand {
    std::string m_storePath;
    std::vector<std::string> m_literals;
    std::string m_file; // empty: none; "-" for standard input
    bool m_isJSON = false;
    DictionaryOptions m_options;
};

int runResolveCommand(const ResolveCommand& command);

struct GetCommand {
    std::string m_storePath;
    std::vector<std::string> m_resourceIDs;
    std::string m_file; // empty: none; "-" for standard input
    bool m_isJSON = false;
    DictionaryOptions m_options;
};

int runGetCommand(const GetCommand& command);

struct DumpCommand {
    std::string m_storePath;
    std::string m_format = "text";
    std::string m_outputPath = "-";
    DictionaryOptions m_options;
};

int runDumpCommand(const DumpCommand& command);

struct RestoreCommand {
    std::string m_recordsPath;
    std::string m_storePath;
    unsigned m_resourceIDWidth = 32;
    unsigned m_numberOfThreads = 0; // 0: one for each processor
    bool m_isJSON = false;
    DictionaryOptions m_options;
};

int runRestoreCommand(const RestoreCommand& command);

struct CompactCommand {
    std::string m_storePath;
    std::string m_keepPath; // empty: none; at most one of the two
    std::string m_dropPath;
    std::string m_outputPath; // empty: the store itself
    std::string m_mapPath; // empty: none
    bool m_isJSON = false;
    DictionaryOptions m_options;
};

int runCompactCommand(const CompactCommand& command);

struct StatsCommand {
    std::string m_storePath;
    bool m_isJSON = false;
    DictionaryOptions m_options;
};

int runStatsCommand(const StatsCommand& command);

struct CheckCommand {
    std::string m_storePath;
    bool m_isListingAll = false;
    bool m_isRepairing = false;
    bool m_includeUnverified = false;
    std::string m_outputPath;
    bool m_isJSON = false;
    DictionaryOptions m_options;
};

int runCheckCommand(const CheckCommand& command);

struct DiffCommand {
    std::string m_firstPath;
    std::string m_secondPath;
    bool m_isJSON = false;
    DictionaryOptions m_options;
};

int runDiffCommand(const DiffCommand& command);

/// Runs a command and flushes standard output; if that fails, prints why to standard error, with advice, and returns
/// the exit code for it.
int runGuarded(const std::function<int()>& command);

}
