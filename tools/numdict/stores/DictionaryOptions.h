#pragma once

#include "core/data-store/embedding/Dictionary.h"

#include <cstdint>
#include <string>

namespace kavix::numdict {

/// The options of every command that makes or opens a dictionary.
struct DictionaryOptions {
    std::string m_memory; // empty: half of the machine's
    bool m_isTrusted = false; // open stores without checking every value
    bool m_isQuiet = false; // no progress
    bool m_isWithoutHugePages = false; // do not ask the system for huge pages
};

/// What --memory says, in bytes; for an empty text half of the machine's memory, at least 1 GiB.
/// @throws UsageError  the text is not a size
uint64_t getMemoryBudget(const std::string& command, const std::string& text);

/// How a new dictionary is made.
/// @param resourceIDWidth  64, or any other number for 32
Dictionary::Options makeDictionaryOptions(
    uint64_t memoryBudgetBytes, const DictionaryOptions& options, unsigned resourceIDWidth);

}
