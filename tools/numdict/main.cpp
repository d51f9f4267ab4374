#include "numdict/commands/CommandLine.h"
#include "numdict/commands/Commands.h"
#include "numdict/commands/StoreCommandLine.h"
#include "numdict/console/Failures.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <string>

using namespace kavix::numdict;

namespace {

constexpr char FOOTER[] = R"(
Exit codes: 0 all well; 1 literals were rejected, files are damaged or a look-up found nothing; 2 wrong usage;
3 a limit was reached (memory budget, resource IDs); 4 the system or the program failed, or a store cannot be opened.

Try
  numdict import data.ttl more.nt.gz             import files and print what was found
  numdict import data.ttl --store numbers.store  keep the values in a store
  numdict resolve numbers.store 5 '"5"^^xsd:int' find their IDs
  numdict dump numbers.store                     print everything
  numdict bench data.nt                          how fast this machine does it
  numdict parse 5 '"007"^^xsd:int'               how literals are understood
  numdict COMMAND --help                         more about a command, with examples)";

constexpr char IMPORT_FOOTER[] = R"(
Files in N-Triples (.nt), N-Quads (.nq), Turtle (.ttl) and TriG (.trig) are read, also packed by gzip. Damaged lines of
N-Triples and N-Quads are skipped; a damaged Turtle or TriG file is read up to its first error. Literals that cannot be
entered are counted and shown, and do not stop the import. With --store the good ones are stored as one transaction:
after a limit or a failure (exit codes 3 and 4), and when --strict stopped the import, the store is as it was.

Examples
  numdict import *.ttl dump.nq.gz --memory 8G
  curl -s https://example.org/data.nt.gz | numdict import - --format nt
  numdict import data.ttl --rejected rejected.nq    then correct rejected.nq and import it as well
  numdict import *.nt.gz --store numbers.store     again with other files: the store is extended
  numdict import data.ttl --resolve 5 '"5"^^xsd:int' --get 1 2 3
  numdict import data.nt --json --quiet > report.json)";

constexpr char BENCH_FOOTER[] = R"(
The files are read once to keep their values, and then, for each number of threads: read by the parser alone, which is the
limit of any import; imported; their values entered into an empty dictionary and looked up in it, one at a time and in
batches of 1024. All of this is done once to warm up and then as often as --repetitions says, in turns. Nothing is written.

import/reading is how many times as long an import takes as the parser alone: 1.10 means that the parser has 91% of the
time, and that nothing but a faster parser would help much. Let the machine do nothing else meanwhile, and measure files
that take at least a second; the last line tells how far runs lie apart. Values that do not fit in half of --memory (56
bytes each) are imported, but not kept. Files that cannot be read to their end are left out (exit code 1).

Examples
  numdict bench *.nt.gz
  numdict bench data.ttl --threads 1,8 --repetitions 11 --json > bench.json
  numdict generate --literals 5M -o sample.nt && numdict bench sample.nt --no-huge-pages)";

constexpr char EQUAL_FOOTER[] = R"(
Examples
  numdict equal 5                                 5.0, "5"^^xsd:int, "5.0E0"^^xsd:double, ...
  numdict equal '"0.5"^^xsd:decimal')";

constexpr char PARSE_FOOTER[] = R"(
A literal is written as in Turtle: 5, -0.5, "5"^^xsd:int, "5"^^<http://www.w3.org/2001/XMLSchema#int>. Mind the shell:
put quotes around it. One that starts with "-." goes behind --: what follows that is no option.

Examples
  numdict parse 5 -0.50 '"+007"^^xsd:short' -- -.5
  numdict parse --json --file literals.txt
  printf '5\n"x"^^xsd:int\n' | numdict parse --file -)";

constexpr char GENERATE_FOOTER[] = R"(
The same number and seed give the same bytes on every machine: prices, ratings, years, 13-digit identifiers, sensor
readings and counts, of which a few are frequent and most are rare.

Examples
  numdict generate --literals 1M -o sample.nt
  numdict generate --literals 100M --seed 7 | numdict import - --format nt)";

void addImport(CLI::App& application, ImportCommand& command) {
    CLI::App* const import =
        application.add_subcommand("import", "Import the numeric literals of RDF files and report what was found");
    import->add_option("FILE", command.m_paths, "Files, or - for standard input")->required();
    import
        ->add_option("--threads", command.m_numberOfThreads, "How many threads read (default: one for each processor)")
        ->type_name("N")
        ->check(CLI::Range(1, 255));
    import
        ->add_option(
            "--memory", command.m_memory,
            "Memory budget of the dictionary: 512M, 2G, 2GiB or bytes (default: half of the machine's)")
        ->type_name("SIZE");
    import
        ->add_option(
            "--store", command.m_storePath, "Keep the values in this store: a new one, or one that is extended")
        ->type_name("FILE");
    import->add_flag("--dry-run", command.m_isDryRun, "Import and report, but write no store");
    import->add_flag("--trusted", command.m_isTrusted, "Open the store without checking every value");
    import->add_flag("--no-huge-pages", command.m_isWithoutHugePages, "Do not ask the system for huge pages");
    import
        ->add_option(
            "--id-width", command.m_resourceIDWidth,
            "Bits of a resource ID: 32 (up to 4 thousand million values) or 64 (default: the store's, or 32)")
        ->type_name("BITS")
        ->check(CLI::IsMember({32, 64}));
    import->add_option("--format", command.m_format, "Format of all files: nt, nq, ttl or trig (default: by extension)")
        ->type_name("FORMAT");
    import->add_flag("--strict", command.m_isStrict, "Stop at the first rejected literal or damaged place");
    import->add_flag(
        "--trim", command.m_isTrimming, "Ignore white space around lexical forms, such as \" 5 \"^^xsd:int");
    import
        ->add_option(
            "--rejected", command.m_rejectedPath, "Write the statements of rejected literals to this file, as N-Quads")
        ->type_name("FILE");
    import->add_flag("--json", command.m_isJSON, "Print the report as one JSON object (look-ups go to standard error)");
    import->add_flag("--quiet", command.m_isQuiet, "Show no progress");
    import->add_option("--resolve", command.m_literalsToResolve, "After the import, print the IDs of these literals")
        ->type_name("LITERAL");
    import->add_option("--get", command.m_resourceIDsToGet, "After the import, print the literals with these IDs")
        ->type_name("ID");
    import->footer(IMPORT_FOOTER);
}

