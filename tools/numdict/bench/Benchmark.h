#pragma once

#include "core/data-store/embedding/Dictionary.h"
#include "numdict/input/InputFiles.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kavix::numdict {

struct BenchmarkOptions {
    std::vector<InputFile> m_files; // no standard input: they are read several times
    std::vector<unsigned> m_numbersOfThreads;
    unsigned m_repetitions = 5;
    Dictionary::Options m_dictionaryOptions; // as much memory again is used for the values that are kept
};

/// The times that repetitions of one thing took.
struct Timing {
    std::vector<double> m_seconds;

    /// The middle one, or the mean of the two in the middle; 0 if nothing was measured.
    double getMedian() const;

    /// How far the longest and the shortest lie apart, as a share of the median.
    double getSpread() const;

    double getPerSecond(uint64_t count) const;
};

/// What was measured with one number of threads.
struct ThreadBenchmark {
    unsigned m_numberOfThreads = 0;
    Timing m_reading;
    Timing m_import;
    Timing m_enteringSingly;
    Timing m_enteringBatches;
    Timing m_findingSingly;
    Timing m_findingBatches;
    uint64_t m_peakBytes = 0; // charged during an import, sampled each millisecond
    uint64_t m_usedBytes = 0; // charged at the end of it
    std::optional<uint64_t> m_hugePageBytes; // at the end of it; absent if the system does not report it
};

/// A file, as it was first read.
struct BenchmarkFile {
    std::string m_path;
    uint64_t m_bytes = 0; // uncompressed
    uint64_t m_statements = 0;
    std::string m_error; // empty if there is none
    bool m_isLeftOut = false; // it cannot be read to its end, so it is not measured
};

struct BenchmarkReport {
    std::vector<BenchmarkFile> m_files;
    unsigned m_numberOfProcessors = 0;
    unsigned m_repetitions = 0;
    bool m_useHugePages = true;

    // Of the files that were not left out.
    uint64_t m_bytes = 0;
    uint64_t m_statements = 0;
    uint64_t m_literals = 0;
    uint64_t m_accepted = 0;
    uint64_t m_distinctValues = 0;

    uint64_t m_keptValues = 0; // the first of the accepted ones, as many as memory allows
    std::vector<ThreadBenchmark> m_threads;

    /// One of EXIT_ALL_WELL, EXIT_DAMAGED_INPUT.
    int getExitCode() const noexcept;
};

/// A limit was reached on the way; the message has advice.
class BenchmarkLimit : public std::runtime_error {

public:

    using std::runtime_error::runtime_error;
};

/// Measures on this machine and these files how fast they are imported and merely read, and how fast their values are
/// entered and looked up. Each thing is done once to warm up and then as often as asked, in turns, so that what
/// disturbs the machine disturbs all alike. What was looked up must have been found, and all dictionaries must have as
/// many values.
/// @param reportStep  called with each step before it is done
/// @throws BenchmarkLimit, KavixException  the memory or the resource IDs are used up
BenchmarkReport runBenchmark(const BenchmarkOptions& options, const std::function<void(std::string)>& reportStep);

/// For people.
std::string formatBenchmark(const BenchmarkReport& report);

/// One object.
std::string formatBenchmarkAsJSON(const BenchmarkReport& report);

}
