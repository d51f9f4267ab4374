#include "numdict/import/ImportReport.h"

#include "numdict/console/Failures.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace kavix::numdict {

namespace {

bool comesBefore(size_t fileIndex, uint64_t line, const RejectedExample& example) {
    return std::tie(fileIndex, line) < std::tie(example.m_fileIndex, example.m_line);
}

}

void DatatypeCounts::add(const DatatypeCounts& other) noexcept {
    m_literals += other.m_literals;
    m_accepted += other.m_accepted;
    for (const LexicalFormStatus reason : REJECTION_REASONS)
        m_rejected[reason] += other.m_rejected[reason];
    m_nonCanonical += other.m_nonCanonical;
    m_distinctValues += other.m_distinctValues;
}

uint64_t DatatypeCounts::getRejected() const noexcept {
    uint64_t rejected = 0;
    for (const LexicalFormStatus reason : REJECTION_REASONS)
        rejected += m_rejected[reason];
    return rejected;
}

void FileCounts::addError(FileError&& error) {
    // A failure without a line, such as a file that cannot be opened, is the only one of its file.
    if (!m_error || std::tie(error.m_line, error.m_column) < std::tie(m_error->m_line, m_error->m_column))
        m_error = std::move(error);
}

void FileCounts::add(FileCounts&& other) {
    m_statements += other.m_statements;
    m_bytes += other.m_bytes;
    m_damagedLines += other.m_damagedLines;
    if (other.m_error)
        addError(std::move(*other.m_error));
}

bool RejectedExamples::wants(
    uint8_t datatypeID, LexicalFormStatus reason, size_t fileIndex, uint64_t line) const noexcept {
    const std::vector<RejectedExample>& list = m_lists[datatypeID][reason];
    return list.size() < LIMIT || comesBefore(fileIndex, line, list.back());
}

void RejectedExamples::add(RejectedExample&& example) {
    std::vector<RejectedExample>& list = m_lists[example.m_datatypeID][example.m_reason];
    // After those of the same line: the literals of a line are met in order, by one worker.
    const auto position = std::upper_bound(
        list.begin(), list.end(), example, [](const RejectedExample& first, const RejectedExample& second) {
            return comesBefore(first.m_fileIndex, first.m_line, second);
        });
    list.insert(position, std::move(example));
    if (list.size() > LIMIT)
        list.pop_back();
}

void RejectedExamples::add(RejectedExamples&& other) {
    for (RejectedExample& example : other.takeAll())
        add(std::move(example));
}

std::vector<RejectedExample> RejectedExamples::takeAll() {
    std::vector<RejectedExample> all;
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS)
        for (const LexicalFormStatus reason : REJECTION_REASONS) {
            std::vector<RejectedExample>& list = m_lists[datatypeID][reason];
            std::move(list.begin(), list.end(), std::back_inserter(all));
        }
    return all;
}

void ImportCounts::add(ImportCounts&& other) {
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS)
        m_datatypes[datatypeID].add(other.m_datatypes[datatypeID]);
    for (size_t index = 0; index < m_files.size(); ++index)
        m_files[index].add(std::move(other.m_files[index]));
    m_examples.add(std::move(other.m_examples));
}

uint64_t ImportReport::getStatements() const noexcept {
    uint64_t statements = 0;
    for (const FileCounts& file : m_files)
        statements += file.m_statements;
    return statements;
}

bool ImportReport::hasDamagedFiles() const noexcept {
    return std::any_of(m_files.begin(), m_files.end(), [](const FileCounts& file) { return file.m_error.has_value(); });
}

double ImportReport::getLiteralsPerSecond() const noexcept {
    return m_seconds > 0 ? static_cast<double>(m_total.m_literals) / m_seconds : 0;
}

int ImportReport::getExitCode() const noexcept {
    if (m_limitMessage)
        return EXIT_LIMIT_REACHED;
    return m_total.getRejected() != 0 || hasDamagedFiles() ? EXIT_DAMAGED_INPUT : EXIT_ALL_WELL;
}

}