void addBench(CLI::App& application, BenchCommand& command) {
    CLI::App* const bench =
        application.add_subcommand("bench", "Measure how fast this machine imports files, and what holds it back");
    bench->add_option("FILE", command.m_paths, "Files, as for import; they are read many times")->required();
    bench
        ->add_option(
            "--threads", command.m_numbersOfThreads,
            "Numbers of threads, such as 1,2,4 (default: 1, 2, 4 and so on up to all processors)")
        ->type_name("LIST")
        ->delimiter(',')
        ->check(CLI::Range(1, 255));
    bench->add_option("--repetitions", command.m_repetitions, "How often each thing is measured; the median is shown")
        ->type_name("N")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    bench
        ->add_option(
            "--memory", command.m_memory,
            "Memory: a half for the dictionary, a half for values that are kept (default: half of the machine's)")
        ->type_name("SIZE");
    bench->add_option("--format", command.m_format, "Format of all files: nt, nq, ttl or trig (default: by extension)")
        ->type_name("FORMAT");
    bench->add_option("--id-width", command.m_resourceIDWidth, "Bits of a resource ID: 32 or 64")
        ->type_name("BITS")
        ->check(CLI::IsMember({32, 64}))
        ->capture_default_str();
    bench->add_flag("--no-huge-pages", command.m_isWithoutHugePages, "Do not ask the system for huge pages");
    bench->add_flag("--json", command.m_isJSON, "Print one JSON object, with the time of every run");
    bench->add_flag("--quiet", command.m_isQuiet, "Show no progress");
    bench->footer(BENCH_FOOTER);
}

void addEqual(CLI::App& application, EqualCommand& command) {
    CLI::App* const equal =
        application.add_subcommand("equal", "List the values of other datatypes that equal a literal");
    equal->add_option("LITERAL", command.m_literal, "A numeric literal as in Turtle")->required();
    equal->footer(EQUAL_FOOTER);
}

void addParse(CLI::App& application, ParseCommand& command) {
    CLI::App* const parse = application.add_subcommand(
        "parse", "Show how literals are understood: datatype, value, canonical form, or what is wrong");
    parse->add_option("LITERAL", command.m_literals, "Literals as in Turtle");
    parse->add_option("--file", command.m_file, "A file with a literal on each line, or - for standard input")
        ->type_name("FILE");
    parse->add_flag("--json", command.m_isJSON, "Print one JSON object a line for each literal");
    parse->footer(PARSE_FOOTER);
}

void addGenerate(CLI::App& application, GenerateCommand& command) {
    CLI::App* const generate =
        application.add_subcommand("generate", "Write N-Triples with numeric literals to try things with");
    generate->add_option("--literals", command.m_numberOfLiterals, "How many: 1000000, 500k, 100M")
        ->type_name("N")
        ->capture_default_str();
    generate->add_option("--seed", command.m_seed, "Another seed gives other data")
        ->type_name("N")
        ->capture_default_str();
    generate->add_option("-o,--output", command.m_outputPath, "The file to write, or - for standard output")
        ->type_name("FILE")
        ->capture_default_str();
    generate->footer(GENERATE_FOOTER);
}

}

int main(int argumentCount, char** arguments) {
    CLI::App application("numdict gives the numeric literals of RDF data resource IDs.", "numdict");
    application.require_subcommand(1);
    application.footer(FOOTER);
    ImportCommand import;
    BenchCommand bench;
    EqualCommand equal;
    ParseCommand parse;
    GenerateCommand generate;
    addImport(application, import);
    addBench(application, bench);
    addEqual(application, equal);
    addParse(application, parse);
    addGenerate(application, generate);
    StoreCommandLine storeCommands(application);
    // A file at the limit of "ulimit -f" is then an error like a full disk, which is reported and leaves nothing half
    // done.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        parseCommandLine(application, argumentCount, arguments);
    }
    catch (const CLI::ParseError& error) {
        return application.exit(error) == 0 ? EXIT_ALL_WELL : EXIT_WRONG_USAGE;
    }
    return runGuarded([&] {
        if (application.got_subcommand("import"))
            return runImportCommand(import);
        if (application.got_subcommand("bench"))
            return runBenchCommand(bench);
        if (application.got_subcommand("equal"))
            return runEqualCommand(equal);
        if (application.got_subcommand("parse"))
            return runParseCommand(parse);
        if (application.got_subcommand("generate"))
            return runGenerateCommand(generate);
        return storeCommands.run();
    });
}
