#include "numdict/import/ReportPrinter.h"

#include "numdict/console/JSON.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/TextTable.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace kavix::numdict {

namespace {

/// At most this much of a literal is shown; the whole one is in the JSON report and the rejected statements.
constexpr size_t MAXIMUM_LITERAL_LENGTH = 80;

std::string shorten(const std::string& text) {
    if (text.size() <= MAXIMUM_LITERAL_LENGTH)
        return text;
    size_t length = MAXIMUM_LITERAL_LENGTH;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) // not inside a character
        --length;
    return text.substr(0, length) + "…";
}

std::string formatDatatypes(const ImportReport& report) {
    TextTable table;
    table.addRow({"datatype", "literals", "accepted", "", "distinct values", "not canonical", "rejected"});
    const auto addRow = [&table](const std::string& name, const DatatypeCounts& counts) {
        table.addRow(
            {name, formatCount(counts.m_literals), formatCount(counts.m_accepted),
             formatShare(counts.m_accepted, counts.m_literals), formatCount(counts.m_distinctValues),
             formatCount(counts.m_nonCanonical), formatCount(counts.getRejected())});
    };
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS)
        if (report.m_datatypes[datatypeID].m_literals != 0)
            addRow(getDatatypeName(datatypeID), report.m_datatypes[datatypeID]);
    addRow("all", report.m_total);
    return table.format();
}

std::string formatRejections(const ImportReport& report) {
    TextTable table;
    std::vector<std::string> header{"datatype"};
    for (const LexicalFormStatus reason : REJECTION_REASONS)
        header.push_back(getReasonPhrase(reason));
    table.addRow(std::move(header));
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS) {
        const DatatypeCounts& counts = report.m_datatypes[datatypeID];
        if (counts.getRejected() == 0)
            continue;
        std::vector<std::string> row{getDatatypeName(datatypeID)};
        for (const LexicalFormStatus reason : REJECTION_REASONS)
            row.push_back(formatCount(counts.m_rejected[reason]));
        table.addRow(std::move(row));
    }
    std::string text = fmt::format(
        "\nRejected literals: {} ({} of all)\n{}", formatCount(report.m_total.getRejected()),
        formatShare(report.m_total.getRejected(), report.m_total.m_literals), table.format());
    const RejectedExample* previous = nullptr;
    for (const RejectedExample& example : report.m_rejectedExamples) {
        if (previous == nullptr || previous->m_datatypeID != example.m_datatypeID ||
            previous->m_reason != example.m_reason) {
            const uint64_t count = report.m_datatypes[example.m_datatypeID].m_rejected[example.m_reason];
            text += fmt::format(
                "\n{} {}{}\n", getDatatypeName(example.m_datatypeID), getReasonPhrase(example.m_reason),
                count > RejectedExamples::LIMIT
                    ? fmt::format(", the first {} of {}", RejectedExamples::LIMIT, formatCount(count))
                    : std::string());
        }
        text += fmt::format(
            "  {}:{}: {}\n", report.m_paths[example.m_fileIndex], example.m_line, shorten(example.m_literal));
        previous = &example;
    }
    return text;
}

std::string formatDamagedFiles(const ImportReport& report) {
    std::string text = "\nDamaged files\n";
    for (size_t index = 0; index < report.m_files.size(); ++index)
        if (const std::optional<FileError>& error = report.m_files[index].m_error) {
            text += "  " + report.m_paths[index];
            if (error->m_line != 0)
                text += fmt::format(":{}", error->m_line);
            if (error->m_column != 0)
                text += fmt::format(":{}", error->m_column);
            text += ": " + error->m_message + '\n';
        }
    return text;
}

std::string formatStore(const StoreOutcome& store) {
    if (!store.m_isWritten)
        return fmt::format(
            "\n{} was not written{}; it would have {} values, {} of them new\n", store.m_path,
            store.m_isNew ? "" : " and is unchanged", formatCount(store.m_values), formatCount(store.m_newValues));
    return fmt::format(
        "\n{} has {} values, {} of them new, and {}\n", store.m_path, formatCount(store.m_values),
        formatCount(store.m_newValues), formatSize(store.m_bytes));
}

