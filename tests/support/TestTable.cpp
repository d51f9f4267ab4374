#include "support/TestTable.h"

#include <charconv>
#include <cstddef>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kavix::test {

namespace {

[[noreturn]] void fail(const std::string& place, const std::string& what) {
    throw std::runtime_error(place + ": " + what);
}

std::vector<std::string> split(const std::string& line) {
    std::vector<std::string> fields(1);
    for (const char character : line)
        if (character == '\t')
            fields.emplace_back();
        else
            fields.back() += character;
    return fields;
}

template<typename Number>
Number parse(const std::string& text, int base, const std::string& place) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size())
        fail(place, "not a number: '" + text + "'");
    return number;
}

/// Replaces escapes and repetitions.
std::string decode(const std::string& field, const std::string& place) {
    std::string text;
    for (size_t position = 0; position < field.size(); ++position) {
        const std::string rest = field.substr(position);
        if (rest.starts_with("\\x")) {
            text += static_cast<char>(parse<unsigned>(rest.substr(2, 2), 16, place));
            position += 3;
        }
        else if (rest[0] == '\\') {
            const size_t escape = std::string("tn0\\").find(rest.size() > 1 ? rest[1] : '?');
            if (escape == std::string::npos)
                fail(place, "unknown escape in '" + field + "'");
            text += "\t\n\0\\"[escape];
            ++position;
        }
        else if (rest[0] == '{') {
            const size_t end = rest.find('}');
            if (end == std::string::npos || end < 4 || rest[2] != '*')
                fail(place, "wrong repetition in '" + field + "'");
            text.append(parse<unsigned>(rest.substr(3, end - 3), 10, place), rest[1]);
            position += end;
        }
        else
            text += rest[0];
    }
    return text;
}

}

TestRow::TestRow(std::string place, std::map<std::string, std::string> fields) :
    m_place(std::move(place)),
    m_fields(std::move(fields)) { }

const std::string& TestRow::getText(const std::string& column) const {
    const auto found = m_fields.find(column);
    if (found == m_fields.end())
        fail(m_place, "there is no column '" + column + "'");
    return found->second;
}

int64_t TestRow::getNumber(const std::string& column) const {
    return parse<int64_t>(getText(column), 10, m_place);
}

TestTable::TestTable(const std::string& fileName) :
    m_fileName(fileName) {
    std::ifstream file(KAVIX_TESTS_DIRECTORY "/" + fileName);
    std::vector<std::string> columns;
    std::set<std::string> names;
    size_t lineNumber = 0;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        if (line.starts_with('#'))
            continue;
        const std::vector<std::string> fields = split(line);
        const std::string place = fileName + ":" + std::to_string(lineNumber) + ": " + fields[0];
        if (columns.empty()) {
            columns = fields;
            if (columns[0] != "name")
                fail(place, "the first column must be 'name'");
            continue;
        }
        if (fields.size() != columns.size())
            fail(place, "it has " + std::to_string(fields.size()) + " fields");
        if (fields[0].empty() || !names.insert(fields[0]).second)
            fail(place, "the name is empty or used twice");
        std::map<std::string, std::string> row;
        for (size_t index = 0; index < fields.size(); ++index)
            row[columns[index]] = decode(fields[index], place);
        m_rows.emplace_back(place, std::move(row));
    }
    if (m_rows.empty())
        fail(fileName, "the file is missing or has no rows");
}

std::vector<TestRow> TestTable::getRows(const std::string& column, const std::string& value) const {
    std::vector<TestRow> rows;
    for (const TestRow& row : m_rows)
        if (row.getText(column) == value)
            rows.push_back(row);
    if (rows.empty())
        fail(m_fileName, "no row has '" + value + "' as " + column);
    return rows;
}

}
