#include "numdict/input/LineReader.h"

#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace kavix::numdict {

namespace {

/// The parser keeps the subjects and predicates of all statements it has read, and everything of a damaged one, until
/// it is freed. It is renewed after this many bytes, which costs nothing beside reading them.
constexpr size_t BYTES_PER_READER = 64 * 1024;

constexpr char NUL_MESSAGE[] = "NUL byte: not a text file";

bool isPrefixedName(const SerdNode* node) {
    return node != nullptr && node->type == SERD_CURIE;
}

bool isBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

/// The first byte of an IRI or a blank node.
bool startsTerm(char character) {
    return character == '<' || character == '_';
}

bool isSpace(char character) {
    return character == ' ' || character == '\t';
}

char* findLineEnd(char* line, char* end) {
    char* const lineEnd = static_cast<char*>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
    return lineEnd == nullptr ? end : lineEnd + 1;
}

}

LineReader::LineReader(RDFFormat format, const std::string& baseIRI, std::string blankPrefix, StatementSink& sink) :
    m_format(format),
    m_blankPrefix(std::move(blankPrefix)),
    m_sink(sink),
    m_environment(makeEnvironment(baseIRI)),
    m_bytesSinceRenewal(0),
    m_line(0),
    m_lineStart(nullptr),
    m_lineEnd(nullptr),
    m_byteAtNUL(0),
    m_readEnd(nullptr),
    m_statementsOfLine(0),
    m_statementsToSkip(0),
    m_hasError(false),
    m_isStopped(false),
    m_error() {
    renewReader();
}

LineReader::~LineReader() = default;

void LineReader::renewReader() {
    // N-Triples are read as N-Quads, and a graph is refused below: the parser's own N-Triples mode passes a statement
    // on before it has seen the full stop, and lets some of Turtle's abbreviations through.
    m_reader.reset(serd_reader_new(SERD_NQUADS, this, nullptr, nullptr, nullptr, onStatement, nullptr));
    if (!m_reader)
        throw std::bad_alloc();
    serd_reader_set_strict(m_reader.get(), true);
    serd_reader_set_error_sink(m_reader.get(), onError, this);
    serd_reader_add_blank_prefix(m_reader.get(), reinterpret_cast<const uint8_t*>(m_blankPrefix.c_str()));
    m_bytesSinceRenewal = 0;
}

SerdStatus LineReader::onStatement(
    void* handle, SerdStatementFlags flags, const SerdNode* graph, const SerdNode* subject, const SerdNode* predicate,
    const SerdNode* object, const SerdNode* datatype, const SerdNode* language) {
    std::string_view datatypeIRI;
    if (datatype != nullptr)
        datatypeIRI = std::string_view(reinterpret_cast<const char*>(datatype->buf), datatype->n_bytes);
    return static_cast<LineReader*>(handle)->pass(
        flags, Statement{graph, subject, predicate, object, datatype, language, datatypeIRI});
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
    if (isPrefixedName(statement.m_subject) || isPrefixedName(statement.m_predicate) ||
        isPrefixedName(statement.m_object) || isPrefixedName(statement.m_datatype) || isPrefixedName(statement.m_graph))
        return refuse("prefixed names are Turtle, not N-Triples or N-Quads");
    if (statement.m_graph != nullptr && m_format == RDFFormat::N_TRIPLES)
        return refuse("four terms in a line: this is N-Quads, not N-Triples (--format nq)");
    if (m_statementsToSkip != 0) {
        --m_statementsToSkip;
        return SERD_SUCCESS;
    }
    const bool isLineFilled = m_statementsOfLine == 0 && fillsLine(statement);
    if (m_statementsOfLine == 0 && !isLineFilled &&
        findNUL() != nullptr) // which was the end of the text for the parser
        return refuse(NUL_MESSAGE);
    try {
        m_isStopped = !m_sink.receive(statement, *this);
    }
    catch (...) {
        // The parser is written in C: an exception must not pass through it.
        m_exception = std::current_exception();
    }
    if (m_isStopped || m_exception)
        return SERD_ERR_UNKNOWN;
    ++m_statementsOfLine;
    if (isLineFilled && m_lineEnd != m_readEnd)
        tryEnterNextLine();
    return SERD_SUCCESS;
}

// The line starts with the subject, as nothing of the previous line was left over, and contains the whole statement, as
// the parser sees no more. Its bytes are those of the terms, the full stop, and others (blanks, comments, what follows
// the full stop).
//  - A term has at least as many bytes as are counted for it: escapes only make it longer.
//  - Two others come before the full stop: the first space found is one, as no IRI and no label of a blank node has
//    one, so that it is not in a subject longer than counted. The second one is another for the same reason, unless
//    the predicate starts later than counted; and then there is one more other before that.
//  - Of 4 others, at most 2 are left for what follows the full stop. It is the last byte then, as the two before it
//    are not full stops.
// So there is no NUL in the line either: it would have been the end of the text.
// This requires of the parser that it reports a byte or an escape which it replaces by more bytes (nothing is passed
// then), and that it passes a statement without having looked further than at the byte after the full stop, which is
// not the NUL's.
bool LineReader::fillsLine(const Statement& statement) const {
    const auto getTermLength = [this](const SerdNode& node) {
        return node.type == SERD_BLANK ? 2 + node.n_bytes - m_blankPrefix.size() : 2 + node.n_bytes; // _:a, <a>, "a"
    };
    const size_t subjectLength = getTermLength(*statement.m_subject);
    const size_t predicateLength = getTermLength(*statement.m_predicate);
    size_t countedLength = subjectLength + predicateLength + getTermLength(*statement.m_object) + 1;
    if (statement.m_datatype != nullptr)
        countedLength += 2 + getTermLength(*statement.m_datatype);
    if (statement.m_language != nullptr)
        countedLength += 1 + statement.m_language->n_bytes;
    if (statement.m_graph != nullptr)
        countedLength += getTermLength(*statement.m_graph);
    if (m_lineEnd[-1] != '\n')
        return false;
    const char* end = m_lineEnd - 1;
    end -= end[-1] == '\r'; // the statement has bytes before it
    constexpr size_t MAXIMUM_OTHERS =
        4; // as many as separate the terms of a quad; wraps where terms are longer than the line
    return startsTerm(*m_lineStart) && static_cast<size_t>(end - m_lineStart) - countedLength <= MAXIMUM_OTHERS &&
           isSpace(m_lineStart[subjectLength]) && isSpace(m_lineStart[subjectLength + 1 + predicateLength]) &&
           end[-1] == '.' && isSpace(end[-2]) && end[-3] != '.';
}

