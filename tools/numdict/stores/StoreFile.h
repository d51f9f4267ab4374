#pragma once

#include "core/data-store/embedding/Dictionary.h"
#include "numdict/stores/DictionaryOptions.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace kavix {

class ReplacingFile;

}

namespace kavix::numdict {

/// A store cannot be opened; the message names the file, the section and the reason.
class StoreFailure : public std::runtime_error {

public:

    using std::runtime_error::runtime_error;
};

/// Throws unless there is a file to open, before anything is done.
/// @throws UsageError  there is none
void checkStoreExists(const std::string& command, const std::string& path);

/// The width of a store's resource IDs, from its header.
/// @throws StoreFailure  the header is damaged
ResourceIDWidth readResourceIDWidth(const std::string& path);

/// Opens a store within a memory budget.
/// @throws StoreFailure    the store is damaged, or not a store
/// @throws KavixException  the budget is too small, or the file cannot be read
std::unique_ptr<Dictionary> openStoreFile(
    const std::string& path, uint64_t memoryBudgetBytes, const DictionaryOptions& options);

/// The same with the budget of the options.
std::unique_ptr<Dictionary> openStoreFile(
    const std::string& command, const std::string& path, const DictionaryOptions& options);

/// Writes a dictionary to a file that is still to be committed; returns its size in bytes.
uint64_t saveStoreFile(const Dictionary& dictionary, ReplacingFile& file, bool isQuiet);

}
