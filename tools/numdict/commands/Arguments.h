#pragma once

namespace CLI {

class App;

}

namespace kavix::numdict {

/// Parses the arguments of the program. After the first "--", anywhere on the command line, there are no options: all
/// that follow are values of the command, in their order, whatever they begin with.
/// @throws CLI::ParseError  usage error, or help was asked for; program.exit() prints it
void parseArguments(CLI::App& program, int argumentCount, const char* const* arguments);

}