JSON toJSON(const DatatypeCounts& counts) {
    JSON object;
    object["literals"] = counts.m_literals;
    object["accepted"] = counts.m_accepted;
    for (const LexicalFormStatus reason : REJECTION_REASONS)
        object[getReasonName(reason)] = counts.m_rejected[reason];
    object["nonCanonical"] = counts.m_nonCanonical;
    object["distinctValues"] = counts.m_distinctValues;
    return object;
}

JSON toJSON(const std::optional<FileError>& error) {
    if (!error)
        return nullptr;
    JSON object;
    object["line"] = error->m_line == 0 ? JSON() : JSON(error->m_line);
    object["column"] = error->m_column == 0 ? JSON() : JSON(error->m_column);
    object["message"] = error->m_message;
    return object;
}

}

std::string formatReport(const ImportReport& report) {
    uint64_t numberOfBytes = 0;
    for (const FileCounts& file : report.m_files)
        numberOfBytes += file.m_bytes;
    std::string text = fmt::format(
        "{} statements in {} {}, {}; {} numeric literals, {} distinct values\n\n", formatCount(report.getStatements()),
        formatCount(report.m_files.size()), report.m_files.size() == 1 ? "file" : "files", formatSize(numberOfBytes),
        formatCount(report.m_total.m_literals), formatCount(report.m_total.m_distinctValues));
    text += formatDatatypes(report);
    if (report.m_total.m_nonCanonical != 0)
        text += "  (not canonical: accepted, but get and dump print another text: 5 for +5, 1.5 for 1.50, 6.0 for "
                "\"6\"^^xsd:decimal)\n";
    if (report.m_total.getRejected() != 0)
        text += formatRejections(report);
    if (report.hasDamagedFiles())
        text += formatDamagedFiles(report);
    if (report.m_store)
        text += formatStore(*report.m_store);
    text += fmt::format(
        "\n{}, {} literals per second; {} of {} memory used ({}), {}\n", formatDuration(report.m_seconds),
        formatCount(static_cast<uint64_t>(report.getLiteralsPerSecond())), formatSize(report.m_memoryUsedBytes),
        formatSize(report.m_memoryBudgetBytes), formatShare(report.m_memoryUsedBytes, report.m_memoryBudgetBytes),
        formatHugePages(report.m_hugePageBytes));
    return text;
}

std::string formatReportAsJSON(const ImportReport& report) {
    JSON object;
    object["files"] = JSON::array();
    for (size_t index = 0; index < report.m_files.size(); ++index) {
        JSON file;
        file["path"] = report.m_paths[index];
        file["statements"] = report.m_files[index].m_statements;
        file["bytes"] = report.m_files[index].m_bytes;
        file["error"] = toJSON(report.m_files[index].m_error);
        object["files"].push_back(std::move(file));
    }
    object["datatypes"] = JSON::object();
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS)
        object["datatypes"][getDatatypeName(datatypeID)] = toJSON(report.m_datatypes[datatypeID]);
    object["total"] = toJSON(report.m_total);
    object["rejectedExamples"] = JSON::array();
    for (const RejectedExample& example : report.m_rejectedExamples) {
        JSON item;
        item["file"] = report.m_paths[example.m_fileIndex];
        item["line"] = example.m_line;
        item["literal"] = example.m_literal;
        item["datatype"] = getDatatypeName(example.m_datatypeID);
        item["reason"] = getReasonName(example.m_reason);
        item["message"] = example.m_message;
        if (const std::string text = getRejectionExplanation(example.m_datatypeID, example.m_reason); !text.empty())
            item["explanation"] = text;
        object["rejectedExamples"].push_back(std::move(item));
    }
    object["seconds"] = report.m_seconds;
    object["literalsPerSecond"] = report.getLiteralsPerSecond();
    object["memory"]["budget"] = report.m_memoryBudgetBytes;
    object["memory"]["used"] = report.m_memoryUsedBytes;
    object["memory"]["onHugePages"] = numdict::toJSON(report.m_hugePageBytes);
    if (report.m_store) {
        object["store"]["path"] = report.m_store->m_path;
        object["store"]["isNew"] = report.m_store->m_isNew;
        object["store"]["written"] = report.m_store->m_isWritten;
        object["store"]["values"] = report.m_store->m_values;
        object["store"]["newValues"] = report.m_store->m_newValues;
        object["store"]["bytes"] = report.m_store->m_bytes;
    }
    return formatJSON(object);
}

}
