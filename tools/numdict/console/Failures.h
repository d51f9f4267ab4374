#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace kavix::numdict {

/// How the program ends; users' scripts depend on these.
enum ExitCode : int {
    EXIT_ALL_WELL = 0,
    EXIT_DAMAGED_INPUT = 1, // literals were rejected or files are damaged
    EXIT_USAGE_ERROR = 2,
    EXIT_LIMIT_REACHED = 3, // the memory budget or the resource IDs are used up
    EXIT_FAILURE_INSIDE = 4 // the system or the program itself failed
};

/// What was asked for makes no sense; the message says what to write instead.
class UsageError : public std::runtime_error {

public:

    using std::runtime_error::runtime_error;
};

/// The system refused something, such as writing a file.
class SystemFailure : public std::runtime_error {

public:

    using std::runtime_error::runtime_error;
};

/// A file cannot be read on: it is unreadable or damaged below the level of RDF syntax. Ends that file only.
class InputFailure : public std::runtime_error {

public:

    /// @param line  where, from 1; 0 if the failure has no line
    explicit InputFailure(const std::string& message, uint64_t line = 0) :
        std::runtime_error(message),
        m_line(line) { }

    uint64_t getLine() const noexcept { return m_line; }

private:

    uint64_t m_line;
};

}
