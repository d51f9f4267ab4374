#include "numdict/import/LiteralCollector.h"

#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "numdict/console/Trim.h"
#include "numdict/literals/LiteralDescription.h"
#include "numdict/literals/TurtleText.h"

#include <span>
#include <utility>

namespace kavix::numdict {

namespace {

constexpr size_t REJECTED_TEXT_SIZE = 64 * 1024;

constexpr uint64_t PUBLISHING_INTERVAL = 4096;

/// The white space that --trim ignores.
constexpr std::string_view WHITE_SPACE(" \t\r\n");

}

LiteralCollector::LiteralCollector(
    const Dictionary& dictionary, Transaction& transaction, const Options& options, ImportCounts& counts,
    ImportProgress& progress, RejectedStatements* rejectedStatements, std::atomic<bool>& shouldStop) :
    m_dictionary(dictionary),
    m_transaction(transaction),
    m_options(options),
    m_counts(counts),
    m_progress(progress),
    m_rejectedStatements(rejectedStatements),
    m_shouldStop(shouldStop),
    m_fileIndex(0),
    m_unpublishedLiterals(0),
    m_firstRejectedLine(0),
    m_numberOfValues(0),
    m_values(BATCH_SIZE),
    m_resourceIDs(BATCH_SIZE),
    m_areNonCanonical(BATCH_SIZE) { }

LiteralCollector::~LiteralCollector() = default;

void LiteralCollector::startFile(size_t fileIndex) {
    m_statementWriter.reset();
    m_fileIndex = fileIndex;
}

void LiteralCollector::flush() {
    m_progress.m_literals.fetch_add(m_unpublishedLiterals, std::memory_order_relaxed);
    m_unpublishedLiterals = 0;
    handOverRejectedStatements(); // first: these are kept even if the values cannot be entered
    enterValues();
}

void LiteralCollector::enterValues() {
    const size_t numberOfValues = std::exchange(m_numberOfValues, 0);
    try {
        m_transaction.resolve(std::span<const ResourceValue>(m_values.data(), numberOfValues), m_resourceIDs.data());
    }
    catch (...) {
        takeBackCounts(numberOfValues);
        throw;
    }
}

void LiteralCollector::takeBackCounts(size_t numberOfValues) {
    // Values are entered in their order up to the first that fails. That one is absent: present values do not fail.
    size_t index = 0;
    while (index != numberOfValues && m_dictionary.tryResolve(m_values[index]) != 0)
        ++index;
    for (; index != numberOfValues; ++index) {
        DatatypeCounts& counts = m_counts.m_datatypes[m_values[index].datatypeID];
        --counts.m_accepted;
        counts.m_nonCanonical -= m_areNonCanonical[index];
    }
}

void LiteralCollector::handOverRejectedStatements() {
    if (m_statementWriter && !m_statementWriter->getText().empty()) {
        m_rejectedStatements->append(m_fileIndex, m_firstRejectedLine, m_statementWriter->getText());
        m_statementWriter->getText().clear();
    }
}

bool LiteralCollector::receive(const Statement& statement, const StatementContext& context) {
    // Relaxed: the reason is recorded elsewhere; a few more statements do no harm.
    if (m_shouldStop.load(std::memory_order_relaxed))
        return false;
    ++m_counts.m_files[m_fileIndex].m_statements;
    if (!statement.hasTypedLiteral())
        return true;
    const uint8_t datatypeID = findNumericDatatype(statement.m_datatypeIRI);
    if (datatypeID == D_NONE)
        return true;
    DatatypeCounts& counts = m_counts.m_datatypes[datatypeID];
    ++counts.m_literals;
    if (++m_unpublishedLiterals == PUBLISHING_INTERVAL) {
        m_progress.m_literals.fetch_add(m_unpublishedLiterals, std::memory_order_relaxed);
        m_unpublishedLiterals = 0;
    }
    const std::string_view writtenForm = statement.getLexicalForm();
    const std::string_view lexicalForm = m_options.m_isTrimming ? trim(writtenForm, WHITE_SPACE) : writtenForm;
    ResourceValue& value = m_values[m_numberOfValues];
    const LexicalFormStatus status = tryParseNumericValue(datatypeID, lexicalForm.data(), lexicalForm.size(), value);
    if (status != LexicalFormStatus::VALID)
        return reject(statement, context, datatypeID, status, lexicalForm);
    const bool isCanonical = lexicalForm.size() == writtenForm.size() && isCanonicalTurtleForm(datatypeID, lexicalForm);
    ++counts.m_accepted;
    counts.m_nonCanonical += !isCanonical;
    m_areNonCanonical[m_numberOfValues] = !isCanonical;
    if (++m_numberOfValues == BATCH_SIZE)
        enterValues();
    return true;
}

bool LiteralCollector::reject(
    const Statement& statement, const StatementContext& context, uint8_t datatypeID, LexicalFormStatus reason,
    std::string_view lexicalForm) {
    if (m_options.m_isStrict)
        enterValues(); // what comes before may reach a limit, and then this literal is not reached
    ++m_counts.m_datatypes[datatypeID].m_rejected[reason];
    const uint64_t line = context.getLine();
    if (m_counts.m_examples.wants(datatypeID, reason, m_fileIndex, line)) {
        m_counts.m_examples.add(RejectedExample{
            m_fileIndex, line, makeTurtleString(statement.getLexicalForm()) + "^^" + getDatatypeName(datatypeID),
            datatypeID, reason, getRejectionMessage(datatypeID, lexicalForm)});
    }
    if (m_rejectedStatements != nullptr) {
        if (!m_statementWriter)
            m_statementWriter.emplace(context.getEnvironment());
        if (m_statementWriter->getText().empty())
            m_firstRejectedLine = line;
        m_statementWriter->write(statement);
        if (m_statementWriter->getText().size() > REJECTED_TEXT_SIZE)
            handOverRejectedStatements();
    }
    if (m_options.m_isStrict)
        m_shouldStop.store(true, std::memory_order_relaxed);
    return !m_options.m_isStrict;
}

}
