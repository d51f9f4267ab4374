#include "numdict/import/Import.h"

#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/platform/system/HugePages.h"
#include "numdict/console/Failures.h"
#include "numdict/input/ByteSource.h"
#include "numdict/input/LineReader.h"
#include "numdict/input/SerdHandles.h"
#include "numdict/input/TurtleReader.h"
#include "numdict/stores/Limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <numeric>
#include <system_error>
#include <thread>
#include <utility>

namespace kavix::numdict {

namespace {

/// Labels of blank nodes mean something in their own file only.
std::string makeBlankPrefix(size_t fileIndex) {
    return fmt::format("f{}_", fileIndex + 1);
}

}

struct Import::OpenLineFile {

    OpenLineFile(size_t fileIndex, const std::string& path, ImportProgress& progress, size_t blockSize) :
        m_fileIndex(fileIndex),
        m_blocks(path, progress.m_fileBytesRead, blockSize) { }

    const size_t m_fileIndex;
    LineBlocks m_blocks;
};

Import::Import(Dictionary& dictionary, ImportOptions options, ImportProgress& progress) :
    m_dictionary(dictionary),
    m_options(std::move(options)),
    m_progress(progress),
    m_shouldStop(false),
    m_fileOrder(m_options.m_files.size()),
    m_nextFile(0) {
    if (!m_options.m_rejectedPath.empty())
        m_rejectedStatements = std::make_unique<RejectedStatements>(m_options.m_rejectedPath);
    orderFiles();
}

Import::~Import() = default;

void Import::orderFiles() {
    std::vector<uint64_t> sizes;
    bool areSizesKnown = true;
    uint64_t totalSize = 0;
    for (const InputFile& file : m_options.m_files) {
        std::error_code error;
        const bool isRegular = file.m_path != "-" && std::filesystem::is_regular_file(file.m_path, error);
        const uint64_t size = isRegular ? std::filesystem::file_size(file.m_path, error) : 0;
        areSizesKnown = areSizesKnown && isRegular && !error;
        totalSize += size;
        sizes.push_back(isRegular ? size : UINT64_MAX); // it is unknown how much a pipe will bring
    }
    m_progress.m_totalFileBytes = areSizesKnown ? totalSize : 0;
    std::iota(m_fileOrder.begin(), m_fileOrder.end(), size_t(0));
    std::stable_sort(m_fileOrder.begin(), m_fileOrder.end(), [&](size_t first, size_t second) {
        return sizes[first] > sizes[second];
    });
}

Import::Work Import::takeWork() {
    std::lock_guard<std::mutex> lock(m_mutex);
    Work work;
    if (m_nextFile != m_fileOrder.size()) {
        const size_t fileIndex = m_fileOrder[m_nextFile++];
        const InputFile& file = m_options.m_files[fileIndex];
        if (!isLineFormat(file.m_format)) {
            work.m_fileIndex = fileIndex;
            return work;
        }
        m_lineFiles.push_back(
            std::make_unique<OpenLineFile>(fileIndex, file.m_path, m_progress, m_options.m_blockSize));
        work.m_lineFile = m_lineFiles.back().get();
        return work;
    }
    for (const std::unique_ptr<OpenLineFile>& lineFile : m_lineFiles)
        if (lineFile->m_blocks.mayHaveMore())
            work.m_lineFile = lineFile.get();
    return work;
}

void Import::stopAll(std::exception_ptr reason) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_failure)
        m_failure = std::move(reason);
    m_shouldStop.store(true, std::memory_order_relaxed);
}

void Import::runWorker(Transaction& transaction, ImportCounts& counts) {
    try {
        LiteralCollector collector(
            m_dictionary, transaction, m_options.m_collectorOptions, counts, m_progress, m_rejectedStatements.get(),
            m_shouldStop);
        LineBlock block;
        while (!m_shouldStop.load(std::memory_order_relaxed)) {
            const Work work = takeWork();
            if (work.m_fileIndex)
                readTurtleFile(*work.m_fileIndex, collector, counts);
            else if (work.m_lineFile != nullptr)
                readLineBlocks(*work.m_lineFile, collector, counts, block);
            else
                break;
            collector.flush();
        }
    }
    catch (...) {
        stopAll(std::current_exception());
    }
}

void Import::readTurtleFile(size_t fileIndex, LiteralCollector& collector, ImportCounts& counts) {
    const InputFile& file = m_options.m_files[fileIndex];
    FileCounts& fileCounts = counts.m_files[fileIndex];
    collector.startFile(fileIndex);
    try {
        ByteSource source(file.m_path, m_progress.m_fileBytesRead);
        TurtleReader reader(source, file.m_format, makeBaseIRI(file.m_path), makeBlankPrefix(fileIndex), collector);
        std::optional<SyntaxError> error;
        try {
            error = reader.read();
        }
        catch (const InputFailure& failure) {
            fileCounts.addError(FileError{failure.getLine(), 0, failure.what()});
        }
        fileCounts.m_bytes = reader.getNumberOfBytes();
        if (error)
            fileCounts.addError(FileError{error->m_line, error->m_column, std::move(error->m_message)});
        collector.flush(); // before the reader goes: the collector writes with its prefixes
    }
    catch (const InputFailure& failure) {
        fileCounts.addError(FileError{failure.getLine(), 0, failure.what()});
    }
    collector.startFile(fileIndex);
    if (fileCounts.m_error && m_options.m_collectorOptions.m_isStrict)
        m_shouldStop.store(true, std::memory_order_relaxed);
}

