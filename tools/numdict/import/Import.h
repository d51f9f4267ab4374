#pragma once

#include "core/platform/system/Unmovable.h"
#include "numdict/import/ImportProgress.h"
#include "numdict/import/ImportReport.h"
#include "numdict/import/LiteralCollector.h"
#include "numdict/import/RejectedStatements.h"
#include "numdict/input/InputFiles.h"
#include "numdict/input/LineBlocks.h"

#include <atomic>
#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kavix {

class Dictionary;
class Transaction;

}

namespace kavix::numdict {

struct ImportOptions {
    std::vector<InputFile> m_files;
    unsigned m_numberOfThreads = 1;
    LiteralCollector::Options m_collectorOptions;
    std::string m_rejectedPath; // empty if the rejected statements are not wanted, "-" for standard output
    size_t m_blockSize = LineBlocks::DEFAULT_BLOCK_SIZE;
};

/// Reads files into a dictionary with several threads. Each worker takes a file that no other has, the largest first;
/// when there are none left it helps with the files in a line format that are still being read, block by block. The
/// report does not depend on the number of threads, unless the import was stopped early. Everything is entered in one
/// transaction, which is committed also when a limit was reached, and rolled back after other failures.
class Import : private Unmovable {

public:

    Import(Dictionary& dictionary, ImportOptions options, ImportProgress& progress);

    ~Import();

    /// Does the work; once. Damaged files and reached limits are in the report.
    /// @throws  any other failure, after all workers have ended
    ImportReport run();

    /// After run(): writes the rejected statements, if they are wanted; once.
    /// @throws SystemFailure, SystemCallException  writing failed
    void writeRejectedStatements();

private:

    /// A file whose blocks are handed out.
    struct OpenLineFile;

    /// What a worker does next: a whole file, or blocks of an open one, or neither.
    struct Work {
        std::optional<size_t> m_fileIndex;
        OpenLineFile* m_lineFile = nullptr;
    };

    void orderFiles();

    Work takeWork();

    /// Returns what all workers found together.
    ImportCounts runWorkers(Transaction& transaction);

    void runWorker(Transaction& transaction, ImportCounts& counts);

    void readTurtleFile(size_t fileIndex, LiteralCollector& collector, ImportCounts& counts);

    void readLineBlocks(OpenLineFile& lineFile, LiteralCollector& collector, ImportCounts& counts, LineBlock& block);

    void stopAll(std::exception_ptr reason);

    /// What to do about the limit that stopped the workers, if one did.
    /// @throws  the failure that stopped them, if it was another one
    std::optional<std::string> getLimitMessage() const;

    ImportReport makeReport(ImportCounts&& counts) const;

    Dictionary& m_dictionary;
    const ImportOptions m_options;
    ImportProgress& m_progress;
    std::unique_ptr<RejectedStatements> m_rejectedStatements;
    std::atomic<bool> m_shouldStop;
    std::mutex m_mutex;

    // Guarded by the mutex.
    std::vector<size_t> m_fileOrder;
    size_t m_nextFile;
    std::vector<std::unique_ptr<OpenLineFile>> m_lineFiles;
    std::exception_ptr m_failure; // the first one
};

}
