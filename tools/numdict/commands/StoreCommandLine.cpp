#include "numdict/commands/StoreCommandLine.h"

#include "numdict/console/Failures.h"

#include <CLI/CLI.hpp>

namespace kavix::numdict {

namespace {

constexpr char RESOLVE_FOOTER[] = R"(
A literal is written as in Turtle: 5, -0.5, "5"^^xsd:int, "5"^^<http://www.w3.org/2001/XMLSchema#int>. Mind the shell:
put quotes around it. One that starts with "-." goes behind --: what follows that is no option. Each literal gets a line:
ID, datatype, literal, or "-" and what is wrong. Exit code 1: not all are in the store.

Examples
  numdict resolve numbers.store 5 '"5"^^xsd:int'
  numdict resolve numbers.store --json 5 -- -.5
  numdict resolve numbers.store --file literals.txt | cut -f1)";

constexpr char GET_FOOTER[] = R"(
Each ID gets a line: ID, datatype, literal. Exit code 1: not all are in the store.

Examples
  numdict get numbers.store 1 2 3
  seq 100 | numdict get numbers.store --file - --json)";

constexpr char DUMP_FOOTER[] = R"(
A line for each value, in the order of the IDs. 'numdict restore' reads text, csv and jsonl back. In text the columns are
separated by tabs, and aligned on a terminal.

Examples
  numdict dump numbers.store | head
  numdict dump numbers.store --format jsonl | gzip > numbers.jsonl.gz
  numdict dump numbers.store --format ntriples -o numbers.nt)";

constexpr char RESTORE_FOOTER[] = R"(
Reads text, CSV and JSON lines, also packed by gzip, and makes a store in which every value has the ID that it had. Its
format is seen line by line. If a record is malformed or contradicts another one, it is shown with its line, and nothing is
written (exit code 1). A file is read twice, the first time to find what is malformed; standard input is read once.

Examples
  numdict restore numbers.jsonl.gz -o numbers.store
  numdict dump narrow.store | numdict restore - -o wide.store --id-width 64)";

constexpr char COMPACT_FOOTER[] = R"(
Drops values, numbers the others densely from 1 in their old order, and makes the file small. Without --keep and --drop it
drops no value but what was taken back, and the IDs that were never used. FILE lists a resource ID or a Turtle literal on each
line; digits alone are an ID, so the xsd:integer 5 is written "5"^^xsd:integer. Lines that name nothing in the store are
shown, and make the exit code 1; the store is compacted all the same. If a line cannot be understood, nothing is written.
Whoever keeps resource IDs elsewhere needs --map, which lists old and new IDs separated by a tab.

Examples
  numdict compact numbers.store
  numdict compact numbers.store --drop obsolete.txt --map renumbered.tsv
  numdict compact numbers.store --keep used.txt -o small.store)";

constexpr char STATS_FOOTER[] = R"(
Live buckets hold values; deleted ones held values that were taken back; reserved ones wait for values. The load is the share of
buckets that are one of these. A probe length is the number of buckets that finding a value takes. Memory is that of the
table; in the last row it is all that is charged to the budget. bytes/value: the table, the arrays and the records. On huge
pages: what the system granted of the memory that asked for them. A huge page is 2 MiB and counts whole, so a store of a few
values may be on 6 MiB of them, though it is charged less.

Examples
  numdict stats numbers.store
  numdict stats numbers.store --json | jq '.datatypes["xsd:int"].load')";

constexpr char CHECK_FOOTER[] = R"(
Verifies the header, all checksums, and every value: that its ID, its table and its record agree, that probing finds it,
and that it is there once. All problems are found, not only the first, and the first 20 are listed. Exit code 1: there are some.

With --repair the values that can be relied upon go to a new store, under the same IDs: from the arrays where their checksums
are right, else from the tables where theirs is, else where both agree. What is not saved is listed. Exit code 0: all was
saved. The damaged store stays. A decimal is kept in the data pool alone: if that is damaged, no decimal is certain, and none is
saved, unless --unconfirmed saves those that fit the tables; then a wrong digit may pass.

Examples
  numdict check numbers.store
  numdict check numbers.store --repair -o repaired.store --all > report.txt)";

