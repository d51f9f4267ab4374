#pragma once

#include "numdict/LineBlocks.h"
#include "numdict/RDFFormat.h"
#include "numdict/SerdHandles.h"
#include "numdict/Statement.h"
#include "core/platform/system/Unmovable.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace kavix::numdict {

/// What became of the lines of a block.
struct LineBlockResult {
    uint64_t m_damagedLines = 0;
    std::optional<SyntaxError> m_firstError;
    bool m_isStopped = false; // the sink wanted no more
};

/// Reads blocks of N-Triples or N-Quads, each line by itself. So the line number is exact, what a damaged line does not
/// say is lost and nothing else, and the result does not depend on where a file was cut. One thread uses a reader.
class LineReader final : private StatementContext, private Unmovable {

public:

    /// @param blankPrefix  put before the labels of blank nodes, which mean something in their own file only
    LineReader(RDFFormat format, const std::string& baseIRI, std::string blankPrefix, StatementSink& sink);

    ~LineReader();

    /// Reads all lines of a block, which it may overwrite.
    /// @param stopAtError  leave the rest of the block after the first damaged line
    /// Whatever the sink throws comes out; the rest of the block is then not read.
    LineBlockResult read(LineBlock& block, bool stopAtError);

private:

    static SerdStatus onStatement(void* handle, SerdStatementFlags flags, const SerdNode* graph, const SerdNode* subject, const SerdNode* predicate, const SerdNode* object, const SerdNode* datatype, const SerdNode* language);

    static SerdStatus onError(void* handle, const SerdError* error);

    uint64_t getLine() const override { return m_line; }

    SerdEnv* getEnvironment() const override { return m_environment.get(); }

    SerdStatus pass(SerdStatementFlags flags, const Statement& statement);

    SerdStatus refuse(const char* reason);

    /// Returns whether the line is well formed. The line is NUL-terminated.
    bool readLine(const char* line, size_t length);

    void renewReader();

    const RDFFormat m_format;
    const std::string m_blankPrefix;
    StatementSink& m_sink;
    SerdEnvPointer m_environment;
    SerdReaderPointer m_reader;
    size_t m_bytesSinceRenewal;

    // The present line.
    uint64_t m_line;
    bool m_hasError;
    bool m_isStopped;
    SyntaxError m_error;
    std::exception_ptr m_exception;

};

}
