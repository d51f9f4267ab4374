#include "numdict/console/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace kavix::numdict {

std::string TextTable::format() const {
    std::vector<size_t> widths;
    for (const std::vector<std::string>& row : m_rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    std::string text;
    for (const std::vector<std::string>& row : m_rows) {
        text += "  ";
        for (size_t column = 0; column < row.size(); ++column)
            text += column == 0 ? fmt::format("{:<{}}", row[column], widths[column])
                                : fmt::format("  {:>{}}", row[column], widths[column]);
        text += '\n';
    }
    return text;
}

std::string TextTable::formatWithTabs() const {
    std::string text;
    for (const std::vector<std::string>& row : m_rows) {
        for (size_t column = 0; column < row.size(); ++column) {
            text += column == 0 ? "" : "\t";
            text += row[column];
        }
        text += '\n';
    }
    return text;
}

}
