// Saving through the program if the system refuses something: what the user sees, and what is left.

#include "numdict/StoreSamples.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <string>

using namespace kavix::numdict;

namespace {

/// A folder with a store, and what commands need to write others.
class StoreSave : public ::testing::Test {

protected:

    struct Save {
        const char* name;
        std::string arguments;
        std::string target;
    };

    StoreSave() {
        makeSampleStore(m_directory);
        m_directory.write("more.ttl", "<s> <p> 1234 , \"x\"^^<http://www.w3.org/2001/XMLSchema#int> .");
        m_directory.write("records", "1\txsd:int\t\"1\"^^xsd:int\n");
        m_directory.write("old.store", "what was there before");
    }

    /// What the commands write that leave nothing half done. The import exits with 1 by itself: a literal is rejected.
    static std::vector<Save> getSaves() {
        return {
            {"import into a store", "import --quiet --threads 1 more.ttl --store sample32.store", "sample32.store"},
            {"import into a new store", "import --quiet --threads 1 more.ttl --store new.store", "new.store"},
            {"restore", "restore --quiet records -o old.store", "old.store"},
            {"compact", "compact --quiet sample32.store", "sample32.store"},
            {"compact into another", "compact --quiet sample32.store -o old.store", "old.store"},
            {"repair", "check --quiet --repair sample32.store -o new.store", "new.store"},
            {"dump", "dump --quiet sample32.store -o old.store", "old.store"},
        };
    }

    /// @param prefix  as runProgram() has it
    ProgramResult runInFolder(const std::string& arguments, const std::string& prefix = "") const {
        return runProgram(arguments, "cd '" + m_directory.getPath("") + "'; " + prefix);
    }

    /// Has the n-th call of the program fail.
    ProgramResult runWithFault(const std::string& arguments, const std::string& call, int n, int errorNumber) const {
        return runInFolder(
            arguments, "NUMDICT_TEST_FAULT='" + call + " " + std::to_string(n) + " " + std::to_string(errorNumber) +
                           "' LD_PRELOAD='" FAULT_PRELOAD "'");
    }

    /// A file that exists is reported with its whole path, another one as it was given.
    std::string getReportedName(const std::string& name) const {
        return std::filesystem::exists(m_directory.getPath(name)) ? m_directory.getPath(name) : name;
    }

    /// All files in the folder, with their bytes.
    std::map<std::string, std::string> readFolder() const {
        std::map<std::string, std::string> files;
        for (const std::filesystem::directory_entry& entry :
             std::filesystem::directory_iterator(m_directory.getPath("")))
            files[entry.path().filename()] = entry.is_regular_file() ? readFile(entry.path()) : "no file";
        return files;
    }

    /// The command fails, says so in these words, and leaves the folder unchanged.
    void expectFailure(
        const ProgramResult& result, const std::string& message,
        const std::map<std::string, std::string>& before) const {
        EXPECT_EQ(result.m_exitCode, 4) << result.m_errors;
        EXPECT_NE(result.m_errors.find(message), std::string::npos) << result.m_errors;
        EXPECT_TRUE(readFolder() == before);
    }

    const TemporaryDirectory m_directory;
};

}

TEST_F(StoreSave, AFullDiskIsNamedAndLeavesWhatWasThere) {
    const std::map<std::string, std::string> before = readFolder();
    for (const Save& save : getSaves()) {
        SCOPED_TRACE(save.name);
        const std::string message = "numdict: An error occurred while writing file '" + getReportedName(save.target) +
                                    ".unfinished', which is now incomplete. Check the free space on the device, then "
                                    "write it again. [write failed with error 28: No space left on device]\n";
        int n = 1;
        for (;; ++n) {
            const ProgramResult result = runWithFault(save.arguments, "write", n, ENOSPC);
            if (result.m_exitCode < 2)
                break; // there are no more
            expectFailure(result, message, before);
            ASSERT_LT(n, 1000);
        }
        EXPECT_GT(n, 1);
        EXPECT_FALSE(readFolder() == before);
        for (const auto& [name, bytes] : before)
            m_directory.write(name, bytes);
        std::filesystem::remove(m_directory.getPath("new.store"));
    }
}

TEST_F(StoreSave, AFileBeyondTheLimitOfTheProcessIsAnErrorLikeAFullDisk) {
    const std::map<std::string, std::string> before = readFolder();
    for (const Save& save : getSaves()) {
        if (std::string(save.name) == "dump")
            continue; // it is too short
        SCOPED_TRACE(save.name);
        expectFailure(
            runInFolder(save.arguments, "ulimit -f 20;"),
            "numdict: An error occurred while writing file '" + getReportedName(save.target) +
                ".unfinished', which is now incomplete. Check the free space on the device, then write it again. "
                "[write failed with error 27: File too large]\n",
            before);
    }
    const ProgramResult generated = runInFolder("generate --literals 10k -o generated.nt", "ulimit -f 20;");
    EXPECT_EQ(generated.m_exitCode, 4);
    EXPECT_EQ(generated.m_errors, "numdict: cannot write 'generated.nt': File too large\n");
}

