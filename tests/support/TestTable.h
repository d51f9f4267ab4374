#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kavix::test {

/// A row of a TestTable: fields by column.
class TestRow {

public:

    TestRow(std::string place, std::map<std::string, std::string> fields);

    /// File, line and name, for SCOPED_TRACE: "XSDDecimalForms.tsv:12: minus zero".
    const std::string& getPlace() const { return m_place; }

    /// @throws std::runtime_error  there is no such column
    const std::string& getText(const std::string& column) const;

    /// @throws std::runtime_error  the field is not a signed 64-bit number
    int64_t getNumber(const std::string& column) const;

private:

    std::string m_place;
    std::map<std::string, std::string> m_fields;
};

/// A table of test rows in a text file next to its test, where it is easier to read and to extend than in C++.
///
///   # a comment, as many as there are
///   name<tab>form<tab>status      the columns; the first is "name", and names differ
///   minus zero<tab>-0<tab>valid   a row, with a field for each column
///
/// In a field \t \n \0 \\ and \xD9 are bytes, and {0*30} is 30 times the character 0. A file that is missing, has no
/// row or a wrong one is a std::runtime_error, and so fails the test.
class TestTable {

public:

    /// @param fileName  below tests/
    explicit TestTable(const std::string& fileName);

    /// All rows.
    const std::vector<TestRow>& getRows() const { return m_rows; }

    /// The rows that have a value in a column.
    /// @throws std::runtime_error  there is none
    std::vector<TestRow> getRows(const std::string& column, const std::string& value) const;

private:

    std::string m_fileName;
    std::vector<TestRow> m_rows;
};

}
