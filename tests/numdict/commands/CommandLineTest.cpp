#include "numdict/ProgramRunner.h"

#include <gtest/gtest.h>

using namespace kavix::numdict;

TEST(CommandLine, ExitCodesTellWhatHappened) {
    const ExpectedEnd rows[] = {
        {"no command", "", 2, "subcommand"},
        {"unknown command", "exprot", 2, ""},
        {"help", "--help", 0, ""},
        {"help of a command", "import --help", 0, ""},
    };
    for (const ExpectedEnd& row : rows)
        expectEnd(row);
}