TEST_F(StoreSave, ADeviceOrAFolderThatRefusesTheFileIsNamed) {
    const std::map<std::string, std::string> before = readFolder();
    for (const Save& save : getSaves()) {
        SCOPED_TRACE(save.name);
        const std::string target = getReportedName(save.target);
        expectFailure(
            runWithFault(save.arguments, "fsync", 1, EIO),
            "numdict: Not all of file '" + target +
                ".unfinished' could be written to the device; it may be incomplete. Check the device and its free "
                "space, then write it again. [fsync failed with error 5: Input/output error]\n",
            before);
        expectFailure(
            runWithFault(save.arguments, "rename", 1, EACCES),
            "numdict: File '" + target + ".unfinished' is complete but cannot take the place of file '" + target +
                "', which is unchanged. Check that you may write in its folder. [rename failed with error 13: "
                "Permission denied]\n",
            before);
    }
}

TEST_F(StoreSave, IfOnlyTheFolderCannotBeSynchronisedTheNewStoreIsInPlace) {
    const std::string store = m_directory.getPath("sample32.store");
    const ProgramResult result =
        runWithFault("import --quiet --threads 1 more.ttl --store sample32.store", "fsync", 2, EIO);
    EXPECT_EQ(result.m_exitCode, 4);
    EXPECT_NE(
        result.m_errors.find("numdict: File '" + store + "' is written and in place, but folder '"), std::string::npos)
        << result.m_errors;
    EXPECT_EQ(runProgram("resolve " + store + " 1234").m_exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(store + ".unfinished"));
}

TEST_F(StoreSave, RejectedStatementsThatCannotBeWrittenLeaveTheStoreUnchanged) {
    const std::map<std::string, std::string> before = readFolder();
    const struct {
        const char* call;
        int n;
        const char* message;
    } rows[] = {
        {"write", 1, "numdict: cannot write the rejected statements to 'rejected.nq': No space left on device\n"},
        {"write", 2, "rejected.nq.unfinished', which is now incomplete."},
        {"fsync", 1, "rejected.nq.unfinished' could be written to the device; it may be incomplete."},
        {"rename", 1, "rejected.nq.unfinished' is complete but cannot take the place of file '"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        expectFailure(
            runWithFault(
                "import --quiet --threads 1 more.ttl --store sample32.store --rejected rejected.nq", row.call, row.n,
                ENOSPC),
            row.message, before);
    }
}

TEST_F(StoreSave, TheMapOfACompactionIsInPlaceBeforeTheStore) {
    std::map<std::string, std::string> before = readFolder();
    const std::string arguments = "compact --quiet sample32.store --map map.tsv";
    expectFailure(
        runWithFault(arguments, "rename", 1, EACCES),
        "map.tsv.unfinished' is complete but cannot take the place of file '", before);
    const ProgramResult result = runWithFault(arguments, "rename", 2, EACCES);
    before["map.tsv"] = "1\t1\n2\t2\n3\t3\n4\t4\n5\t5\n6\t6\n7\t7\n8\t8\n";
    expectFailure(result, "sample32.store.unfinished' is complete but cannot take the place of file '", before);
}

TEST_F(StoreSave, AFolderThatMustNotBeWrittenToIsNamed) {
    const std::map<std::string, std::string> before = readFolder();
    std::filesystem::permissions(
        m_directory.getPath(""), std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    // Root may write anywhere, unless it gives that up.
    const std::string prefix = ::geteuid() == 0 ? "setpriv --bounding-set=-dac_override --inh-caps=-dac_override" : "";
    if (runProgram("--help", prefix).m_exitCode != 0)
        GTEST_SKIP() << "root cannot give up its rights here";
    for (const Save& save : getSaves()) {
        SCOPED_TRACE(save.name);
        expectFailure(
            runInFolder(save.arguments, prefix),
            "numdict: File '" + getReportedName(save.target) +
                ".unfinished' cannot be opened for writing. Check that its directory exists and that you may write "
                "there. [open failed with error 13: Permission denied]\n",
            before);
    }
    std::filesystem::permissions(m_directory.getPath(""), std::filesystem::perms::owner_all);
}

TEST_F(StoreSave, AFolderIsNoTarget) {
    std::filesystem::create_directory(m_directory.getPath("folder"));
    const std::map<std::string, std::string> before = readFolder();
    const std::string message = "numdict: File '" + m_directory.getPath("folder") +
                                "' cannot be opened for writing. Check that its directory exists and that you may "
                                "write there. [open failed with error 21: Is a directory]\n";
    for (const char* const arguments :
         {"restore records -o folder", "compact sample32.store -o folder", "compact sample32.store --map folder",
          "check --repair sample32.store -o folder", "dump sample32.store -o folder"}) {
        SCOPED_TRACE(arguments);
        expectFailure(runInFolder(arguments), message, before);
    }
    const ProgramResult result = runInFolder("import more.ttl --store folder");
    EXPECT_EQ(result.m_exitCode, 2);
    EXPECT_NE(result.m_errors.find("'folder' is not a regular file"), std::string::npos) << result.m_errors;
    EXPECT_TRUE(readFolder() == before);
}