constexpr char DIFF_FOOTER[] = R"(
A line for each difference: what it is, the ID in the first store, the ID in the second, the literal. "<" is a value only in
the first, ">" one only in the second, "!" one that has another ID. Exit code 0: no difference; 1: there are some.

Examples
  numdict diff yesterday.store today.store
  numdict diff a.store b.store --quiet > /dev/null && echo the same)";

}

StoreCommandLine::StoreCommandLine(CLI::App& application) {
    addResolve(application);
    addGet(application);
    addDump(application);
    addRestore(application);
    addCompact(application);
    addStats(application);
    addCheck(application);
    addDiff(application);
}

CLI::App* StoreCommandLine::add(
    CLI::App& application, const char* name, const char* description, const char* footer, StoreOptions& options,
    std::function<int()> command) {
    CLI::App* const subcommand = application.add_subcommand(name, description);
    subcommand
        ->add_option(
            "--memory", options.m_memory, "Memory budget: 512M, 2G, 2GiB or bytes (default: half of the machine's)")
        ->type_name("SIZE");
    subcommand->add_flag("--quiet", options.m_isQuiet, "Show no progress");
    subcommand->footer(footer);
    m_commands.emplace_back(subcommand, std::move(command));
    return subcommand;
}

int StoreCommandLine::run() const {
    for (const auto& [subcommand, command] : m_commands)
        if (subcommand->parsed())
            return command();
    throw UsageError("name a command; 'numdict --help' lists them");
}

namespace {

void addHugePages(CLI::App& subcommand, StoreOptions& options) {
    subcommand.add_flag("--no-huge-pages", options.m_isWithoutHugePages, "Do not ask the system for huge pages");
}

void addStore(CLI::App& subcommand, std::string& path, StoreOptions& options) {
    subcommand.add_option("STORE", path, "A store, as 'numdict import --store' makes it")->required();
    subcommand.add_flag("--trusted", options.m_isTrusted, "Open the store without checking every value");
    addHugePages(subcommand, options);
}

void addJSON(CLI::App& subcommand, bool& isJSON, const char* description) {
    subcommand.add_flag("--json", isJSON, description);
}

constexpr char ONE_OBJECT[] = "Print one JSON object";
constexpr char OBJECT_PER_LINE[] = "Print one JSON object a line";

}

void StoreCommandLine::addResolve(CLI::App& application) {
    CLI::App* const resolve =
        add(application, "resolve", "Print the IDs of literals", RESOLVE_FOOTER, m_resolve.m_options,
            [this] { return runResolveCommand(m_resolve); });
    addStore(*resolve, m_resolve.m_storePath, m_resolve.m_options);
    resolve->add_option("LITERAL", m_resolve.m_literals, "Literals as in Turtle");
    resolve->add_option("--file", m_resolve.m_file, "A file with a literal on each line, or - for standard input")
        ->type_name("FILE");
    addJSON(*resolve, m_resolve.m_isJSON, OBJECT_PER_LINE);
}

void StoreCommandLine::addGet(CLI::App& application) {
    CLI::App* const get =
        add(application, "get", "Print the literals that have IDs", GET_FOOTER, m_get.m_options,
            [this] { return runGetCommand(m_get); });
    addStore(*get, m_get.m_storePath, m_get.m_options);
    get->add_option("ID", m_get.m_resourceIDs, "Resource IDs");
    get->add_option("--file", m_get.m_file, "A file with an ID on each line, or - for standard input")
        ->type_name("FILE");
    addJSON(*get, m_get.m_isJSON, OBJECT_PER_LINE);
}

void StoreCommandLine::addDump(CLI::App& application) {
    CLI::App* const dump =
        add(application, "dump", "Print all values of a store with their IDs", DUMP_FOOTER, m_dump.m_options,
            [this] { return runDumpCommand(m_dump); });
    addStore(*dump, m_dump.m_storePath, m_dump.m_options);
    dump->add_option("--format", m_dump.m_format, "text, csv, jsonl (JSON, an object a line) or ntriples")
        ->type_name("FORMAT")
        ->capture_default_str();
    dump->add_option("-o,--output", m_dump.m_outputPath, "The file to write, or - for standard output")
        ->type_name("FILE")
        ->capture_default_str();
}

