#pragma once

#include "core/data-store/dictionary/ResourceValue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kavix::numdict {

/// How resources are written, one per line: ID, datatype, Turtle literal.
///
///   TEXT        17<TAB>xsd:int<TAB>"5"^^xsd:int          aligned by blanks on a terminal
///   CSV         17,xsd:int,"""5""^^xsd:int"              after a line with the names of the columns
///   JSON_LINES  {"id":17,"datatype":"xsd:int","literal":"\"5\"^^xsd:int"}
///   N_TRIPLES   <urn:kavix:resource:17> <http://www.w3.org/1999/02/22-rdf-syntax-ns#value>
///               "5"^^<http://www.w3.org/2001/XMLSchema#int> .
enum class RecordFormat : uint8_t { TEXT, CSV, JSON_LINES, N_TRIPLES };

/// "text", "csv", "jsonl", "ntriples".
std::optional<RecordFormat> tryGetRecordFormat(std::string_view name);

inline constexpr char RECORD_FORMAT_NAMES[] = "text, csv, jsonl, ntriples";

/// The first line of CSV.
inline constexpr std::string_view CSV_HEADER = "id,datatype,literal";

/// Writes resources as lines.
class RecordWriter {

public:

    /// @param endOfResourceIDs  all IDs are below; for aligning
    RecordWriter(RecordFormat format, bool isAligned, uint64_t endOfResourceIDs);

    /// Appends the lines before the first record.
    void appendHeader(std::string& text) const;

    void appendRecord(uint64_t resourceID, const ResourceValue& value, std::string& text) const;

    /// Appends a line of text for something without ID, or without value: empty cells show as "-". The note comes
    /// last.
    void appendMissing(
        std::string_view resourceID, std::string_view datatype, std::string_view literal, std::string_view note,
        std::string& text) const;

private:

    void appendCells(
        std::string_view resourceID, std::string_view datatype, std::string_view literal, std::string& text) const;

    const RecordFormat m_format;
    const bool m_isAligned;
    const size_t m_resourceIDWidth;
};

struct ResourceRecord {
    uint64_t m_resourceID;
    ResourceValue m_value;
};

/// Reads a line of TEXT, CSV or JSON_LINES, without its line end; the format is detected. The datatype
/// must be that of the literal. Otherwise returns what is wrong, a sentence.
std::variant<ResourceRecord, std::string> parseRecord(std::string_view line);

/// Reads a number of decimal digits, at least one; nothing beyond 64 bits.
std::optional<uint64_t> tryParseResourceID(std::string_view text);

}
