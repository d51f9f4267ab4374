#include "numdict/bench/Benchmark.h"
#include "numdict/console/JSON.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace kavix::numdict {

namespace {

constexpr double MEGABYTE = 1e6;

/// Up to here the parser has at least two thirds of the time.
constexpr double LITTLE_MORE_THAN_READING = 1.5;

double getImportPerReading(const ThreadBenchmark& results) {
    const double reading = results.m_reading.getMedian();
    return reading > 0 ? results.m_import.getMedian() / reading : 0;
}

std::string formatThreads(unsigned numberOfThreads) {
    return numberOfThreads == 1 ? "1 thread" : fmt::format("{} threads", numberOfThreads);
}

std::string formatRate(const Timing& timing, uint64_t count) {
    return formatCount(static_cast<uint64_t>(timing.getPerSecond(count)));
}

std::string formatMegabytes(const Timing& timing, uint64_t numberOfBytes) {
    return fmt::format("{:.1f}", timing.getPerSecond(numberOfBytes) / MEGABYTE);
}

std::string formatInput(const BenchmarkReport& report) {
    const auto numberOfFiles = static_cast<uint64_t>(std::count_if(
        report.m_files.begin(), report.m_files.end(), [](const BenchmarkFile& file) { return !file.m_isLeftOut; }));
    std::string text = fmt::format(
        "{} {}, {:.1f} MB, {} statements; {} numeric literals, {} of them accepted, {} distinct values\n",
        formatCount(numberOfFiles), numberOfFiles == 1 ? "file" : "files",
        static_cast<double>(report.m_bytes) / MEGABYTE, formatCount(report.m_statements),
        formatCount(report.m_literals), formatCount(report.m_accepted), formatCount(report.m_distinctValues));
    for (const BenchmarkFile& file : report.m_files)
        if (!file.m_error.empty())
            text += fmt::format(
                "  {}: {}{}\n", file.m_path, file.m_error, file.m_isLeftOut ? "; the file was left out" : "");
    return text;
}

std::string formatImport(const BenchmarkReport& report) {
    TextTable table;
    table.addRow({"threads", "reading", "MB/s", "import", "MB/s", "literals/s", "import/reading"});
    for (const ThreadBenchmark& results : report.m_threads)
        table.addRow(
            {std::to_string(results.m_numberOfThreads), formatDuration(results.m_reading.getMedian()),
             formatMegabytes(results.m_reading, report.m_bytes), formatDuration(results.m_import.getMedian()),
             formatMegabytes(results.m_import, report.m_bytes), formatRate(results.m_import, report.m_literals),
             fmt::format("{:.2f}", getImportPerReading(results))});
    return "\nReading the files, and importing them\n" + table.format();
}

/// Names the bottleneck, according to the last row, which has the most threads.
std::string formatVerdict(const BenchmarkReport& report) {
    const ThreadBenchmark& results = report.m_threads.back();
    const double ratio = getImportPerReading(results);
    const std::string start = fmt::format(
        "\nReading is what the parser, serd, takes alone; no import can be faster. With {} the import takes {:.2f} "
        "times as long.\n",
        formatThreads(results.m_numberOfThreads), ratio);
    if (ratio <= 1)
        return start + "The difference is smaller than the spread of the runs: the parser (serd) is the bottleneck.\n";
    const double share = 100 / ratio;
    const std::string others = "finding the lines, counting and the dictionary";
    if (ratio < LITTLE_MORE_THAN_READING)
        return start +
               fmt::format(
                   "The parser (serd) is the bottleneck: it takes {:.0f}% of the time; {} together take {:.0f}%.\n",
                   share, others, 100 - share);
    return start +
           fmt::format(
               "The parser (serd) takes {:.0f}% of the time; {} together take {:.0f}%.\n", share, others, 100 - share);
}

std::string formatValues(const BenchmarkReport& report) {
    if (report.m_keptValues == 0)
        return "\nThere are no values to insert and look up.\n";
    TextTable table;
    table.addRow({"threads", "insert, one at a time", "in batches", "look up, one at a time", "in batches"});
    for (const ThreadBenchmark& results : report.m_threads)
        table.addRow(
            {std::to_string(results.m_numberOfThreads), formatRate(results.m_enteringSingly, report.m_keptValues),
             formatRate(results.m_enteringBatches, report.m_keptValues),
             formatRate(results.m_findingSingly, report.m_keptValues),
             formatRate(results.m_findingBatches, report.m_keptValues)});
    std::string text =
        "\nValues per second, without reading: inserted into an empty dictionary, and looked up in it\n" +
        table.format();
    if (report.m_keptValues != report.m_accepted)
        text += fmt::format(
            "  (the first {} values; the others do not fit in half of --memory)\n", formatCount(report.m_keptValues));
    return text;
}

std::string formatMemory(const BenchmarkReport& report) {
    TextTable table;
    table.addRow({"threads", "peak", "at the end", "bytes per distinct value", "on huge pages"});
    for (const ThreadBenchmark& results : report.m_threads) {
        const std::string bytesPerValue = report.m_distinctValues == 0
                                              ? std::string("-")
                                              : fmt::format(
                                                    "{:.1f}", static_cast<double>(results.m_usedBytes) /
                                                                  static_cast<double>(report.m_distinctValues));
        table.addRow(
            {std::to_string(results.m_numberOfThreads), formatSize(results.m_peakBytes),
             formatSize(results.m_usedBytes), bytesPerValue,
             results.m_hugePageBytes ? formatSize(*results.m_hugePageBytes) : std::string("unknown")});
    }
    return fmt::format(
               "\nMemory that an import charges to the budget (the peak was sampled each millisecond); huge pages "
               "were {}requested\n",
               report.m_useHugePages ? "" : "not ") +
           table.format();
}

/// The largest spread of the runs of one measurement.
std::string formatSpread(const BenchmarkReport& report) {
    double largest = 0;
    std::string where;
    for (const ThreadBenchmark& results : report.m_threads) {
        const std::pair<std::string_view, const Timing*> timings[] = {
            {"reading", &results.m_reading},
            {"import", &results.m_import},
            {"inserting one at a time", &results.m_enteringSingly},
            {"inserting in batches", &results.m_enteringBatches},
            {"looking up one at a time", &results.m_findingSingly},
            {"looking up in batches", &results.m_findingBatches}};
        for (const auto& [name, timing] : timings)
            if (timing->getSpread() >= largest) {
                largest = timing->getSpread();
                where = fmt::format("{}, {}", name, formatThreads(results.m_numberOfThreads));
            }
    }
    std::string text = fmt::format(
        "\nFigures are medians of {} {} after one to warm up, on {} {}. ", report.m_repetitions,
        report.m_repetitions == 1 ? "run" : "runs", report.m_numberOfProcessors,
        report.m_numberOfProcessors == 1 ? "processor" : "processors");
    if (report.m_repetitions == 1)
        return text + "One run does not show the spread: try --repetitions 5.\n";
    return text + fmt::format(
                      "Runs lie up to {:.0f}% of the median apart\n({}); differences of that size mean nothing. MB are "
                      "1,000,000 bytes, uncompressed.\n",
                      100 * largest, where);
}

JSON toJSON(const Timing& timing) {
    JSON object;
    object["seconds"] = timing.m_seconds;
    object["median"] = timing.getMedian();
    return object;
}

JSON toJSON(const Timing& timing, const char* rateName, uint64_t count) {
    JSON object = toJSON(timing);
    object[rateName] = timing.getPerSecond(count);
    return object;
}

JSON toJSON(const ThreadBenchmark& results, const BenchmarkReport& report) {
    JSON object;
    object["threads"] = results.m_numberOfThreads;
    object["reading"] = toJSON(results.m_reading, "bytesPerSecond", report.m_bytes);
    object["import"] = toJSON(results.m_import, "bytesPerSecond", report.m_bytes);
    object["import"]["literalsPerSecond"] = results.m_import.getPerSecond(report.m_literals);
    object["importPerReading"] = getImportPerReading(results);
    object["enterSingly"] = toJSON(results.m_enteringSingly, "valuesPerSecond", report.m_keptValues);
    object["enterBatches"] = toJSON(results.m_enteringBatches, "valuesPerSecond", report.m_keptValues);
    object["lookUpSingly"] = toJSON(results.m_findingSingly, "valuesPerSecond", report.m_keptValues);
    object["lookUpBatches"] = toJSON(results.m_findingBatches, "valuesPerSecond", report.m_keptValues);
    object["memory"]["peak"] = results.m_peakBytes;
    object["memory"]["used"] = results.m_usedBytes;
    object["memory"]["perDistinctValue"] =
        report.m_distinctValues == 0
            ? JSON()
            : JSON(static_cast<double>(results.m_usedBytes) / static_cast<double>(report.m_distinctValues));
    object["memory"]["onHugePages"] = numdict::toJSON(results.m_hugePageBytes);
    return object;
}

}