void StoreCommandLine::addRestore(CLI::App& application) {
    CLI::App* const restore =
        add(application, "restore", "Make a store of what 'numdict dump' wrote, with the same IDs", RESTORE_FOOTER,
            m_restore.m_options, [this] { return runRestoreCommand(m_restore); });
    restore->add_option("RECORDS", m_restore.m_recordsPath, "A file, or - for standard input")->required();
    restore->add_option("-o,--output", m_restore.m_storePath, "The store to write; it replaces one that is there")
        ->type_name("STORE")
        ->required();
    addHugePages(*restore, m_restore.m_options);
    restore->add_option("--id-width", m_restore.m_resourceIDWidth, "Bits of a resource ID: 32 or 64")
        ->type_name("BITS")
        ->check(CLI::IsMember({32, 64}))
        ->capture_default_str();
    restore
        ->add_option(
            "--threads", m_restore.m_numberOfThreads, "How many threads read (default: one for each processor)")
        ->type_name("N")
        ->check(CLI::Range(1, 255));
    addJSON(*restore, m_restore.m_isJSON, ONE_OBJECT);
}

void StoreCommandLine::addCompact(CLI::App& application) {
    CLI::App* const compact =
        add(application, "compact", "Drop values and number the others densely", COMPACT_FOOTER, m_compact.m_options,
            [this] { return runCompactCommand(m_compact); });
    addStore(*compact, m_compact.m_storePath, m_compact.m_options);
    CLI::Option* const keep =
        compact->add_option("--keep", m_compact.m_keepPath, "Keep the values that this file lists, drop the others")
            ->type_name("FILE");
    compact->add_option("--drop", m_compact.m_dropPath, "Drop the values that this file lists, keep the others")
        ->type_name("FILE")
        ->excludes(keep);
    compact->add_option("-o,--output", m_compact.m_outputPath, "The store to write (default: STORE itself)")
        ->type_name("FILE");
    compact->add_option("--map", m_compact.m_mapPath, "Write the old and the new ID of each value that was kept")
        ->type_name("FILE");
    addJSON(*compact, m_compact.m_isJSON, ONE_OBJECT);
}

void StoreCommandLine::addStats(CLI::App& application) {
    CLI::App* const stats =
        add(application, "stats", "Describe a store: tables, memory, and the numbers in it", STATS_FOOTER,
            m_stats.m_options, [this] { return runStatsCommand(m_stats); });
    addStore(*stats, m_stats.m_storePath, m_stats.m_options);
    addJSON(*stats, m_stats.m_isJSON, ONE_OBJECT);
}

void StoreCommandLine::addCheck(CLI::App& application) {
    CLI::App* const check =
        add(application, "check", "Find everything that is wrong with a store, and repair it", CHECK_FOOTER,
            m_check.m_options, [this] { return runCheckCommand(m_check); });
    check->add_option("STORE", m_check.m_storePath, "A store, in whatever state")->required();
    addHugePages(*check, m_check.m_options);
    check->add_flag("--all", m_check.m_isListingAll, "List all problems");
    check->add_flag("--repair", m_check.m_isRepairing, "Save what can be saved to a new store");
    check->add_flag(
        "--unconfirmed", m_check.m_isTakingUnconfirmed, "With --repair, save decimals from a damaged data pool too");
    check->add_option("-o,--output", m_check.m_outputPath, "The new store")->type_name("NEW");
    addJSON(*check, m_check.m_isJSON, ONE_OBJECT);
}

void StoreCommandLine::addDiff(CLI::App& application) {
    CLI::App* const diff =
        add(application, "diff", "Compare the values and IDs of two stores", DIFF_FOOTER, m_diff.m_options,
            [this] { return runDiffCommand(m_diff); });
    diff->add_option("STORE", m_diff.m_firstPath, "The first store")->required();
    diff->add_option("STORE2", m_diff.m_secondPath, "The second store")->required();
    diff->add_flag("--trusted", m_diff.m_options.m_isTrusted, "Open the stores without checking every value");
    addHugePages(*diff, m_diff.m_options);
    addJSON(*diff, m_diff.m_isJSON, OBJECT_PER_LINE);
}

}
