#pragma once

#include "numdict/input/LineBlocks.h"
#include "numdict/input/RDFFormat.h"
#include "numdict/input/SerdHandles.h"
#include "numdict/input/Statement.h"

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
};

/// Reads blocks of N-Triples or N-Quads, each line by itself. So the line number is exact, only what a damaged line
/// does not say is lost, and the result does not depend on where a file was cut. One thread uses a reader.
///
/// Starting the parser costs time, so one call of it reads many lines: its text ends after the current line, at a NUL
/// that is put there, until a statement is passed that provably fills its line; then the NUL moves to the end of the
/// next line. If anything is unusual it stays. So the parser never sees more than the line that getLine() returns; and
/// a line in which it finds an error is read again, alone, to find out what the line by itself contains.
class LineReader final : private StatementContext {

public:

    /// @param blankPrefix  put before the labels of blank nodes, which mean something in their own file only
    LineReader(RDFFormat format, const std::string& baseIRI, std::string blankPrefix, StatementSink& sink);

    LineReader(const LineReader&) = delete;

    LineReader& operator=(const LineReader&) = delete;

    ~LineReader();

    /// Reads all lines of a block, which it may overwrite.
    /// @param stopAtError  leave the rest of the block after the first damaged line
    /// Exceptions of the sink pass through; the rest of the block is then not read.
    LineBlockResult read(LineBlock& block, bool stopAtError);

private:

    static SerdStatus onStatement(
        void* handle, SerdStatementFlags flags, const SerdNode* graph, const SerdNode* subject,
        const SerdNode* predicate, const SerdNode* object, const SerdNode* datatype, const SerdNode* language);

    static SerdStatus onError(void* handle, const SerdError* error);

    uint64_t getLine() const override { return m_line; }

    SerdEnv* getEnvironment() const override { return m_environment.get(); }

    SerdStatus pass(SerdStatementFlags flags, const Statement& statement);

    SerdStatus refuse(const char* reason);

    /// Reads the current line, and those after it that the parser reaches. The current line is then the last of them;
    /// returns whether it is well formed. All others are.
    bool readLines();

    /// Reads the current line without its line end; what was passed of it before is not passed again.
    bool readLineAlone();

    /// Makes the line at the NUL the current one, if the parser may continue there.
    void tryEnterNextLine();

    /// Whether nothing follows the statement in the current line, of which it is the first, and the line has no NUL.
    bool fillsLine(const Statement& statement) const;

    /// Finds a NUL in the current line, or returns null.
    const char* findNUL() const;

    /// Puts the NUL after the current line, or takes it away.
    void setNUL();

    void removeNUL();

    void renewReader();

    const RDFFormat m_format;
    const std::string m_blankPrefix;
    StatementSink& m_sink;
    SerdEnvPointer m_environment;
    SerdReaderPointer m_reader;
    size_t m_bytesSinceRenewal;

    // The current line, and what follows it.
    uint64_t m_line;
    char* m_lineStart;
    char* m_lineEnd; // one past its line end; where the NUL is while the parser reads
    char m_byteAtNUL; // what was there
    char* m_readEnd; // no line is entered that ends after it
    uint64_t m_statementsOfLine; // passed to the sink
    uint64_t m_statementsToSkip; // were passed before
    bool m_hasError;
    bool m_isStopped;
    SyntaxError m_error;
    std::exception_ptr m_exception;
};

}
