#include "numdict/input/StatementWriter.h"

#include "numdict/console/Failures.h"

#include <new>

namespace kavix::numdict {

StatementWriter::StatementWriter(SerdEnv* environment) :
    m_writer(serd_writer_new(SERD_NQUADS, SERD_STYLE_RESOLVED, environment, nullptr, onWrite, &m_text)) {
    if (!m_writer)
        throw std::bad_alloc();
}

StatementWriter::~StatementWriter() = default;

size_t StatementWriter::onWrite(const void* bytes, size_t length, void* handle) {
    try {
        static_cast<std::string*>(handle)->append(static_cast<const char*>(bytes), length);
        return length;
    }
    catch (...) {
        return 0; // out of memory; write() sees that the text lacks its line end
    }
}

void StatementWriter::write(const Statement& statement) {
    const size_t before = m_text.size();
    const SerdStatus status = serd_writer_write_statement(
        m_writer.get(), 0, statement.m_graph, statement.m_subject, statement.m_predicate, statement.m_object,
        statement.m_datatype, statement.m_language);
    if (status != SERD_SUCCESS || m_text.size() == before || m_text.back() != '\n') {
        m_text.resize(before);
        throw SystemFailure("cannot write a rejected statement as N-Quads");
    }
}

}
