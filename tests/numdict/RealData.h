#pragma once

#include <cstdlib>
#include <filesystem>

namespace kavix::numdict {

/// Where real RDF files lie, with counts made by other programs; absent on most machines.
inline std::filesystem::path getDataFolder() {
    const char* folder = std::getenv("KAVIX_TEST_DATA");
    return folder != nullptr ? std::filesystem::path(folder)
                             : std::filesystem::path(KAVIX_SOURCE_DIRECTORY) / "../shared/data";
}

}
