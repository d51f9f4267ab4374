#pragma once

#include "core/data-store/dictionary/ResourceValue.h"
#include "core/platform/system/Unmovable.h"
#include "numdict/import/ImportProgress.h"
#include "numdict/import/ImportReport.h"
#include "numdict/import/RejectedStatements.h"
#include "numdict/input/Statement.h"
#include "numdict/input/StatementWriter.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace kavix {

class Dictionary;
class Transaction;

}

namespace kavix::numdict {

/// Enters the numeric literals among the statements that a worker reads into the dictionary, and counts what it meets.
/// Belongs to one worker; what workers share is the transaction, the progress, the flag and the rejected statements.
///
/// Values are entered in their order, in batches: when a batch is full, at flush(), and before a rejected literal ends
/// the import. They are counted as accepted when they are read. If a batch fails, which is how a used up budget shows,
/// those that were not entered are no longer counted, and nothing of the batch is left.
class LiteralCollector final : public StatementSink, private Unmovable {

public:

    struct Options {
        bool m_isTrimming = false; // white space around a lexical form is ignored
        bool m_isStrict = false; // the first rejected literal ends the import
    };

    /// @param rejectedStatements  null if they are not wanted
    /// @param shouldStop          set by anyone to end the import; read at every statement
    LiteralCollector(
        const Dictionary& dictionary, Transaction& transaction, const Options& options, ImportCounts& counts,
        ImportProgress& progress, RejectedStatements* rejectedStatements, std::atomic<bool>& shouldStop);

    ~LiteralCollector();

    /// What is received from now on is in this file, read by another reader than before.
    void startFile(size_t fileIndex);

    /// Enters the values and hands over the progress and the rejected statements that were kept back. Called at the end
    /// of each block and file, also when the import is being stopped.
    /// @throws KavixException  a limit was reached; see above
    void flush();

    /// @throws KavixException  a limit was reached, perhaps by an earlier literal of this file
    bool receive(const Statement& statement, const StatementContext& context) override;

private:

    static constexpr size_t BATCH_SIZE = 1024;

    void enterValues();

    /// No longer counts as accepted what was not entered of a batch that failed.
    void takeBackCounts(size_t numberOfValues);

    void handOverRejectedStatements();

    bool reject(
        const Statement& statement, const StatementContext& context, uint8_t datatypeID, LexicalFormStatus reason,
        std::string_view lexicalForm);

    const Dictionary& m_dictionary;
    Transaction& m_transaction;
    const Options m_options;
    ImportCounts& m_counts;
    ImportProgress& m_progress;
    RejectedStatements* const m_rejectedStatements;
    std::atomic<bool>& m_shouldStop;
    size_t m_fileIndex;
    uint64_t m_unpublishedLiterals;
    std::optional<StatementWriter> m_statementWriter; // of the current file, once it has a rejected literal
    uint64_t m_firstRejectedLine; // of the text in the writer

    // The batch; the vectors have BATCH_SIZE elements.
    size_t m_numberOfValues;
    std::vector<ResourceValue> m_values;
    std::vector<uint64_t> m_resourceIDs; // where the transaction writes the IDs, which are not needed
    std::vector<uint8_t> m_areNonCanonical; // 1 if a value was spelt differently from how it is printed
};

}
