#pragma once

#include "numdict/input/ByteSource.h"
#include "numdict/input/RDFFormat.h"
#include "numdict/input/SerdHandles.h"
#include "numdict/input/Statement.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kavix::numdict {

/// Reads a Turtle or TriG file from its start to its end or to its first error: after an error it is unknown what
/// belongs together. One thread uses a reader.
///
/// The parser does not report positions of statements. It is fed byte by byte, from a buffer of ours, so we always know
/// how far it has read: always one byte beyond what it has understood.
class TurtleReader final : private StatementContext {

public:

    TurtleReader(
        ByteSource& source, RDFFormat format, const std::string& baseIRI, const std::string& blankPrefix,
        StatementSink& sink);

    TurtleReader(const TurtleReader&) = delete;

    TurtleReader& operator=(const TurtleReader&) = delete;

    ~TurtleReader();

    /// Reads the file and returns its error, if it has one.
    /// @throws InputFailure  the source failed; with the line
    /// Exceptions of the sink pass through.
    std::optional<SyntaxError> read();

    /// The bytes read so far, uncompressed.
    uint64_t getNumberOfBytes() const noexcept { return m_bytesBeforeBuffer + m_end; }

private:

    struct CachedDatatype {
        std::string m_prefixedName;
        std::string m_datatypeIRI;
    };

    static size_t onRead(void* buffer, size_t size, size_t count, void* handle);

    static int onReadError(void* handle);

    static SerdStatus onError(void* handle, const SerdError* error);

    static SerdStatus onBase(void* handle, const SerdNode* iri);

    static SerdStatus onPrefix(void* handle, const SerdNode* name, const SerdNode* iri);

    static SerdStatus onStatement(
        void* handle, SerdStatementFlags flags, const SerdNode* graph, const SerdNode* subject,
        const SerdNode* predicate, const SerdNode* object, const SerdNode* datatype, const SerdNode* language);

    uint64_t getLine() const override;

    SerdEnv* getEnvironment() const override { return m_environment.get(); }

    bool hasEnded() const { return m_hasError || m_isStopped || m_exception; }

    /// Records an error at the current position unless there was one before.
    SerdStatus fail(std::string&& message);

    bool refill();

    /// Counts the lines of the buffer up to the byte that the parser looks at, which is not understood yet.
    void countLines() const;

    bool isIntegerBeforeFullStop(const SerdNode& object) const;

    bool checkPrefix(const SerdNode* node, std::string& knownPrefix);

    bool expandDatatype(const SerdNode& datatype, std::string_view& datatypeIRI);

    ByteSource& m_source;
    StatementSink& m_sink;
    SerdEnvPointer m_environment;
    SerdReaderPointer m_reader;

    // The input: the next byte to deliver, and the end of what was read into the buffer.
    std::vector<char> m_buffer;
    size_t m_next;
    size_t m_end;
    uint64_t m_bytesBeforeBuffer;
    char m_lastByteBefore; // the last one of the previous buffer
    bool m_isAtEnd;
    const char* m_stackLimit;

    // Lines before m_countedEnd in the buffer, and where the current one starts, counted from the start of the file.
    mutable size_t m_countedEnd;
    mutable uint64_t m_line;
    mutable uint64_t m_lineStart;

    std::vector<CachedDatatype> m_cachedDatatypes;
    std::string m_resolvedDatatypeIRI;
    std::array<std::string, 4> m_knownPrefixes; // of the last graph, subject, predicate and object

    bool m_hasError;
    bool m_isStopped;
    SyntaxError m_error;
    std::exception_ptr m_exception;
};

}
