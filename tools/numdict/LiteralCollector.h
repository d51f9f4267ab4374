#pragma once

#include "numdict/ImportProgress.h"
#include "numdict/ImportReport.h"
#include "numdict/RejectedStatements.h"
#include "numdict/Statement.h"
#include "numdict/StatementWriter.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kavix {

class Transaction;

}

namespace kavix::numdict {

/// Enters the numeric literals among the statements that a worker reads into the dictionary, and counts what it meets.
/// Belongs to one worker; what workers share is the transaction, the progress, the flag and the rejected statements.
class LiteralCollector final : public StatementSink, private Unmovable {

public:

    struct Options {
        bool m_isTrimming = false; // white space around a lexical form is ignored
        bool m_isStrict = false;   // the first rejected literal ends the import
    };

    /// @param rejectedStatements  null where they are not wanted
    /// @param shouldStop          set by anyone to end the import; read at every statement
    LiteralCollector(Transaction& transaction, const Options& options, ImportCounts& counts, ImportProgress& progress, RejectedStatements* rejectedStatements, std::atomic<bool>& shouldStop);

    ~LiteralCollector();

    /// What is received from now on is in this file, read by another reader than before.
    void startFile(size_t fileIndex);

    /// Hands over what was kept back of progress and rejected statements. Called at the end of each block and file.
    void flush();

    bool receive(const Statement& statement, const StatementContext& context) override;

private:

    bool reject(const Statement& statement, const StatementContext& context, size_t datatype, Rejection rejection, std::string_view lexicalForm);

    Transaction& m_transaction;
    const Options m_options;
    ImportCounts& m_counts;
    ImportProgress& m_progress;
    RejectedStatements* const m_rejectedStatements;
    std::atomic<bool>& m_shouldStop;
    size_t m_fileIndex;
    uint64_t m_unpublishedLiterals;
    std::optional<StatementWriter> m_statementWriter; // of the present file, once it has a rejected literal
    uint64_t m_firstRejectedLine;                     // of the text in the writer

};

}
