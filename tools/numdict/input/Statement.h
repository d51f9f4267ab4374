#pragma once

#include <serd/serd.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// Where a file breaks the rules of its syntax; line and column from 1, columns in bytes.
struct SyntaxError {
    uint64_t m_line;
    uint64_t m_column;
    std::string m_message;
};

/// The context of a statement: asked only if it matters, since finding a line number costs time.
class StatementContext {

public:

    /// The line in which the object of the current statement ends, from 1.
    virtual uint64_t getLine() const = 0;

    /// The prefixes and the base IRI in force.
    virtual SerdEnv* getEnvironment() const = 0;

protected:

    ~StatementContext() = default;
};

/// A statement as it was read; everything is valid only during the call that passes it. Absent nodes are null.
struct Statement {
    const SerdNode* m_graph;
    const SerdNode* m_subject;
    const SerdNode* m_predicate;
    const SerdNode* m_object;
    const SerdNode* m_datatype;
    const SerdNode* m_language;
    std::string_view m_datatypeIRI; // expanded; empty if there is no datatype

    /// Whether the object is a literal with a datatype.
    bool hasTypedLiteral() const noexcept { return m_object->type == SERD_LITERAL && !m_datatypeIRI.empty(); }

    /// The lexical form of the object, which is a literal.
    std::string_view getLexicalForm() const noexcept {
        return std::string_view(reinterpret_cast<const char*>(m_object->buf), m_object->n_bytes);
    }
};

/// Takes the statements of a file in their order.
class StatementSink {

public:

    /// Returns whether to continue reading. Its exceptions pass through the reader.
    virtual bool receive(const Statement& statement, const StatementContext& context) = 0;

protected:

    ~StatementSink() = default;
};

}
