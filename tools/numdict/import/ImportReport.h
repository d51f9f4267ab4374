#pragma once

#include "numdict/literals/Datatypes.h"
#include "numdict/literals/RejectionReasons.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kavix::numdict {

/// What was met of one datatype.
struct DatatypeCounts {
    uint64_t m_literals = 0;
    uint64_t m_accepted = 0;
    ByReason<uint64_t> m_rejected;
    uint64_t m_nonCanonical = 0; // accepted, but the Turtle form of the value is another text
    uint64_t m_distinctValues = 0; // filled in at the end, from the dictionary

    void add(const DatatypeCounts& other) noexcept;

    uint64_t getRejected() const noexcept;
};

/// What is wrong with a file; line and column are 0 if there are none.
struct FileError {
    uint64_t m_line = 0;
    uint64_t m_column = 0;
    std::string m_message;
};

struct FileCounts {
    uint64_t m_statements = 0;
    uint64_t m_bytes = 0; // uncompressed
    uint64_t m_damagedLines = 0; // line formats only
    std::optional<FileError> m_error; // the first one

    /// Keeps the error if it comes before the one there is.
    void addError(FileError&& error);

    void add(FileCounts&& other);
};

struct RejectedExample {
    size_t m_fileIndex = 0;
    uint64_t m_line = 0;
    std::string m_literal; // as Turtle writes it
    uint8_t m_datatypeID = D_NONE;
    LexicalFormStatus m_reason = LexicalFormStatus::VALID;
    std::string m_message;
};

/// The first ten rejected literals of each datatype and reason, in the order of files and lines, which does not depend
/// on the workers.
class RejectedExamples {

public:

    static constexpr size_t LIMIT = 10;

    /// Whether an example from there would be kept: saves composing those that are not.
    bool wants(uint8_t datatypeID, LexicalFormStatus reason, size_t fileIndex, uint64_t line) const noexcept;

    void add(RejectedExample&& example);

    void add(RejectedExamples&& other);

    /// All examples by datatype, reason, file and line.
    std::vector<RejectedExample> takeAll();

private:

    ByDatatype<ByReason<std::vector<RejectedExample>>> m_lists;
};

/// What one worker found, and after adding them up, what all found.
struct ImportCounts {
    ByDatatype<DatatypeCounts> m_datatypes;
    std::vector<FileCounts> m_files;
    RejectedExamples m_examples;

    explicit ImportCounts(size_t numberOfFiles) :
        m_files(numberOfFiles) { }

    void add(ImportCounts&& other);
};

/// What became of the store that was imported into.
struct StoreOutcome {
    std::string m_path;
    bool m_isNew = false;
    bool m_isWritten = false; // false: it is unchanged
    uint64_t m_values = 0; // which it would have, if it was not written
    uint64_t m_newValues = 0;
    uint64_t m_bytes = 0; // 0 if it was not written
};

/// What an import found and took.
struct ImportReport {
    std::vector<std::string> m_paths;
    std::vector<FileCounts> m_files;
    ByDatatype<DatatypeCounts> m_datatypes;
    DatatypeCounts m_total;
    std::vector<RejectedExample> m_rejectedExamples;
    double m_seconds = 0;
    uint64_t m_memoryBudgetBytes = 0;
    uint64_t m_memoryUsedBytes = 0;
    std::optional<uint64_t> m_hugePageBytes; // of the dictionary's memory; absent if the system does not report it
    std::optional<std::string> m_limitMessage; // why the import stopped early, if a limit was reached
    bool m_isStoppedByStrict = false;
    std::optional<StoreOutcome> m_store;

    uint64_t getStatements() const noexcept;

    bool hasDamagedFiles() const noexcept;

    double getLiteralsPerSecond() const noexcept;

    /// One of EXIT_ALL_WELL, EXIT_DAMAGED_INPUT, EXIT_LIMIT_REACHED.
    int getExitCode() const noexcept;
};

}
