#include "numdict/commands/CommandLine.h"

#include "numdict/commands/HelpTexts.h"
#include "numdict/commands/SharedOptions.h"
#include "numdict/console/WorkerThreads.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <utility>

namespace kavix::numdict {

CommandLine::CommandLine(CLI::App& program) :
    m_program(program) {
    program.require_subcommand(1);
    program.footer(PROGRAM_HELP);
    addImport();
    addBench();
    addEqual();
    addParse();
    addGenerate();
    addResolve();
    addGet();
    addDump();
    addRestore();
    addCompact();
    addStats();
    addCheck();
    addDiff();
}

int CommandLine::run() const {
    const auto given =
        std::find_if(m_commands.begin(), m_commands.end(), [](const auto& command) { return command.first->parsed(); });
    return given->second();
}

CLI::App& CommandLine::add(const char* name, const char* description, const char* help, std::function<int()> command) {
    CLI::App* const subcommand = m_program.add_subcommand(name, description);
    subcommand->footer(help);
    m_commands.emplace_back(subcommand, std::move(command));
    return *subcommand;
}

CLI::App& CommandLine::addWithOptions(
    const char* name, const char* description, const char* help, DictionaryOptions& options,
    std::function<int()> command) {
    CLI::App& subcommand = add(name, description, help, std::move(command));
    addMemory(subcommand, options, "Memory budget: 512M, 2G, 2GiB or bytes (default: half of the machine's)");
    addQuiet(subcommand, options);
    return subcommand;
}

void CommandLine::addImport() {
    CLI::App& import =
        add("import", "Import the numeric literals of RDF files and report what was found", IMPORT_HELP,
            [this] { return runImportCommand(m_import); });
    import.add_option("FILE", m_import.m_paths, "Files, or - for standard input")->required();
    addThreads(import, m_import.m_numberOfThreads);
    addMemory(
        import, m_import.m_options,
        "Memory budget of the dictionary: 512M, 2G, 2GiB or bytes (default: half of the machine's)");
    addFile(
        import, "--store", m_import.m_storePath, "Keep the values in this store: a new one, or one that is extended");
    import.add_flag("--dry-run", m_import.m_isDryRun, "Import and report, but write no store");
    addTrusted(import, m_import.m_options);
    addHugePages(import, m_import.m_options);
    addIDWidth(
        import, m_import.m_resourceIDWidth,
        "Bits of a resource ID: 32 (up to 4 billion (2^32) values) or 64 (default: the store's, or 32)", false);
    addRDFFormat(import, m_import.m_format);
    import.add_flag("--strict", m_import.m_isStrict, "Stop at the first rejected literal or damaged place");
    import.add_flag(
        "--trim", m_import.m_isTrimming, "Ignore white space around lexical forms, such as \" 5 \"^^xsd:int");
    addFile(
        import, "--rejected", m_import.m_rejectedPath,
        "Write the statements of rejected literals to this file, as N-Quads; - is standard output, and the report and "
        "look-ups go to standard error");
    addJSON(import, m_import.m_isJSON, "Print the report as one JSON object (look-ups go to standard error)");
    addQuiet(import, m_import.m_options);
    import.add_option("--resolve", m_import.m_literalsToResolve, "After the import, print the IDs of these literals")
        ->type_name("LITERAL");
    import.add_option("--get", m_import.m_resourceIDsToGet, "After the import, print the literals with these IDs")
        ->type_name("ID");
}

void CommandLine::addBench() {
    CLI::App& bench =
        add("bench", "Measure how fast this machine imports files, and find the bottleneck", BENCH_HELP,
            [this] { return runBenchCommand(m_bench); });
    bench.add_option("FILE", m_bench.m_paths, "Files, as for import; they are read many times")->required();
    bench
        .add_option(
            "--threads", m_bench.m_numbersOfThreads,
            "Numbers of threads, such as 1,2,4 (default: 1, 2, 4 and so on up to all processors)")
        ->type_name("LIST")
        ->delimiter(',')
        ->check(CLI::Range(1, static_cast<int>(MAXIMUM_NUMBER_OF_THREADS)));
    bench.add_option("--repetitions", m_bench.m_repetitions, "How often each thing is measured; the median is shown")
        ->type_name("N")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    addMemory(
        bench, m_bench.m_options,
        "Memory: half for the dictionary, half for values that are kept (default: half of the machine's)");
    addRDFFormat(bench, m_bench.m_format);
    addIDWidth(bench, m_bench.m_resourceIDWidth, "Bits of a resource ID: 32 or 64", true);
    addHugePages(bench, m_bench.m_options);
    addJSON(bench, m_bench.m_isJSON, "Print one JSON object, with the time of every run");
    addQuiet(bench, m_bench.m_options);
}

void CommandLine::addEqual() {
    CLI::App& equal = add("equal", "List the values of other datatypes that equal a literal", EQUAL_HELP, [this] {
        return runEqualCommand(m_equal);
    });
    equal.add_option("LITERAL", m_equal.m_literal, "A numeric literal as in Turtle")->required();
}

void CommandLine::addParse() {
    CLI::App& parse =
        add("parse", "Show how literals are understood: datatype, value, canonical form, or what is wrong", PARSE_HELP,
            [this] { return runParseCommand(m_parse); });
    parse.add_option("LITERAL", m_parse.m_literals, "Literals as in Turtle");
    addFile(parse, "--file", m_parse.m_file, "A file with one literal per line, or - for standard input");
    addJSON(parse, m_parse.m_isJSON, "Print one JSON object per line, for each literal");
}

void CommandLine::addGenerate() {
    CLI::App& generate =
        add("generate", "Write N-Triples with numeric literals to try things with", GENERATE_HELP,
            [this] { return runGenerateCommand(m_generate); });
    generate.add_option("--literals", m_generate.m_numberOfLiterals, "How many: 1000000, 500k, 100M")
        ->type_name("N")
        ->capture_default_str();
    generate.add_option("--seed", m_generate.m_seed, "Another seed gives other data")
        ->type_name("N")
        ->capture_default_str();
    addTextOutput(generate, m_generate.m_outputPath);
}

void CommandLine::addResolve() {
    CLI::App& resolve =
        addWithOptions("resolve", "Print the IDs of literals", RESOLVE_HELP, m_resolve.m_options, [this] {
            return runResolveCommand(m_resolve);
        });
    addStore(resolve, m_resolve.m_storePath, m_resolve.m_options);
    resolve.add_option("LITERAL", m_resolve.m_literals, "Literals as in Turtle");
    addFile(resolve, "--file", m_resolve.m_file, "A file with one literal per line, or - for standard input");
    addJSON(resolve, m_resolve.m_isJSON, OBJECT_PER_LINE);
}

void CommandLine::addGet() {
    CLI::App& get = addWithOptions(
        "get", "Print the literals that have IDs", GET_HELP, m_get.m_options, [this] { return runGetCommand(m_get); });
    addStore(get, m_get.m_storePath, m_get.m_options);
    get.add_option("ID", m_get.m_resourceIDs, "Resource IDs");
    addFile(get, "--file", m_get.m_file, "A file with one ID per line, or - for standard input");
    addJSON(get, m_get.m_isJSON, OBJECT_PER_LINE);
}

void CommandLine::addDump() {
    CLI::App& dump =
        addWithOptions("dump", "Print all values of a store with their IDs", DUMP_HELP, m_dump.m_options, [this] {
            return runDumpCommand(m_dump);
        });
    addStore(dump, m_dump.m_storePath, m_dump.m_options);
    dump.add_option("--format", m_dump.m_format, "text, csv, jsonl (one JSON object per line) or ntriples")
        ->type_name("FORMAT")
        ->capture_default_str();
    addTextOutput(dump, m_dump.m_outputPath);
}

void CommandLine::addRestore() {
    CLI::App& restore = addWithOptions(
        "restore", "Make a store of what 'numdict dump' wrote, with the same IDs", RESTORE_HELP, m_restore.m_options,
        [this] { return runRestoreCommand(m_restore); });
    restore.add_option("RECORDS", m_restore.m_recordsPath, "A file, or - for standard input")->required();
    restore.add_option("-o,--output", m_restore.m_storePath, "The store to write; replaces an existing one")
        ->type_name("STORE")
        ->required();
    addHugePages(restore, m_restore.m_options);
    addIDWidth(restore, m_restore.m_resourceIDWidth, "Bits of a resource ID: 32 or 64", true);
    addThreads(restore, m_restore.m_numberOfThreads);
    addJSON(restore, m_restore.m_isJSON, ONE_OBJECT);
}

void CommandLine::addCompact() {
    CLI::App& compact = addWithOptions(
        "compact", "Drop values and number the others densely", COMPACT_HELP, m_compact.m_options,
        [this] { return runCompactCommand(m_compact); });
    addStore(compact, m_compact.m_storePath, m_compact.m_options);
    addFile(compact, "--keep", m_compact.m_keepPath, "Keep the values that this file lists, drop the others");
    addFile(compact, "--drop", m_compact.m_dropPath, "Drop the values that this file lists, keep the others");
    compact.get_option("--drop")->excludes("--keep");
    addFile(compact, "-o,--output", m_compact.m_outputPath, "The store to write (default: STORE itself)");
    addFile(compact, "--map", m_compact.m_mapPath, "Write the old and the new ID of each value that was kept");
    addJSON(compact, m_compact.m_isJSON, ONE_OBJECT);
}

void CommandLine::addStats() {
    CLI::App& stats = addWithOptions(
        "stats", "Describe a store: tables, memory, and the numbers in it", STATS_HELP, m_stats.m_options,
        [this] { return runStatsCommand(m_stats); });
    addStore(stats, m_stats.m_storePath, m_stats.m_options);
    addJSON(stats, m_stats.m_isJSON, ONE_OBJECT);
}

void CommandLine::addCheck() {
    CLI::App& check = addWithOptions(
        "check", "Find everything that is wrong with a store, and repair it", CHECK_HELP, m_check.m_options,
        [this] { return runCheckCommand(m_check); });
    check.add_option("STORE", m_check.m_storePath, "A store, intact or damaged")->required();
    addHugePages(check, m_check.m_options);
    check.add_flag("--all", m_check.m_isListingAll, "List all problems");
    check.add_flag("--repair", m_check.m_isRepairing, "Save what can be saved to a new store");
    check.add_flag(
        "--unconfirmed", m_check.m_includeUnverified, "With --repair, save decimals from a damaged data pool too");
    check.add_option("-o,--output", m_check.m_outputPath, "The new store")->type_name("NEW");
    addJSON(check, m_check.m_isJSON, ONE_OBJECT);
}

void CommandLine::addDiff() {
    CLI::App& diff =
        addWithOptions("diff", "Compare the values and IDs of two stores", DIFF_HELP, m_diff.m_options, [this] {
            return runDiffCommand(m_diff);
        });
    diff.add_option("STORE", m_diff.m_firstPath, "The first store")->required();
    diff.add_option("STORE2", m_diff.m_secondPath, "The second store")->required();
    addTrusted(diff, m_diff.m_options);
    addHugePages(diff, m_diff.m_options);
    addJSON(diff, m_diff.m_isJSON, OBJECT_PER_LINE);
}

}
