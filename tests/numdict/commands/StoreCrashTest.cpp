// Of all rooms together: a killed import leaves the old store or the new one.

#include "core/data-store/embedding/Dictionary.h"
#include "core/platform/stream/FileInputStream.h"
#include "numdict/StoreSamples.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>

using namespace kavix;
using namespace kavix::numdict;

namespace {

constexpr int NUMBER_OF_MOMENTS = 50; // of each kind

using Clock = std::chrono::steady_clock;

/// Runs an import in a process of its own until a moment comes, or the process ends; then kills it.
/// @return whether it was killed
bool importUntil(
    const std::string& store, const std::string& input, const std::function<bool(Clock::time_point start)>& isMoment) {
    const Clock::time_point start = Clock::now();
    const pid_t process = ::fork();
    if (process == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::execl(
            NUMDICT_PROGRAM, NUMDICT_PROGRAM, "import", "--quiet", "--threads", "2", "--store", store.c_str(),
            input.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    while (!isMoment(start))
        if (::waitpid(process, &status, WNOHANG) == process) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
            return false;
        }
    ::kill(process, SIGKILL);
    ::waitpid(process, &status, 0);
    return WIFSIGNALED(status);
}

/// Opens a store with every check; returns how many values it has.
uint64_t countValues(const std::string& store) {
    FileInputStream input(store);
    const std::unique_ptr<Dictionary> dictionary = Dictionary::openStore(input, {});
    uint64_t count = 0;
    for (const uint64_t countOfDatatype : dictionary->countResourcesByDatatypeID())
        count += countOfDatatype;
    return count;
}

uint64_t getSize(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

}

TEST(StoreCrash, AKilledImportLeavesTheOldStoreOrTheNewOne) {
    TemporaryDirectory directory;
    const std::string input = directory.getPath("input.nt");
    ASSERT_EQ(runProgram("generate --literals 60k -o " + input).m_exitCode, 0);
    const std::string store = makeSampleStore(directory);
    const std::string oldBytes = readFile(store);

    const Clock::time_point start = Clock::now();
    ASSERT_FALSE(importUntil(store, input, [](Clock::time_point) { return false; }));
    const auto duration = Clock::now() - start;
    const uint64_t newSize = getSize(store);
    const uint64_t newValues = countValues(store);
    ASSERT_GT(newValues, 8u);

    int numberOfKills = 0;
    std::set<uint64_t> counts;
    const auto tryMoment = [&](const std::function<bool(Clock::time_point)>& isMoment) {
        // What a killed import has left beside the store stays: the next one must cope with it.
        std::ofstream(store, std::ios::binary) << oldBytes;
        numberOfKills += importUntil(store, input, isMoment) ? 1 : 0;
        const uint64_t values = countValues(store);
        EXPECT_TRUE(values == 8 || values == newValues) << values;
        EXPECT_TRUE(values != 8 || readFile(store) == oldBytes);
        EXPECT_EQ(runProgram("check " + store).m_exitCode, 0);
        counts.insert(values);
    };
    for (int index = 0; index < NUMBER_OF_MOMENTS; ++index) {
        SCOPED_TRACE(index);
        // Over the whole run.
        tryMoment(
            [&](Clock::time_point begin) { return Clock::now() - begin >= duration * index / NUMBER_OF_MOMENTS; });
        // Over the saving, by the growth of the new file; the last moment is when it has its whole length.
        const uint64_t size = std::max<uint64_t>(1, newSize / (NUMBER_OF_MOMENTS - 1) * static_cast<uint64_t>(index));
        std::filesystem::remove(store + ".unfinished");
        tryMoment([&](Clock::time_point) { return getSize(store + ".unfinished") >= size; });
    }
    EXPECT_GE(numberOfKills, NUMBER_OF_MOMENTS);
    EXPECT_TRUE(counts.contains(8));
    // In spite of all that they left, the next import succeeds.
    ASSERT_FALSE(importUntil(store, input, [](Clock::time_point) { return false; }));
    EXPECT_EQ(countValues(store), newValues);
    EXPECT_FALSE(std::filesystem::exists(store + ".unfinished"));
}
