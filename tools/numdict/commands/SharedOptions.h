#pragma once

#include "numdict/stores/DictionaryOptions.h"

#include <string>

namespace CLI {

class App;

}

namespace kavix::numdict {

// Options that several commands have, so that they are called and explained the same everywhere.

inline constexpr char ONE_OBJECT[] = "Print one JSON object";
inline constexpr char OBJECT_PER_LINE[] = "Print one JSON object per line";

/// --memory
void addMemory(CLI::App& command, DictionaryOptions& options, const char* description);

/// --quiet
void addQuiet(CLI::App& command, DictionaryOptions& options);

/// --no-huge-pages
void addHugePages(CLI::App& command, DictionaryOptions& options);

/// --trusted
void addTrusted(CLI::App& command, DictionaryOptions& options);

/// STORE, which is opened
void addStore(CLI::App& command, std::string& path, DictionaryOptions& options);

/// --threads
void addThreads(CLI::App& command, unsigned& numberOfThreads);

/// --format of RDF files
void addRDFFormat(CLI::App& command, std::string& format);

/// --id-width
/// @param showsDefault  print the number that is there as the default
void addIDWidth(CLI::App& command, unsigned& width, const char* description, bool showsDefault);

/// --json
void addJSON(CLI::App& command, bool& isJSON, const char* description);

/// -o of text, which standard output may take as well
void addTextOutput(CLI::App& command, std::string& path);

/// An option with the name of a file.
void addFile(CLI::App& command, const char* name, std::string& path, const char* description);

}
