#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

namespace kavix::test {

/// A folder of its own for a test; removed with everything in it.
class TemporaryFolder {

public:

    TemporaryFolder() :
        m_path((std::filesystem::temp_directory_path() / "kavix-test-XXXXXX").string()) {
        if (::mkdtemp(m_path.data()) == nullptr)
            throw std::runtime_error("no temporary folder can be made");
    }

    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& getPath() const { return m_path; }

    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

    /// The names in the folder.
    std::set<std::string> list() const {
        std::set<std::string> names;
        for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(m_path))
            names.insert(entry.path().filename().string());
        return names;
    }

private:

    std::string m_path;
};

inline void writeFile(const std::string& fileName, const std::string& content) {
    std::ofstream(fileName, std::ios::binary) << content;
}

inline std::string readFile(const std::string& fileName) {
    std::ifstream input(fileName, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

}
