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

Rejection toRejection(LexicalFormStatus status) noexcept {
    switch (status) {
    case LexicalFormStatus::OUT_OF_RANGE:
        return Rejection::OUT_OF_RANGE;
    case LexicalFormStatus::BEYOND_CAPACITY:
        return Rejection::BEYOND_CAPACITY;
    default:
        return Rejection::MALFORMED;
    }
}

const char* getRejectionName(Rejection rejection) noexcept {
    switch (rejection) {
    case Rejection::MALFORMED:
        return "malformed";
    case Rejection::OUT_OF_RANGE:
        return "outOfRange";
    case Rejection::BEYOND_CAPACITY:
        break;
    }
    return "beyondCapacity";
}

const char* getRejectionPhrase(Rejection rejection) noexcept {
    switch (rejection) {
    case Rejection::MALFORMED:
        return "malformed";
    case Rejection::OUT_OF_RANGE:
        return "out of the datatype's range";
    case Rejection::BEYOND_CAPACITY:
        break;
    }
    return "beyond the 64-bit capacity";
}

void DatatypeCounts::add(const DatatypeCounts& other) noexcept {
    m_literals += other.m_literals;
    m_accepted += other.m_accepted;
    for (size_t index = 0; index < NUMBER_OF_REJECTIONS; ++index)
        m_rejected[index] += other.m_rejected[index];
    m_nonCanonical += other.m_nonCanonical;
    m_distinctValues += other.m_distinctValues;
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

bool RejectedExamples::wants(size_t datatype, Rejection rejection, size_t fileIndex, uint64_t line) const noexcept {
    const std::vector<RejectedExample>& list =
        m_lists[datatype * NUMBER_OF_REJECTIONS + static_cast<size_t>(rejection)];
    return list.size() < LIMIT || comesBefore(fileIndex, line, list.back());
}

void RejectedExamples::add(RejectedExample&& example) {
    std::vector<RejectedExample>& list = getList(example.m_datatype, example.m_rejection);
    // Behind those of the same line: the literals of a line are met in order, by one worker.
    const auto position = std::upper_bound(
        list.begin(), list.end(), example, [](const RejectedExample& first, const RejectedExample& second) {
            return comesBefore(first.m_fileIndex, first.m_line, second);
        });
    list.insert(position, std::move(example));
    if (list.size() > LIMIT)
        list.pop_back();
}

void RejectedExamples::add(RejectedExamples&& other) {
    for (std::vector<RejectedExample>& list : other.m_lists)
        for (RejectedExample& example : list)
            add(std::move(example));
}

std::vector<RejectedExample> RejectedExamples::takeAll() {
    std::vector<RejectedExample> all;
    for (std::vector<RejectedExample>& list : m_lists)
        std::move(list.begin(), list.end(), std::back_inserter(all));
    return all;
}

void ImportCounts::add(ImportCounts&& other) {
    for (size_t index = 0; index < m_datatypes.size(); ++index)
        m_datatypes[index].add(other.m_datatypes[index]);
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
