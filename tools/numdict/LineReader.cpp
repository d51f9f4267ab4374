#include "numdict/LineReader.h"

#include <cstring>
#include <new>
#include <utility>

namespace kavix::numdict {

namespace {

/// The parser keeps the subjects and predicates of all statements it has read, and everything of a damaged one, until it
/// is freed. It is renewed after this many bytes, which costs nothing beside reading them.
constexpr size_t BYTES_PER_READER = 64 * 1024;

bool isPrefixedName(const SerdNode* node) {
    return node != nullptr && node->type == SERD_CURIE;
}

bool isBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

}

LineReader::LineReader(RDFFormat format, const std::string& baseIRI, std::string blankPrefix, StatementSink& sink) :
    m_format(format),
    m_blankPrefix(std::move(blankPrefix)),
    m_sink(sink),
    m_environment(makeEnvironment(baseIRI)),
    m_bytesSinceRenewal(0),
    m_line(0),
    m_hasError(false),
    m_isStopped(false),
    m_error()
{
    renewReader();
}

LineReader::~LineReader() = default;

void LineReader::renewReader() {
    // N-Triples are read as N-Quads, and a graph is refused below: the parser's own N-Triples mode passes a statement on
    // before it has seen the full stop, and lets some of Turtle's abbreviations through.
    m_reader.reset(serd_reader_new(SERD_NQUADS, this, nullptr, nullptr, nullptr, onStatement, nullptr));
    if (!m_reader)
        throw std::bad_alloc();
    serd_reader_set_strict(m_reader.get(), true);
    serd_reader_set_error_sink(m_reader.get(), onError, this);
    serd_reader_add_blank_prefix(m_reader.get(), reinterpret_cast<const uint8_t*>(m_blankPrefix.c_str()));
    m_bytesSinceRenewal = 0;
}

SerdStatus LineReader::onStatement(void* handle, SerdStatementFlags flags, const SerdNode* graph, const SerdNode* subject, const SerdNode* predicate, const SerdNode* object, const SerdNode* datatype, const SerdNode* language) {
    std::string_view datatypeIRI;
    if (datatype != nullptr)
        datatypeIRI = std::string_view(reinterpret_cast<const char*>(datatype->buf), datatype->n_bytes);
    return static_cast<LineReader*>(handle)->pass(flags, Statement{graph, subject, predicate, object, datatype, language, datatypeIRI});
}

SerdStatus LineReader::onError(void* handle, const SerdError* error) {
    LineReader& reader = *static_cast<LineReader*>(handle);
    // The first message is the most precise one; others follow as the parser gives up.
    if (!std::exchange(reader.m_hasError, true))
        reader.m_error = SyntaxError{reader.m_line, error->col, formatSerdError(*error)};
    return SERD_SUCCESS;
}

SerdStatus LineReader::refuse(const char* reason) {
    if (!std::exchange(m_hasError, true))
        m_error = SyntaxError{m_line, 1, reason};
    return SERD_ERR_BAD_SYNTAX;
}

SerdStatus LineReader::pass(SerdStatementFlags flags, const Statement& statement) {
    if (m_hasError || m_isStopped || m_exception)
        return SERD_ERR_UNKNOWN;
    if (flags != 0)
        return refuse("brackets are Turtle, not N-Triples or N-Quads");
    if (isPrefixedName(statement.m_subject) || isPrefixedName(statement.m_object) || isPrefixedName(statement.m_datatype))
        return refuse("prefixed names are Turtle, not N-Triples or N-Quads");
    if (statement.m_graph != nullptr && m_format == RDFFormat::N_TRIPLES)
        return refuse("four terms in a line: this is N-Quads, not N-Triples (--format nq)");
    try {
        m_isStopped = !m_sink.receive(statement, *this);
    }
    catch (...) {
        // The parser is written in C: an exception must not pass through it.
        m_exception = std::current_exception();
    }
    return m_isStopped || m_exception ? SERD_ERR_UNKNOWN : SERD_SUCCESS;
}

bool LineReader::readLine(const char* line, size_t length) {
    m_hasError = false;
    if ((m_bytesSinceRenewal += length) > BYTES_PER_READER)
        renewReader();
    const SerdStatus status = serd_reader_read_string(m_reader.get(), reinterpret_cast<const uint8_t*>(line));
    if (status == SERD_SUCCESS && !m_hasError)
        return true;
    m_bytesSinceRenewal = BYTES_PER_READER;
    if (m_exception)
        std::rethrow_exception(std::exchange(m_exception, nullptr));
    if (m_isStopped && !m_hasError)
        return true;
    if (!m_hasError)
        m_error = SyntaxError{m_line, 1, "this is no statement"};
    size_t contentLength = length;
    while (contentLength != 0 && isBlank(line[contentLength - 1]))
        --contentLength;
    if (m_error.m_column > contentLength)
        m_error.m_message = "the line ends in the middle of a statement";
    return false;
}

LineBlockResult LineReader::read(LineBlock& block, bool stopAtError) {
    LineBlockResult result;
    char* next = block.m_bytes.data();
    char* const blockEnd = next + block.m_length;
    const bool hasNUL = std::memchr(next, 0, block.m_length) != nullptr;
    m_isStopped = false;
    for (m_line = block.m_firstLine; next != blockEnd; ++m_line) {
        char* const line = next;
        char* lineEnd = static_cast<char*>(std::memchr(line, '\n', static_cast<size_t>(blockEnd - line)));
        if (lineEnd == nullptr)
            next = lineEnd = blockEnd;
        else
            next = lineEnd + 1;
        *lineEnd = '\0';
        const auto length = static_cast<size_t>(lineEnd - line);
        const char* content = line;
        while (isBlank(*content))
            ++content;
        const void* nul = hasNUL ? std::memchr(line, 0, length) : nullptr;
        if (nul == nullptr && (content == lineEnd || *content == '#'))
            continue;
        bool isGood = false;
        if (nul != nullptr)
            m_error = SyntaxError{m_line, static_cast<uint64_t>(static_cast<const char*>(nul) - line) + 1, "a NUL byte: this is no text"};
        else
            isGood = readLine(line, length);
        if (!isGood) {
            ++result.m_damagedLines;
            if (!result.m_firstError)
                result.m_firstError = std::move(m_error);
            if (stopAtError)
                break;
        }
        if (m_isStopped) {
            result.m_isStopped = true;
            break;
        }
    }
    return result;
}

}
