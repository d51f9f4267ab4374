#pragma once

#include "numdict/input/SerdHandles.h"
#include "numdict/input/Statement.h"

#include <cstddef>
#include <string>

namespace kavix::numdict {

/// Writes statements of one file as N-Quads into a string: prefixes and relative IRIs are expanded.
class StatementWriter {

public:

    /// @param environment  where prefixes and base IRI come from; outlives the writer
    explicit StatementWriter(SerdEnv* environment);

    StatementWriter(const StatementWriter&) = delete;

    StatementWriter& operator=(const StatementWriter&) = delete;

    ~StatementWriter();

    /// Appends a statement, a line, to getText().
    void write(const Statement& statement);

    std::string& getText() noexcept { return m_text; }

private:

    static size_t onWrite(const void* bytes, size_t length, void* handle);

    std::string m_text;
    SerdWriterPointer m_writer;
};

}
