#include "numdict/stores/RecordReader.h"

#include "numdict/console/Failures.h"
#include "numdict/console/ProgressDisplay.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/Trim.h"
#include "numdict/input/LineBlocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>

namespace kavix::numdict {

namespace {

bool isHeader(std::string_view line, uint64_t number) {
    return number == 1 && line.starts_with(CSV_HEADER) && trim(line.substr(CSV_HEADER.size()), LINE_BLANKS).empty();
}

}

RecordReader::RecordReader(std::string path, unsigned numberOfThreads, std::string what, bool isQuiet) :
    m_path(std::move(path)),
    m_numberOfThreads(numberOfThreads),
    m_what(std::move(what)),
    m_isQuiet(isQuiet) { }

void RecordReader::addBadRecord(uint64_t line, std::string&& message) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_numberOfBadRecords;
    const auto place =
        std::upper_bound(m_badRecords.begin(), m_badRecords.end(), line, [](uint64_t number, const BadRecord& record) {
            return number < record.m_line;
        });
    m_badRecords.insert(place, BadRecord{line, std::move(message)});
    if (m_badRecords.size() > LIMIT)
        m_badRecords.pop_back();
}

void RecordReader::readLine(std::string_view line, uint64_t number, const Consumer& consume) {
    if (trim(line, LINE_BLANKS).empty() || isHeader(line, number))
        return;
    std::variant<ResourceRecord, std::string> record = parseRecord(line);
    if (auto* message = std::get_if<std::string>(&record)) {
        addBadRecord(number, std::move(*message));
        return;
    }
    try {
        consume(std::get<ResourceRecord>(record));
    }
    catch (const RecordFailure& failure) {
        addBadRecord(number, failure.what());
    }
}

void RecordReader::readBlocks(LineBlocks& blocks, std::atomic<bool>& shouldStop, const Consumer& consume) {
    try {
        LineBlock block;
        // Relaxed: the thread that sets it has kept the reason under the mutex.
        while (!shouldStop.load(std::memory_order_relaxed) && blocks.next(block))
            block.forEachLine(
                [this, &consume](std::string_view line, uint64_t number) { readLine(line, number, consume); });
    }
    catch (const InputFailure& failure) {
        addBadRecord(failure.getLine(), failure.what());
    }
    catch (...) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_failure)
            m_failure = std::current_exception();
        shouldStop.store(true, std::memory_order_relaxed);
    }
}

void RecordReader::read(const Consumer& consume) {
    std::atomic<uint64_t> bytesRead{0};
    std::error_code error;
    const uint64_t totalBytes =
        std::filesystem::is_regular_file(m_path, error) ? std::filesystem::file_size(m_path, error) : 0;
    std::optional<ProgressDisplay> display;
    if (!m_isQuiet)
        display.emplace([&](double) {
            const uint64_t bytes = bytesRead.load(std::memory_order_relaxed); // only for showing progress
            return fmt::format("{}: {}, {}", m_what, formatSize(bytes), formatShare(bytes, totalBytes));
        });
    LineBlocks blocks(m_path, bytesRead);
    std::atomic<bool> shouldStop{false};
    {
        std::vector<std::jthread> threads;
        try {
            for (unsigned index = 1; index < m_numberOfThreads; ++index)
                threads.emplace_back([&] { readBlocks(blocks, shouldStop, consume); });
        }
        catch (const std::system_error&) {
            // Fewer threads do the same work.
        }
        readBlocks(blocks, shouldStop, consume);
    }
    if (m_failure)
        std::rethrow_exception(m_failure);
}

}
