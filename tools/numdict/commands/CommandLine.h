#pragma once

namespace CLI {

class App;

}

namespace kavix::numdict {

/// Parses the arguments of the program. Behind the first "--", wherever that stands, there are no options: all that
/// follow are values of the command, in their order, whatever they begin with.
/// @throws CLI::ParseError  wrong usage, or help was asked for; application.exit() prints it
void parseCommandLine(CLI::App& application, int argumentCount, const char* const* arguments);

}
