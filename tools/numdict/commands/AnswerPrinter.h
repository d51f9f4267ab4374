#pragma once

#include "core/data-store/embedding/Dictionary.h"
#include "numdict/stores/ResourceRecord.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// Looks up literals and IDs in a dictionary and prints one line for each: the resource, or what is wrong. Remembers
/// whether all were found.
class AnswerPrinter {

public:

    using Write = std::function<void(std::string_view text)>;

    /// @param isAligned  pad columns for people instead of separating them by tabs; not with JSON
    AnswerPrinter(const Dictionary& dictionary, bool isJSON, bool isAligned, Write write);

    /// Answers which ID a literal has, which is written as in Turtle.
    void resolve(std::string_view literal);

    /// Answers which literal has an ID.
    void get(uint64_t resourceID);

    /// The same for text, which may not be an ID at all.
    void get(std::string_view text);

    /// EXIT_ALL_WELL if all were found, else EXIT_DAMAGED_INPUT.
    int getExitCode() const noexcept;

private:

    /// An answer without a resource; empty fields are unknown.
    struct Miss {
        std::string_view m_resourceID;
        std::string_view m_datatype;
        std::string_view m_literal;
        std::string_view m_reason; // as programs read it
        std::string_view m_message;
        std::string_view m_explanation; // follows the message
    };

    void print(uint64_t resourceID, const ResourceValue& value);

    void print(const Miss& miss);

    const Dictionary& m_dictionary;
    const bool m_isJSON;
    const RecordWriter m_recordWriter;
    const Write m_write;
    bool m_areAllFound = true;
    std::string m_text;
};

}
