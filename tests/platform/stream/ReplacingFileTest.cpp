#include "core/platform/stream/ReplacingFile.h"

#include "support/ExpectError.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kavix {

using test::readFile;
using test::TemporaryFolder;
using test::writeFile;

namespace {

using Names = std::set<std::string>;

void write(ReplacingFile& file, const std::string& content) {
    file.getStream().write(content.data(), content.size());
}

void replace(const std::string& fileName, const std::string& content) {
    ReplacingFile file(fileName);
    write(file, content);
    file.commit();
}

mode_t getPermissions(const std::string& fileName) {
    struct stat status;
    EXPECT_EQ(::stat(fileName.c_str(), &status), 0);
    return status.st_mode & 07777;
}

/// Runs an action in another process; returns its result.
int runInChild(const std::function<int()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        int result = 99;
        try {
            result = action();
        }
        catch (...) {
        }
        ::_exit(result);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

const char OPEN_FAILED[] =
    "cannot be opened for writing. Check that its directory exists and that you may write there.";
const char LOCKED[] = "is being written by another process. Wait until it has finished.";

void expectOpenError(const std::string& fileName, const std::string& namedFile, int errorNumber) {
    test::expectSystemCallError(
        "Engine/core/platform/stream/FileOutputStream", 20, "open", errorNumber,
        "File '" + namedFile + "' " + OPEN_FAILED, [&] { ReplacingFile file(fileName); });
}

}

TEST(ReplacingFile, TheOldFileStaysUntilCommit) {
    const TemporaryFolder folder;
    writeFile(folder / "store", "old");
    ReplacingFile file(folder / "store");
    EXPECT_EQ(folder.list(), (Names{"store", "store.unfinished"}));
    write(file, std::string(200'000, 'n'));
    EXPECT_EQ(readFile(folder / "store"), "old");
    file.commit();
    EXPECT_EQ(readFile(folder / "store"), std::string(200'000, 'n'));
    EXPECT_EQ(folder.list(), Names{"store"});
}

TEST(ReplacingFile, AFileThatWasNotThereAppearsWithCommit) {
    const TemporaryFolder folder;
    {
        ReplacingFile file(folder / "store");
        write(file, "new");
        EXPECT_EQ(folder.list(), Names{"store.unfinished"});
    }
    EXPECT_EQ(folder.list(), Names()) << "given up";
    replace(folder / "store", "new");
    EXPECT_EQ(readFile(folder / "store"), "new");
    replace(folder / "store", "");
    EXPECT_EQ(readFile(folder / "store"), "");
}

TEST(ReplacingFile, WithoutCommitNothingChanges) {
    const TemporaryFolder folder;
    writeFile(folder / "store", "old");
    {
        ReplacingFile file(folder / "store");
        write(file, std::string(200'000, 'n'));
        file.getStream().flush();
    }
    EXPECT_EQ(folder.list(), Names{"store"});
    EXPECT_EQ(readFile(folder / "store"), "old");
}

TEST(ReplacingFile, WhatAKilledWriterLeftIsTakenOver) {
    const TemporaryFolder folder;
    writeFile(folder / "store", "old");
    writeFile(folder / "store.unfinished", std::string(100'000, 'x'));
    replace(folder / "store", "new");
    EXPECT_EQ(readFile(folder / "store"), "new");
    EXPECT_EQ(folder.list(), Names{"store"});
}

TEST(ReplacingFile, ASecondWriterIsRefused) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    writeFile(fileName, "old");
    {
        ReplacingFile first(fileName);
        write(first, "first");
        const auto expectRefusal = [&] {
            test::expectSystemCallError(
                "Engine/core/platform/stream/ReplacingFile", 50, "flock", EWOULDBLOCK,
                "File '" + fileName + ".unfinished' " + LOCKED, [&] { ReplacingFile second(fileName); });
        };
        expectRefusal();
        EXPECT_EQ(
            runInChild([&] {
                expectRefusal();
                return ::testing::Test::HasFailure() ? 1 : 0;
            }),
            0)
            << "in another process";
        first.commit();
    }
    EXPECT_EQ(readFile(fileName), "first");
    EXPECT_EQ(
        runInChild([&] {
            replace(fileName, "second");
            return 0;
        }),
        0);
    EXPECT_EQ(readFile(fileName), "second");
    EXPECT_EQ(folder.list(), Names{"store"});
}

TEST(ReplacingFile, TheLockOfAWriterThatDiedIsFree) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    writeFile(fileName, "old");
    EXPECT_EQ(
        runInChild([&] {
            auto* const file = new ReplacingFile(fileName); // never destroyed: the process just ends
            write(*file, std::string(100'000, 'x'));
            return file->getStream().flush(), 0;
        }),
        0);
    EXPECT_EQ(folder.list(), (Names{"store", "store.unfinished"}));
    EXPECT_EQ(readFile(fileName), "old");
    replace(fileName, "new");
    EXPECT_EQ(readFile(fileName), "new");
    EXPECT_EQ(folder.list(), Names{"store"});
}

TEST(ReplacingFile, AfterCommitTheNextWriterMayBegin) {
    const TemporaryFolder folder;
    auto first = std::make_unique<ReplacingFile>(folder / "store");
    first->commit();
    ReplacingFile second(folder / "store");
    write(second, "second");
    first.reset();
    EXPECT_EQ(folder.list(), (Names{"store", "store.unfinished"})) << "the file of the second";
    second.commit();
    EXPECT_EQ(readFile(folder / "store"), "second");
}

TEST(ReplacingFile, OtherFilesHaveOtherLocks) {
    const TemporaryFolder folder;
    ReplacingFile first(folder / "first");
    ReplacingFile second(folder / "second");
    first.commit();
    second.commit();
    EXPECT_EQ(folder.list(), (Names{"first", "second"}));
}

TEST(ReplacingFile, ASymbolicLinkStaysOne) {
    struct Row {
        const char* name;
        const char* linkTarget;
        bool exists;
    };
    const Row rows[] = {
        {"to a file", "folder/store", true},
        {"to a link", "link-to-store", true},
        {"to a file that is not there", "folder/store", false},
        {"to a link to a file that is not there", "link-to-store", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const TemporaryFolder folder;
        std::filesystem::create_directory(folder / "folder");
        std::filesystem::create_symlink("folder/store", folder / "link-to-store");
        std::filesystem::create_symlink(row.linkTarget, folder / "link");
        if (row.exists)
            writeFile(folder / "folder/store", "old");
        replace(folder / "link", "new");
        EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
        EXPECT_TRUE(std::filesystem::is_symlink(folder / "link-to-store"));
        EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(folder / "folder/store")));
        EXPECT_EQ(readFile(folder / "folder/store"), "new");
        EXPECT_EQ(folder.list(), (Names{"folder", "link", "link-to-store"}));
    }
}

TEST(ReplacingFile, ALinkInPlaceOfTheTemporaryFileIsNotFollowed) {
    const TemporaryFolder folder;
    writeFile(folder / "store", "old");
    writeFile(folder / "precious", "precious");
    std::filesystem::create_symlink("precious", folder / "store.unfinished");
    expectOpenError(folder / "store", folder / "store.unfinished", ELOOP);
    EXPECT_EQ(readFile(folder / "precious"), "precious");
    EXPECT_EQ(readFile(folder / "store"), "old");
}

TEST(ReplacingFile, OnlyRegularFilesAreReplaced) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "folder");
    expectOpenError(folder / "folder", folder / "folder", EISDIR);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    expectOpenError(folder / "pipe", folder / "pipe", EINVAL);
    expectOpenError("/dev/null", "/dev/null", EINVAL);
    expectOpenError(folder / "missing/store", folder / "missing/store.unfinished", ENOENT);
    std::filesystem::create_symlink("circle", folder / "circle");
    EXPECT_NO_THROW(replace(folder / "circle", "new")) << "a link that leads nowhere can only be replaced";
    EXPECT_EQ(readFile(folder / "circle"), "new");
    EXPECT_EQ(folder.list(), (Names{"circle", "folder", "pipe"}));
}

TEST(ReplacingFile, ThePermissionsOfTheOldFileAreKept) {
    const TemporaryFolder folder;
    const mode_t previousMask = ::umask(022);
    for (const mode_t permissions : {0600u, 0640u, 0644u, 0666u, 0755u}) {
        writeFile(folder / "store", "old");
        ASSERT_EQ(::chmod((folder / "store").c_str(), permissions), 0);
        ReplacingFile file(folder / "store");
        EXPECT_EQ(getPermissions(folder / "store.unfinished"), permissions) << "from the beginning on";
        file.commit();
        EXPECT_EQ(getPermissions(folder / "store"), permissions);
    }
    replace(folder / "another", "new");
    EXPECT_EQ(getPermissions(folder / "another"), 0644u);
    ::umask(previousMask);
}

TEST(ReplacingFile, AFileIsFoundInTheCurrentFolder) {
    const TemporaryFolder folder;
    const std::filesystem::path previous = std::filesystem::current_path();
    std::filesystem::current_path(folder.getPath());
    replace("store", "new");
    replace("./store", "newer");
    std::filesystem::current_path(previous);
    EXPECT_EQ(readFile(folder / "store"), "newer");
    EXPECT_EQ(folder.list(), Names{"store"});
}

}
