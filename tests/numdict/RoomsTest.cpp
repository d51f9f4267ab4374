// Of no single source: the rooms of the tool and the packages stay in their places.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>

namespace {

const std::string TOOL = KAVIX_SOURCE_DIRECTORY "/tools/numdict";

/// What the sources of each room may include: rooms, the library ("core") and packages, by the first part of the path.
const std::map<std::string, std::set<std::string>> PERMITTED{
    {"console", {"console", "fmt", "nlohmann"}},
    {"input", {"input", "console", "fmt", "serd", "zlib.h"}},
    {"literals", {"literals", "core", "fmt"}},
    {"stores", {"stores", "literals", "input", "console", "core", "fmt", "nlohmann"}},
    {"import", {"import", "stores", "literals", "input", "console", "core", "fmt", "nlohmann"}},
    {"bench", {"bench", "import", "stores", "literals", "input", "console", "core", "fmt", "nlohmann"}},
    {"commands",
     {"commands", "bench", "import", "stores", "literals", "input", "console", "core", "fmt", "nlohmann", "CLI"}},
};

/// The first part of the path that a line includes, of a room that of the path in the tool; empty for anything else.
std::string getIncluded(const std::string& line) {
    static const std::regex INCLUDE("#include [<\"](?:numdict/)?([^/>\"]+)[^>\"]*[>\"]");
    std::smatch match;
    return std::regex_match(line, match, INCLUDE) ? match[1].str() : std::string();
}

}

TEST(Rooms, IncludesPointFromHigherRoomsToLowerOnes) {
    const std::set<std::string> watched{"console", "input", "literals", "stores",   "import", "bench", "commands",
                                        "core",    "fmt",   "serd",     "nlohmann", "CLI",    "zlib.h"};
    std::map<std::string, size_t> numberOfIncludes;
    for (const auto& [room, permitted] : PERMITTED)
        for (const auto& entry : std::filesystem::directory_iterator(TOOL + "/" + room)) {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);)
                if (const std::string included = getIncluded(line); watched.contains(included)) {
                    EXPECT_TRUE(permitted.contains(included)) << entry.path() << ": " << line;
                    ++numberOfIncludes[room];
                }
        }
    for (const auto& [room, permitted] : PERMITTED)
        EXPECT_GT(numberOfIncludes[room], 5u) << room;
}

TEST(Rooms, EveryDirectoryIsARoom) {
    for (const auto& entry : std::filesystem::directory_iterator(TOOL))
        if (entry.is_directory()) {
            EXPECT_TRUE(PERMITTED.contains(entry.path().filename())) << entry.path();
            EXPECT_TRUE(std::filesystem::exists(entry.path() / "README.md")) << entry.path();
        }
}