void Import::readLineBlocks(
    OpenLineFile& lineFile, LiteralCollector& collector, ImportCounts& counts, LineBlock& block) {
    const size_t fileIndex = lineFile.m_fileIndex;
    const InputFile& file = m_options.m_files[fileIndex];
    FileCounts& fileCounts = counts.m_files[fileIndex];
    const bool isStrict = m_options.m_collectorOptions.m_isStrict;
    collector.startFile(fileIndex);
    LineReader reader(file.m_format, makeBaseIRI(file.m_path), makeBlankPrefix(fileIndex), collector);
    try {
        while (!m_shouldStop.load(std::memory_order_relaxed) && lineFile.m_blocks.next(block)) {
            fileCounts.m_bytes += block.m_length;
            LineBlockResult result = reader.read(block, isStrict);
            fileCounts.m_damagedLines += result.m_damagedLines;
            if (result.m_firstError) {
                fileCounts.addError(FileError{
                    result.m_firstError->m_line, result.m_firstError->m_column,
                    std::move(result.m_firstError->m_message)});
                if (isStrict)
                    m_shouldStop.store(true, std::memory_order_relaxed);
            }
            collector.flush();
        }
    }
    catch (const InputFailure& failure) {
        fileCounts.addError(FileError{failure.getLine(), 0, failure.what()});
        if (isStrict)
            m_shouldStop.store(true, std::memory_order_relaxed);
    }
    collector.startFile(fileIndex); // the reader's prefixes go with it
}

ImportCounts Import::runWorkers(Transaction& transaction) {
    std::vector<ImportCounts> countsOfWorkers(m_options.m_numberOfThreads, ImportCounts(m_options.m_files.size()));
    {
        std::vector<std::jthread> threads;
        try {
            for (unsigned index = 1; index < m_options.m_numberOfThreads; ++index)
                threads.emplace_back(
                    [this, &transaction, &counts = countsOfWorkers[index]] { runWorker(transaction, counts); });
        }
        catch (const std::system_error&) {
            stopAll(std::make_exception_ptr(SystemFailure(fmt::format(
                "the system refused thread {} of {}: use fewer --threads", threads.size() + 2,
                m_options.m_numberOfThreads))));
        }
        runWorker(transaction, countsOfWorkers[0]);
    }
    for (size_t index = 1; index < countsOfWorkers.size(); ++index)
        countsOfWorkers[0].add(std::move(countsOfWorkers[index]));
    return std::move(countsOfWorkers[0]);
}

std::optional<std::string> Import::getLimitMessage() const {
    if (!m_failure)
        return std::nullopt;
    try {
        std::rethrow_exception(m_failure);
    }
    catch (const std::exception& failure) {
        std::optional<std::string> message = tryExplainLimit(failure);
        if (!message)
            throw;
        return message;
    }
}

ImportReport Import::run() {
    const auto start = std::chrono::steady_clock::now();
    Transaction transaction(m_dictionary);
    ImportCounts counts = runWorkers(transaction);
    const std::optional<std::string> limitMessage = getLimitMessage();
    transaction.commit();
    ImportReport report = makeReport(std::move(counts));
    report.m_limitMessage = limitMessage;
    report.m_isStoppedByStrict = m_shouldStop.load(std::memory_order_relaxed) && !m_failure;
    report.m_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return report;
}

void Import::writeRejectedStatements() {
    if (m_rejectedStatements)
        m_rejectedStatements->finish();
}

ImportReport Import::makeReport(ImportCounts&& counts) const {
    ImportReport report;
    const std::array<uint64_t, 256> distinctValues = m_dictionary.countResourcesByDatatypeID();
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS) {
        counts.m_datatypes[datatypeID].m_distinctValues = distinctValues[datatypeID];
        report.m_total.add(counts.m_datatypes[datatypeID]);
    }
    report.m_datatypes = counts.m_datatypes;
    report.m_files = std::move(counts.m_files);
    for (const InputFile& file : m_options.m_files)
        report.m_paths.push_back(file.m_path);
    for (FileCounts& file : report.m_files)
        if (file.m_error && file.m_damagedLines > 1)
            file.m_error->m_message += fmt::format(" ({} damaged lines in all were skipped)", file.m_damagedLines);
    report.m_rejectedExamples = counts.m_examples.takeAll();
    report.m_memoryBudgetBytes = m_dictionary.getMemoryBudgetBytes();
    report.m_memoryUsedBytes = m_dictionary.getUsedBytes();
    report.m_hugePageBytes = tryGetHugePageBytes();
    return report;
}

}