std::string formatBenchmark(const BenchmarkReport& report) {
    std::string text = formatInput(report);
    if (report.m_threads.empty())
        return text + "\nNothing was measured.\n";
    return text + formatImport(report) + formatVerdict(report) + formatValues(report) + formatMemory(report) +
           formatSpread(report);
}

std::string formatBenchmarkAsJSON(const BenchmarkReport& report) {
    JSON object;
    object["files"] = JSON::array();
    for (const BenchmarkFile& file : report.m_files) {
        JSON item;
        item["path"] = file.m_path;
        item["statements"] = file.m_statements;
        item["bytes"] = file.m_bytes;
        item["error"] = toJSONOrNull(file.m_error);
        item["leftOut"] = file.m_isLeftOut;
        object["files"].push_back(std::move(item));
    }
    object["processors"] = report.m_numberOfProcessors;
    object["repetitions"] = report.m_repetitions;
    object["hugePages"] = report.m_useHugePages;
    object["bytes"] = report.m_bytes;
    object["statements"] = report.m_statements;
    object["literals"] = report.m_literals;
    object["accepted"] = report.m_accepted;
    object["distinctValues"] = report.m_distinctValues;
    object["keptValues"] = report.m_keptValues;
    object["runs"] = JSON::array();
    for (const ThreadBenchmark& results : report.m_threads)
        object["runs"].push_back(toJSON(results, report));
    return formatJSON(object);
}

}
