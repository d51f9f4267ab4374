#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kavix::numdict {

// The commands, as the program has understood them. Each returns the exit code; failures are exceptions, which
// runGuarded() turns into messages and codes.

struct ImportCommand {
    std::vector<std::string> m_paths;
    std::string m_format; // empty: by extension
    unsigned m_numberOfThreads = 0; // 0: as many as there are processors
    std::string m_memory; // empty: half of the machine's
    unsigned m_resourceIDWidth = 0; // 0: that of the store, or 32
    std::string m_storePath; // empty: the dictionary ends with the program
    bool m_isDryRun = false;
    bool m_isTrusted = false;
    bool m_isWithoutHugePages = false;
    bool m_isStrict = false;
    bool m_isTrimming = false;
    bool m_isJSON = false;
    bool m_isQuiet = false;
    std::string m_rejectedPath;
    std::vector<std::string> m_literalsToResolve;
    std::vector<uint64_t> m_resourceIDsToGet;
};

int runImportCommand(const ImportCommand& command);

struct BenchCommand {
    std::vector<std::string> m_paths;
    std::string m_format; // empty: by extension
    std::vector<unsigned> m_numbersOfThreads; // empty: 1, 2, 4 and so on up to the number of processors
    unsigned m_repetitions = 5;
    std::string m_memory; // empty: half of the machine's
    unsigned m_resourceIDWidth = 32;
    bool m_isWithoutHugePages = false;
    bool m_isJSON = false;
    bool m_isQuiet = false;
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

/// Runs a command and flushes standard output; if that fails, prints why to standard error, with advice, and returns
/// the exit code for it.
int runGuarded(const std::function<int()>& command);

}
