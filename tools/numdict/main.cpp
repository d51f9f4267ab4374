#include "numdict/commands/Arguments.h"
#include "numdict/commands/CommandLine.h"
#include "numdict/console/Failures.h"

#include <CLI/CLI.hpp>

#include <csignal>

using namespace kavix::numdict;

int main(int argumentCount, char** arguments) {
    CLI::App program("numdict gives the numeric literals of RDF data resource IDs.", "numdict");
    CommandLine commandLine(program);
    // With the signal ignored, reaching the limit of "ulimit -f" is an error like a full disk, which is reported and
    // leaves nothing half done.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        parseArguments(program, argumentCount, arguments);
    }
    catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? EXIT_ALL_WELL : EXIT_USAGE_ERROR;
    }
    return runGuarded([&commandLine] { return commandLine.run(); });
}
