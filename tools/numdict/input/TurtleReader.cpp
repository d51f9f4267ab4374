#include "numdict/input/TurtleReader.h"

#include "numdict/console/Failures.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace kavix::numdict {

namespace {

constexpr size_t BUFFER_SIZE = 256 * 1024;

/// The parser recurses into nested brackets. It is stopped in time by the file, not by the end of the stack.
constexpr size_t MAXIMUM_STACK_BYTES = size_t(2) << 20;

constexpr size_t MAXIMUM_CACHED_DATATYPES = 32;

const SerdNode INTEGER_DATATYPE =
    serd_node_from_string(SERD_URI, reinterpret_cast<const uint8_t*>("http://www.w3.org/2001/XMLSchema#integer"));

std::string_view toText(const SerdNode& node) {
    return std::string_view(reinterpret_cast<const char*>(node.buf), node.n_bytes);
}

}

TurtleReader::TurtleReader(
    ByteSource& source, RDFFormat format, const std::string& baseIRI, const std::string& blankPrefix,
    StatementSink& sink) :
    m_source(source),
    m_sink(sink),
    m_environment(makeEnvironment(baseIRI)),
    m_reader(serd_reader_new(
        format == RDFFormat::TRIG ? SERD_TRIG : SERD_TURTLE, this, nullptr, onBase, onPrefix, onStatement, nullptr)),
    m_buffer(BUFFER_SIZE),
    m_next(0),
    m_end(0),
    m_bytesBeforeBuffer(0),
    m_lastByteBefore(0),
    m_isAtEnd(false),
    m_stackLimit(nullptr),
    m_countedEnd(0),
    m_line(1),
    m_lineStart(0),
    m_hasError(false),
    m_isStopped(false),
    m_error() {
    if (!m_reader)
        throw std::bad_alloc();
    serd_reader_set_strict(m_reader.get(), true);
    serd_reader_set_error_sink(m_reader.get(), onError, this);
    serd_reader_add_blank_prefix(m_reader.get(), reinterpret_cast<const uint8_t*>(blankPrefix.c_str()));
}

TurtleReader::~TurtleReader() = default;

std::optional<SyntaxError> TurtleReader::read() {
    m_stackLimit = static_cast<const char*>(__builtin_frame_address(0)) - MAXIMUM_STACK_BYTES;
    serd_reader_start_source_stream(m_reader.get(), onRead, onReadError, this, nullptr, 1);
    SerdStatus status = SERD_SUCCESS;
    // The parser forgets some errors when it leaves nested brackets, so what it reported counts, not what it returns.
    while (status == SERD_SUCCESS && !hasEnded())
        status = serd_reader_read_chunk(m_reader.get());
    serd_reader_end_stream(m_reader.get());
    if (m_exception)
        std::rethrow_exception(m_exception);
    if (m_isStopped)
        return std::nullopt;
    if (!m_hasError && (status > SERD_FAILURE || !m_isAtEnd))
        fail("not a statement");
    if (m_hasError)
        return m_error;
    return std::nullopt;
}

size_t TurtleReader::onRead(void* buffer, size_t, size_t, void* handle) {
    TurtleReader& reader = *static_cast<TurtleReader*>(handle);
    auto& byte = *static_cast<unsigned char*>(buffer);
    byte = 0;
    // After a failure the file ends for the parser, so that it comes back to us.
    if (reader.hasEnded() || (reader.m_next == reader.m_end && !reader.refill())) {
        reader.m_isAtEnd = true;
        return 0;
    }
    byte = static_cast<unsigned char>(reader.m_buffer[reader.m_next++]);
    if (byte == 0) {
        reader.fail("NUL byte: not a text file");
        return 0;
    }
    if (static_cast<const char*>(__builtin_frame_address(0)) < reader.m_stackLimit) {
        reader.fail("brackets are nested too deeply");
        return 0;
    }
    return 1;
}

int TurtleReader::onReadError(void* handle) {
    return static_cast<TurtleReader*>(handle)->hasEnded() ? 1 : 0;
}

bool TurtleReader::refill() {
    if (m_isAtEnd)
        return false;
    m_isAtEnd = true; // the next byte of the parser is past everything in the buffer
    countLines();
    m_isAtEnd = false;
    if (m_end != 0)
        m_lastByteBefore = m_buffer[m_end - 1];
    m_bytesBeforeBuffer += m_end;
    m_next = m_end = m_countedEnd = 0;
    try {
        m_end = m_source.read(m_buffer.data(), m_buffer.size());
    }
    catch (const InputFailure& failure) {
        m_exception = std::make_exception_ptr(InputFailure(failure.what(), m_line));
    }
    catch (...) {
        m_exception = std::current_exception();
    }
    return m_end != 0;
}

void TurtleReader::countLines() const {
    const size_t understoodEnd = m_isAtEnd || m_next == 0 ? m_next : m_next - 1;
    while (m_countedEnd < understoodEnd) {
        const void* lineEnd = std::memchr(m_buffer.data() + m_countedEnd, '\n', understoodEnd - m_countedEnd);
        if (lineEnd == nullptr)
            break;
        m_countedEnd = static_cast<size_t>(static_cast<const char*>(lineEnd) - m_buffer.data()) + 1;
        ++m_line;
        m_lineStart = m_bytesBeforeBuffer + m_countedEnd;
    }
    m_countedEnd = std::max(m_countedEnd, understoodEnd);
}

