#include "numdict/commands/SharedOptions.h"

#include "numdict/console/WorkerThreads.h"

#include <CLI/CLI.hpp>

namespace kavix::numdict {

void addMemory(CLI::App& command, DictionaryOptions& options, const char* description) {
    command.add_option("--memory", options.m_memory, description)->type_name("SIZE");
}

void addQuiet(CLI::App& command, DictionaryOptions& options) {
    command.add_flag("--quiet", options.m_isQuiet, "Show no progress");
}

void addHugePages(CLI::App& command, DictionaryOptions& options) {
    command.add_flag("--no-huge-pages", options.m_isWithoutHugePages, "Do not ask the system for huge pages");
}

void addTrusted(CLI::App& command, DictionaryOptions& options) {
    command.add_flag("--trusted", options.m_isTrusted, "Open stores without checking every value");
}

void addStore(CLI::App& command, std::string& path, DictionaryOptions& options) {
    command.add_option("STORE", path, "A store, as 'numdict import --store' makes it")->required();
    addTrusted(command, options);
    addHugePages(command, options);
}

void addThreads(CLI::App& command, unsigned& numberOfThreads) {
    command.add_option("--threads", numberOfThreads, "How many threads read (default: one per processor)")
        ->type_name("N")
        ->check(CLI::Range(1, static_cast<int>(MAXIMUM_NUMBER_OF_THREADS)));
}

void addRDFFormat(CLI::App& command, std::string& format) {
    command.add_option("--format", format, "Format of all files: nt, nq, ttl or trig (default: by extension)")
        ->type_name("FORMAT");
}

void addIDWidth(CLI::App& command, unsigned& width, const char* description, bool showsDefault) {
    CLI::Option* const option =
        command.add_option("--id-width", width, description)->type_name("BITS")->check(CLI::IsMember({32, 64}));
    if (showsDefault)
        option->capture_default_str();
}

void addJSON(CLI::App& command, bool& isJSON, const char* description) {
    command.add_flag("--json", isJSON, description);
}

void addTextOutput(CLI::App& command, std::string& path) {
    command.add_option("-o,--output", path, "The file to write, or - for standard output")
        ->type_name("FILE")
        ->capture_default_str();
}

void addFile(CLI::App& command, const char* name, std::string& path, const char* description) {
    command.add_option(name, path, description)->type_name("FILE");
}

}
