#pragma once

#include "support/TemporaryFolder.h"

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace kavix::numdict {

using test::readFile;

/// A directory for the files of one test, removed with everything in it.
class TemporaryDirectory {

public:

    std::string getPath(const std::string& name) const { return m_folder / name; }

    /// Writes a file and returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        test::writeFile(m_folder / name, content);
        return m_folder / name;
    }

private:

    test::TemporaryFolder m_folder;
};

struct ProgramResult {
    int m_exitCode;
    std::string m_output;
    std::string m_errors;
};

/// Runs the program by the shell, with these arguments as the shell reads them; they may redirect.
/// @param prefix  what the shell reads before the program: a limit and a semicolon, variables, a program that runs
///         others
inline ProgramResult runProgram(const std::string& arguments, const std::string& prefix = "") {
    TemporaryDirectory directory;
    const std::string outputPath = directory.getPath("output");
    const std::string errorPath = directory.getPath("errors");
    const std::string command =
        "{ " + prefix + " '" NUMDICT_PROGRAM "' " + arguments + "; } > '" + outputPath + "' 2> '" + errorPath + "'";
    const int status = std::system(command.c_str());
    return ProgramResult{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(outputPath), readFile(errorPath)};
}

/// How the program is expected to end, a row of a table.
struct ExpectedEnd {
    const char* m_name;
    std::string m_arguments;
    int m_exitCode;
    const char* m_errors; // standard error has this text; if that is empty and the exit code 0 or 1, it is empty too
};

/// @param command  goes before the arguments
inline void expectEnd(const ExpectedEnd& expected, const std::string& command = "") {
    SCOPED_TRACE(expected.m_name);
    const ProgramResult result = runProgram(command + expected.m_arguments);
    EXPECT_EQ(result.m_exitCode, expected.m_exitCode) << result.m_errors;
    EXPECT_NE(result.m_errors.find(expected.m_errors), std::string::npos) << result.m_errors;
    if (*expected.m_errors == '\0' && expected.m_exitCode < 2) {
        EXPECT_EQ(result.m_errors, "");
    }
}

}