uint64_t TurtleReader::getLine() const {
    countLines();
    return m_line;
}

SerdStatus TurtleReader::fail(std::string&& message) {
    if (!hasEnded()) {
        countLines();
        const uint64_t offset = m_bytesBeforeBuffer + m_next - (m_isAtEnd || m_next == 0 ? 0 : 1);
        m_error = SyntaxError{m_line, offset - m_lineStart + 1, std::move(message)};
        m_hasError = true;
    }
    return SERD_ERR_BAD_SYNTAX;
}

SerdStatus TurtleReader::onError(void* handle, const SerdError* error) {
    TurtleReader& reader = *static_cast<TurtleReader*>(handle);
    reader.fail(reader.m_isAtEnd ? "the file ends in the middle of a statement" : formatSerdError(*error));
    return SERD_SUCCESS;
}

SerdStatus TurtleReader::onBase(void* handle, const SerdNode* iri) {
    TurtleReader& reader = *static_cast<TurtleReader*>(handle);
    return serd_env_set_base_uri(reader.m_environment.get(), iri);
}

SerdStatus TurtleReader::onPrefix(void* handle, const SerdNode* name, const SerdNode* iri) {
    TurtleReader& reader = *static_cast<TurtleReader*>(handle);
    reader.m_cachedDatatypes.clear();
    return serd_env_set_prefix(reader.m_environment.get(), name, iri);
}

bool TurtleReader::checkPrefix(const SerdNode* node, std::string& knownPrefix) {
    if (node == nullptr || node->type != SERD_CURIE)
        return true;
    const std::string_view name = toText(*node);
    const std::string_view prefix = name.substr(0, name.find(':') + 1);
    if (prefix == knownPrefix)
        return true;
    SerdChunk first;
    SerdChunk second;
    if (serd_env_expand(m_environment.get(), node, &first, &second) != SERD_SUCCESS) {
        fail("the prefix '" + std::string(prefix) + "' is not declared");
        return false;
    }
    knownPrefix = prefix;
    return true;
}

bool TurtleReader::expandDatatype(const SerdNode& datatype, std::string_view& datatypeIRI) {
    datatypeIRI = toText(datatype);
    if (datatype.type == SERD_URI && serd_uri_string_has_scheme(datatype.buf))
        return true;
    if (datatype.type == SERD_CURIE)
        for (const CachedDatatype& cached : m_cachedDatatypes)
            if (cached.m_prefixedName == datatypeIRI) {
                datatypeIRI = cached.m_datatypeIRI;
                return true;
            }
    SerdNode expanded = serd_env_expand_node(m_environment.get(), &datatype);
    if (expanded.buf == nullptr) {
        fail("the prefix of the datatype '" + std::string(datatypeIRI) + "' is not declared");
        return false;
    }
    m_resolvedDatatypeIRI = toText(expanded);
    serd_node_free(&expanded);
    if (datatype.type == SERD_CURIE && m_cachedDatatypes.size() < MAXIMUM_CACHED_DATATYPES)
        m_cachedDatatypes.push_back(CachedDatatype{std::string(datatypeIRI), m_resolvedDatatypeIRI});
    datatypeIRI = m_resolvedDatatypeIRI;
    return true;
}

bool TurtleReader::isIntegerBeforeFullStop(const SerdNode& object) const {
    // The parser passes on the 5 of "5." without a datatype, as it would "5": but there it has not eaten the full stop.
    const size_t eaten = m_next - (m_isAtEnd ? 0 : 1);
    const char lastEaten = eaten != 0 ? m_buffer[eaten - 1] : m_lastByteBefore;
    const std::string_view text = toText(object);
    return lastEaten == '.' && !text.empty() &&
           text.find_first_not_of("0123456789", text[0] == '+' || text[0] == '-' ? 1 : 0) == std::string_view::npos;
}

SerdStatus TurtleReader::onStatement(
    void* handle, SerdStatementFlags, const SerdNode* graph, const SerdNode* subject, const SerdNode* predicate,
    const SerdNode* object, const SerdNode* datatype, const SerdNode* language) {
    TurtleReader& reader = *static_cast<TurtleReader*>(handle);
    if (reader.hasEnded())
        return SERD_ERR_UNKNOWN;
    if (object->type == SERD_LITERAL && datatype == nullptr && language == nullptr &&
        reader.isIntegerBeforeFullStop(*object))
        datatype = &INTEGER_DATATYPE;
    try {
        if (!reader.checkPrefix(graph, reader.m_knownPrefixes[0]) ||
            !reader.checkPrefix(subject, reader.m_knownPrefixes[1]) ||
            !reader.checkPrefix(predicate, reader.m_knownPrefixes[2]) ||
            !reader.checkPrefix(object, reader.m_knownPrefixes[3]))
            return SERD_ERR_BAD_CURIE;
        std::string_view datatypeIRI;
        if (datatype != nullptr && !reader.expandDatatype(*datatype, datatypeIRI))
            return SERD_ERR_BAD_CURIE;
        reader.m_isStopped = !reader.m_sink.receive(
            Statement{graph, subject, predicate, object, datatype, language, datatypeIRI}, reader);
    }
    catch (...) {
        // The parser is written in C: an exception must not pass through it.
        reader.m_exception = std::current_exception();
    }
    return reader.hasEnded() ? SERD_ERR_UNKNOWN : SERD_SUCCESS;
}

}
