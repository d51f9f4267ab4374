#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kavix::numdict {

/// Rows of cells.
class TextTable {

public:

    void addRow(std::vector<std::string>&& cells) { m_rows.push_back(std::move(cells)); }

    /// For people: aligned columns, the first to the left, the others to the right.
    std::string format() const;

    /// For programs: cells separated by tabs.
    std::string formatWithTabs() const;

private:

    std::vector<std::vector<std::string>> m_rows;
};

}
