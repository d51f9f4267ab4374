// Of scripts/try: where it leaves the log of a build.

#include "numdict/ProgramRunner.h"

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

using namespace kavix::numdict;

namespace {

void writeScript(const std::filesystem::path& path, const std::string& commands) {
    std::filesystem::create_directories(path.parent_path());
    kavix::test::writeFile(path, "#!/bin/sh\n" + commands + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

}

TEST(TryScript, AFailedBuildLeavesItsLogInTheBuildDirectory) {
    const struct {
        const char* name;
        const char* cmake; // what stands in for it
    } rows[] = {
        {"configuring fails", "echo 'no compiler here'; exit 1"},
        {"building fails", "[ \"$1\" = --preset ] || { echo 'no compiler here'; exit 1; }"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TemporaryDirectory directory;
        const std::filesystem::path root = directory.getPath("source");
        std::filesystem::create_directories(root / "scripts");
        std::filesystem::copy_file(KAVIX_SOURCE_DIRECTORY "/scripts/try", root / "scripts/try");
        writeScript(root / "scripts/setup", "exit 0");
        writeScript(directory.getPath("programs/cmake"), row.cmake);
        const std::string errors = directory.getPath("errors");
        const std::string command = "PATH='" + directory.getPath("programs") + "':\"$PATH\" '" +
                                    (root / "scripts/try").string() + "' > /dev/null 2> '" + errors + "'";
        const int status = std::system(command.c_str());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1);
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(root))
            names.insert(entry.path().filename());
        EXPECT_EQ(names, (std::set<std::string>{"build", "scripts"}));
        EXPECT_NE(readFile(root / "build/release/try.log").find("no compiler here"), std::string::npos);
        EXPECT_NE(readFile(errors).find("no compiler here"), std::string::npos);
        EXPECT_NE(readFile(errors).find("build/release/try.log"), std::string::npos) << readFile(errors);
    }
}
