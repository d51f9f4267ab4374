// Every call that saving makes fails once, or the process is killed there: the old file or the new one is in place.

#include "core/platform/stream/ReplacingFile.h"

#include "core/platform/errors/SystemCallException.h"
#include "support/ExpectError.h"
#include "support/FaultInjection.h"
#include "support/KilledProcess.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <new>
#include <set>
#include <string>

namespace kavix {

using test::Call;
using test::CallHook;
using test::Fault;
using test::FaultPoint;
using test::readFile;
using test::TemporaryFolder;
using test::writeFile;

namespace {

using Names = std::set<std::string>;

const std::string OLD(70'000, 'o');
const std::string NEW(150'000, 'n');

void replace(const std::string& fileName) {
    ReplacingFile file(fileName);
    for (size_t position = 0; position < NEW.size(); position += 10'000)
        file.getStream().write(NEW.data() + position, 10'000);
    file.commit();
}

size_t countOpenFiles() {
    size_t count = 0;
    for ([[maybe_unused]] const std::filesystem::directory_entry& entry :
         std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

}

TEST(ReplacingFile, EveryCallMayFailOnce) {
    struct Row {
        const char* name;
        Call call;
        uint64_t n;
        int errorNumber;
        const char* sourceFile;
        long line;
        const char* systemCall;
        std::string message; // %: the file
        bool isInPlace;
    };
    const char* const replacingFile = "Engine/core/platform/stream/ReplacingFile";
    const char* const fileOutputStream = "Engine/core/platform/stream/FileOutputStream";
    const Row rows[] = {
        {"opening the new file", Call::OPEN, 1, EACCES, fileOutputStream, 20, "open",
         "File '%.unfinished' cannot be opened for writing.", false},
        {"locking the new file", Call::FLOCK, 1, ENOLCK, replacingFile, 50, "flock",
         "File '%.unfinished' is being written by another process.", false},
        {"emptying the new file", Call::FTRUNCATE, 1, EIO, fileOutputStream, 30, "write",
         "An error occurred while writing file '%.unfinished', which is now incomplete.", false},
        {"synchronising the new file", Call::FSYNC, 1, EIO, fileOutputStream, 90, "fsync",
         "Not all of file '%.unfinished' could be written to the device; it may be incomplete.", false},
        {"renaming", Call::RENAME, 1, EACCES, replacingFile, 90, "rename",
         "File '%.unfinished' is complete but cannot take the place of file '%', which is unchanged.", false},
        {"opening the folder", Call::OPEN, 2, EMFILE, replacingFile, 95, "fsync",
         "File '%' is written and in place, but folder '", true},
        {"synchronising the folder", Call::FSYNC, 2, EIO, replacingFile, 95, "fsync",
         "File '%' is written and in place, but folder '", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const TemporaryFolder folder;
        const std::string fileName = folder / "store";
        writeFile(fileName, OLD);
        std::string message = row.message;
        for (size_t position; (position = message.find('%')) != std::string::npos;)
            message.replace(position, 1, fileName);
        const size_t openFiles = countOpenFiles();
        {
            const Fault fault(row.call, row.n, row.errorNumber);
            test::expectSystemCallError(
                row.sourceFile, row.line, row.systemCall, row.errorNumber, message, [&] { replace(fileName); });
            EXPECT_TRUE(fault.wasHit());
        }
        EXPECT_EQ(readFile(fileName), row.isInPlace ? NEW : OLD);
        if (row.call != Call::FLOCK) {
            EXPECT_EQ(folder.list(), Names{"store"}) << "nothing is left behind";
        }
        EXPECT_EQ(countOpenFiles(), openFiles);
        replace(fileName);
        EXPECT_EQ(readFile(fileName), NEW);
        EXPECT_EQ(folder.list(), Names{"store"});
    }
}

TEST(ReplacingFile, EveryWriteMayFailOnce) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    writeFile(fileName, OLD);
    const uint64_t failures = test::failEach(Call::WRITE, ENOSPC, [&](FaultPoint& point) {
        const test::ShortTransfers shortTransfers(20'000);
        const Fault fault(point);
        try {
            replace(fileName);
            EXPECT_FALSE(fault.wasHit());
        }
        catch (const SystemCallException& exception) {
            EXPECT_TRUE(fault.wasHit());
            EXPECT_EQ(exception.getErrorNumber(), ENOSPC);
            EXPECT_EQ(readFile(fileName), OLD);
            EXPECT_EQ(folder.list(), Names{"store"});
        }
    });
    EXPECT_GE(failures, 8u);
    EXPECT_EQ(readFile(fileName), NEW);
}

TEST(ReplacingFile, ADeviceThatStaysFullLeavesTheOldFile) {
    const TemporaryFolder folder;
    writeFile(folder / "store", OLD);
    {
        const Fault fault(Call::WRITE, 1, ENOSPC, Fault::FOREVER);
        EXPECT_THROW(replace(folder / "store"), SystemCallException);
    }
    EXPECT_EQ(readFile(folder / "store"), OLD);
    EXPECT_EQ(folder.list(), Names{"store"});
}

TEST(ReplacingFile, EveryAllocationMayFailOnce) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    writeFile(fileName, OLD);
    const size_t openFiles = countOpenFiles();
    const uint64_t allocations = test::failEach(Call::ALLOCATION, [&](FaultPoint& point) {
        bool hasThrown = false;
        {
            const Fault fault(point);
            try {
                replace(fileName);
            }
            catch (const std::bad_alloc&) {
                hasThrown = true;
            }
        }
        EXPECT_EQ(hasThrown, point.wasHit());
        EXPECT_EQ(countOpenFiles(), openFiles) << "a descriptor left open would keep the lock";
        EXPECT_EQ(folder.list(), Names{"store"});
    });
    EXPECT_LT(allocations, 100u);
    EXPECT_EQ(readFile(fileName), NEW);
}

/// The previous writer renames its file between our open and our lock: what we lock is the target by now.
TEST(ReplacingFile, AFileRenamedBeforeItIsLockedIsNotWritten) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    writeFile(fileName + ".unfinished", OLD);
    int calls = 0;
    {
        const CallHook hook({Call::OPEN, Call::FLOCK}, [&] {
            if (++calls == 2) // between the two
                std::filesystem::rename(fileName + ".unfinished", fileName);
        });
        ReplacingFile file(fileName);
        EXPECT_EQ(readFile(fileName), OLD);
        EXPECT_EQ(folder.list(), (Names{"store", "store.unfinished"}));
    }
    EXPECT_EQ(readFile(fileName), OLD);
    EXPECT_EQ(folder.list(), Names{"store"});
}

TEST(ReplacingFile, AKilledProcessLeavesTheOldFileOrTheNewOne) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    bool sawOld = false, sawNew = false;
    for (int killedAt = 1;; ++killedAt) {
        SCOPED_TRACE("killed at call " + std::to_string(killedAt));
        ASSERT_LT(killedAt, 1000);
        writeFile(fileName, OLD);
        const bool isFinished = test::runKilledAtCall(killedAt, 2'000, [&] { replace(fileName); });
        const std::string content = readFile(fileName);
        EXPECT_TRUE(content == OLD || content == NEW) << content.size() << " bytes";
        sawOld |= content == OLD;
        sawNew |= content == NEW;
        if (isFinished) {
            EXPECT_EQ(content, NEW);
            EXPECT_GT(killedAt, 50);
            break;
        }
        EXPECT_TRUE(content == NEW || sawNew == false) << "once the new file was in place, it stays";
    }
    EXPECT_TRUE(sawOld && sawNew);
    EXPECT_EQ(folder.list(), Names{"store"}) << "the last writer took over what the killed ones left";
}

}
