#pragma once

#include "numdict/stores/StoreFile.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kavix::numdict {

// The commands that work on stores. As in Commands.h, each returns the exit code, and failures are exceptions. A store
// that cannot be opened is a StoreFailure, except for check, whose task is to say so.

struct ResolveCommand {
    std::string m_storePath;
    std::vector<std::string> m_literals;
    std::string m_file; // empty: none; "-" for standard input
    bool m_isJSON = false;
    StoreOptions m_options;
};

int runResolveCommand(const ResolveCommand& command);

struct GetCommand {
    std::string m_storePath;
    std::vector<std::string> m_resourceIDs;
    std::string m_file;
    bool m_isJSON = false;
    StoreOptions m_options;
};

int runGetCommand(const GetCommand& command);

struct DumpCommand {
    std::string m_storePath;
    std::string m_format = "text";
    std::string m_outputPath = "-";
    StoreOptions m_options;
};

int runDumpCommand(const DumpCommand& command);

struct RestoreCommand {
    std::string m_recordsPath;
    std::string m_storePath;
    unsigned m_resourceIDWidth = 32;
    unsigned m_numberOfThreads = 0; // 0: as many as there are processors
    bool m_isJSON = false;
    StoreOptions m_options;
};

int runRestoreCommand(const RestoreCommand& command);

struct CompactCommand {
    std::string m_storePath;
    std::string m_keepPath; // empty: none; at most one of the two
    std::string m_dropPath;
    std::string m_outputPath; // empty: the store itself
    std::string m_mapPath; // empty: none
    bool m_isJSON = false;
    StoreOptions m_options;
};

int runCompactCommand(const CompactCommand& command);

struct StatsCommand {
    std::string m_storePath;
    bool m_isJSON = false;
    StoreOptions m_options;
};

int runStatsCommand(const StatsCommand& command);

struct CheckCommand {
    std::string m_storePath;
    bool m_isListingAll = false;
    bool m_isRepairing = false;
    bool m_isTakingUnconfirmed = false;
    std::string m_outputPath;
    bool m_isJSON = false;
    StoreOptions m_options;
};

int runCheckCommand(const CheckCommand& command);

struct DiffCommand {
    std::string m_firstPath;
    std::string m_secondPath;
    bool m_isJSON = false;
    StoreOptions m_options;
};

int runDiffCommand(const DiffCommand& command);

}