void LineReader::tryEnterNextLine() {
    // Other lines may be without a statement, and the parser would go through them uncounted.
    if (!startsTerm(m_byteAtNUL))
        return;
    char* const nextEnd = findLineEnd(m_lineEnd + 1, m_readEnd);
    const auto length = static_cast<size_t>(nextEnd - m_lineEnd);
    if (m_bytesSinceRenewal + length > BYTES_PER_READER)
        return;
    m_bytesSinceRenewal += length;
    removeNUL();
    m_lineStart = m_lineEnd;
    m_lineEnd = nextEnd;
    m_statementsOfLine = 0;
    ++m_line;
    setNUL();
}

const char* LineReader::findNUL() const {
    // The one after the line, if it is there, is not found.
    return static_cast<const char*>(std::memchr(m_lineStart, 0, static_cast<size_t>(m_lineEnd - m_lineStart)));
}

void LineReader::setNUL() {
    m_byteAtNUL = *m_lineEnd;
    *m_lineEnd = '\0';
}

void LineReader::removeNUL() {
    *m_lineEnd = m_byteAtNUL;
}

bool LineReader::readLines() {
    m_hasError = false;
    m_statementsOfLine = 0;
    if ((m_bytesSinceRenewal += static_cast<size_t>(m_lineEnd - m_lineStart)) > BYTES_PER_READER)
        renewReader();
    setNUL();
    const SerdStatus status = serd_reader_read_string(m_reader.get(), reinterpret_cast<const uint8_t*>(m_lineStart));
    removeNUL();
    if (status == SERD_SUCCESS && !m_hasError && m_statementsOfLine != 0)
        return true;
    if (m_exception || m_isStopped) {
        m_bytesSinceRenewal = BYTES_PER_READER;
        if (m_exception)
            std::rethrow_exception(std::exchange(m_exception, nullptr));
        return true;
    }
    return readLineAlone();
}

bool LineReader::readLineAlone() {
    if (const char* const nul = findNUL()) {
        m_error = SyntaxError{m_line, static_cast<uint64_t>(nul - m_lineStart) + 1, NUL_MESSAGE};
        m_bytesSinceRenewal = BYTES_PER_READER;
        return false;
    }
    const size_t length = static_cast<size_t>(m_lineEnd - m_lineStart) - (m_lineEnd[-1] == '\n');
    m_hasError = false;
    m_statementsToSkip = std::exchange(m_statementsOfLine, 0);
    char* const lineEnd = std::exchange(m_lineEnd, m_lineStart + length);
    char* const readEnd = std::exchange(m_readEnd, m_lineEnd); // nothing follows this line
    *m_lineEnd = '\0';
    renewReader();
    const SerdStatus status = serd_reader_read_string(m_reader.get(), reinterpret_cast<const uint8_t*>(m_lineStart));
    m_lineEnd = lineEnd;
    m_readEnd = readEnd;
    m_statementsToSkip = 0;
    m_bytesSinceRenewal = BYTES_PER_READER;
    if (m_exception)
        std::rethrow_exception(std::exchange(m_exception, nullptr));
    if (!m_hasError && (status == SERD_SUCCESS || m_isStopped))
        return true;
    if (!m_hasError)
        m_error = SyntaxError{m_line, 1, "not a statement"};
    size_t contentLength = length;
    while (contentLength != 0 && isBlank(m_lineStart[contentLength - 1]))
        --contentLength;
    if (m_error.m_column > contentLength)
        m_error.m_message = "the line ends in the middle of a statement";
    return false;
}

LineBlockResult LineReader::read(LineBlock& block, bool stopAtError) {
    LineBlockResult result;
    m_lineEnd = block.m_bytes.data();
    char* const blockEnd = m_lineEnd + block.m_length;
    m_readEnd = blockEnd;
    m_isStopped = false;
    for (m_line = block.m_firstLine; m_lineEnd != blockEnd; ++m_line) {
        m_lineStart = m_lineEnd;
        m_lineEnd = findLineEnd(m_lineStart, blockEnd);
        const char* content = m_lineStart;
        while (content != m_lineEnd && isBlank(*content))
            ++content;
        const bool mayBeEmpty = content == m_lineEnd || *content == '\n' || *content == '#';
        if (mayBeEmpty && findNUL() == nullptr)
            continue;
        const bool isGood = mayBeEmpty ? readLineAlone() : readLines();
        if (!isGood) {
            ++result.m_damagedLines;
            if (!result.m_firstError)
                result.m_firstError = std::move(m_error);
            if (stopAtError)
                break;
        }
        if (m_isStopped)
            break;
    }
    return result;
}

}
