#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kavix {

class KavixException;

/// The source file and line that an error reports. Users and programs match errors by these, so they are written
/// constants that do not change when the code moves: the path from Engine/ on, without extension, and a line.
struct ErrorSite {
    const char* m_sourceFile;
    long m_line;
};

/// Whether an error reports this site.
bool comesFrom(const KavixException& exception, const ErrorSite& site) noexcept;

namespace ErrorSites {

inline constexpr ErrorSite PREMATURE_END_OF_FILE{"Engine/core/platform/stream/InputStream", 23};
inline constexpr ErrorSite CANNOT_LOAD_NUMERIC_DATATYPE{"Engine/core/data-store/dictionary/NumericDatatype", 521};
inline constexpr ErrorSite CANNOT_LOAD_PARALLEL_HASH_TABLE{
    "Engine/core/platform/collections/ParallelHashTableImpl", 472};
inline constexpr ErrorSite RESOURCE_CAPACITY_EXCEEDED_FOR_SINGLE_ID{
    "Engine/core/data-store/dictionary/DictionaryDatatype", 133};
inline constexpr ErrorSite RESOURCE_CAPACITY_EXCEEDED_FOR_BLOCK{
    "Engine/core/data-store/dictionary/DictionaryDatatype", 144};
inline constexpr ErrorSite INVALID_LEXICAL_FORM{"Engine/core/data-store/dictionary/NumericDatatype", 76};
inline constexpr ErrorSite VALUE_OUT_OF_RANGE{"Engine/core/data-store/dictionary/NumericDatatype", 78};
inline constexpr ErrorSite OUT_OF_MEMORY{"Engine/core/platform/system/MemoryManager", 71};
inline constexpr ErrorSite REGION_CAPACITY_EXCEEDED{"Engine/core/platform/system/MemoryRegion", 242};
inline constexpr ErrorSite CANNOT_COMMIT_MEMORY{"Engine/core/platform/system/MemoryRegion", 167};
inline constexpr ErrorSite CANNOT_RESERVE_ADDRESS_SPACE{"Engine/core/platform/system/MemoryRegion", 212};
inline constexpr ErrorSite THREAD_SLOTS_EXHAUSTED{"Engine/core/platform/collections/ThreadSlots", 70};
inline constexpr ErrorSite CANNOT_WATCH_THREAD_END{"Engine/core/platform/collections/ThreadSlots", 77};
inline constexpr ErrorSite UNKNOWN_DATATYPE{"Engine/core/data-store/dictionary/Dictionary", 40};
inline constexpr ErrorSite UNKNOWN_RESOURCE_ID{"Engine/core/data-store/dictionary/Dictionary", 50};
inline constexpr ErrorSite INVALID_BINARY_VALUE{"Engine/core/data-store/dictionary/Dictionary", 60};
inline constexpr ErrorSite INVALID_OPTION{"Engine/core/data-store/dictionary/Dictionary", 70};
inline constexpr ErrorSite MEMORY_BUDGET_IN_USE{"Engine/core/data-store/dictionary/Dictionary", 80};
inline constexpr ErrorSite CANNOT_SYNCHRONISE_FILE{"Engine/core/platform/stream/FileOutputStream", 90};
inline constexpr ErrorSite CANNOT_LOCK_FILE{"Engine/core/platform/stream/ReplacingFile", 50};
inline constexpr ErrorSite CANNOT_RENAME_FILE{"Engine/core/platform/stream/ReplacingFile", 90};
inline constexpr ErrorSite CANNOT_SYNCHRONISE_FOLDER{"Engine/core/platform/stream/ReplacingFile", 95};
inline constexpr ErrorSite INVALID_STORE{"Engine/core/data-store/dictionary/StoreReader", 30};
inline constexpr ErrorSite STORE_NEEDS_ADDRESS_SPACE{"Engine/core/data-store/dictionary/DictionaryStore", 50};
inline constexpr ErrorSite CANNOT_REWIND_SECTION{"Engine/core/data-store/dictionary/Checksum", 60};
inline constexpr ErrorSite DICTIONARY_NOT_EMPTY{"Engine/core/data-store/dictionary/Restoration", 20};
inline constexpr ErrorSite RESOURCE_ID_OUT_OF_RANGE{"Engine/core/data-store/embedding/Restoration", 60};
inline constexpr ErrorSite CONTRADICTING_RECORD{"Engine/core/data-store/dictionary/Restoration", 50};
inline constexpr ErrorSite TRANSACTION_RUNS{"Engine/core/data-store/dictionary/Dictionary", 90};
inline constexpr ErrorSite FAMILIES_NOT_READY{"Engine/core/data-store/embedding/Dictionary", 100};
inline constexpr ErrorSite TRANSACTION_HAS_ENDED{"Engine/core/data-store/dictionary/Transaction", 40};
inline constexpr ErrorSite INVALID_DECIMAL{"Engine/core/data-store/dictionary/XSDDecimal", 58};
inline constexpr ErrorSite DECIMAL_BEYOND_CAPACITY{"Engine/core/data-store/dictionary/XSDDecimal", 60};
inline constexpr ErrorSite INVALID_PREFIX_NAME{"Engine/core/data-store/dictionary/Prefixes", 40};
inline constexpr ErrorSite UNKNOWN_PROPERTY{"Engine/core/data-store/dictionary/ComponentInfo", 30};
inline constexpr ErrorSite CANNOT_OPEN_INPUT_FILE{"Engine/core/platform/stream/FileInputStream", 20};
inline constexpr ErrorSite CANNOT_READ_FILE{"Engine/core/platform/stream/FileInputStream", 30};
inline constexpr ErrorSite CANNOT_REWIND_FILE{"Engine/core/platform/stream/FileInputStream", 40};
inline constexpr ErrorSite CANNOT_OPEN_OUTPUT_FILE{"Engine/core/platform/stream/FileOutputStream", 20};
inline constexpr ErrorSite CANNOT_WRITE_FILE{"Engine/core/platform/stream/FileOutputStream", 30};
inline constexpr ErrorSite CANNOT_CLOSE_FILE{"Engine/core/platform/stream/FileOutputStream", 40};

}

/// The errors of the library, thrown with their exact messages. Out of line, so that no message is composed and no
/// exception object is built on a path that does not fail.
namespace Errors {

[[noreturn]] void throwPrematureEndOfFile();

[[noreturn]] void throwCannotLoadNumericDatatype();

[[noreturn]] void throwCannotLoadParallelHashTable();

/// @param site  one of the two RESOURCE_CAPACITY_EXCEEDED sites
[[noreturn]] void throwResourceCapacityExceeded(const ErrorSite& site);

/// @param datatypeName  the IRI of the datatype as Turtle writes it
[[noreturn]] void throwInvalidLexicalForm(const char* lexicalForm, size_t length, std::string&& datatypeName);

[[noreturn]] void throwValueOutOfRange(const char* lexicalForm, size_t length, std::string&& datatypeName);

[[noreturn]] void throwOutOfMemory(uint64_t totalBytes, uint64_t freeBytes, uint64_t requestedBytes);

[[noreturn]] void throwRegionCapacityExceeded(uint64_t requestedItems, uint64_t maximumNumberOfItems);

[[noreturn]] void throwCannotCommitMemory(int errorNumber);

[[noreturn]] void throwCannotReserveAddressSpace(int errorNumber, uint64_t numberOfBytes);

/// @param maximumNumberOfThreads  how many threads may use dictionaries at the same time
[[noreturn]] void throwThreadSlotsExhausted(uint64_t maximumNumberOfThreads);

/// @param systemCall  a string literal
[[noreturn]] void throwCannotWatchThreadEnd(const char* systemCall, int errorNumber);

[[noreturn]] void throwUnknownDatatype(std::string&& datatypeIRI);

[[noreturn]] void throwUnknownDatatypeID(uint64_t datatypeID);

[[noreturn]] void throwUnknownResourceID(uint64_t resourceID);

/// @param reason  what is wrong; ends a sentence
[[noreturn]] void throwInvalidBinaryValue(uint64_t datatypeID, std::string&& reason);

/// The value of an option is less than minimum or greater than maximum.
[[noreturn]] void throwInvalidOption(std::string&& option, uint64_t value, uint64_t minimum, uint64_t maximum);

[[noreturn]] void throwMemoryBudgetInUse(uint64_t requestedBytes, uint64_t usedBytes);

[[noreturn]] void throwCannotSynchroniseFile(int errorNumber, std::string&& fileName);

[[noreturn]] void throwCannotLockFile(int errorNumber, std::string&& fileName);

[[noreturn]] void throwCannotRenameFile(int errorNumber, std::string&& oldFileName, std::string&& newFileName);

/// @param fileName  the file that has already been replaced
[[noreturn]] void throwCannotSynchroniseFolder(int errorNumber, std::string&& folder, std::string&& fileName);

/// @param section  the part of the store that is wrong
/// @param reason   what is wrong, a clause without a full stop
[[noreturn]] void throwInvalidStore(std::string&& section, std::string&& reason);

/// The system refused the address space that a store's maximum resource ID requires.
[[noreturn]] void throwStoreNeedsAddressSpace(int errorNumber, uint64_t maxResourceID);

[[noreturn]] void throwCannotRewindSection();

[[noreturn]] void throwDictionaryNotEmpty();

/// A resource ID that a caller passed is less than minimum or greater than maximum.
[[noreturn]] void throwResourceIDOutOfRange(uint64_t resourceID, uint64_t minimum, uint64_t maximum);

/// @param reason  the contradiction, a clause without a full stop
[[noreturn]] void throwContradictingRecord(uint64_t resourceID, std::string&& reason);

[[noreturn]] void throwFamiliesNotReady();

[[noreturn]] void throwTransactionRuns();

[[noreturn]] void throwTransactionHasEnded();

[[noreturn]] void throwInvalidDecimal(const char* lexicalForm, size_t length);

[[noreturn]] void throwDecimalBeyondCapacity(const char* lexicalForm, size_t length);

[[noreturn]] void throwInvalidPrefixName(std::string&& name);

[[noreturn]] void throwUnknownProperty(std::string&& component, std::string&& property);

// Files: each message names the file and what the user can do.

[[noreturn]] void throwCannotOpenInputFile(int errorNumber, std::string&& fileName);

[[noreturn]] void throwCannotReadFile(int errorNumber, std::string&& fileName);

[[noreturn]] void throwCannotRewindFile(int errorNumber, std::string&& fileName);

[[noreturn]] void throwCannotOpenOutputFile(int errorNumber, std::string&& fileName);

[[noreturn]] void throwCannotWriteFile(int errorNumber, std::string&& fileName);

[[noreturn]] void throwCannotCloseFile(int errorNumber, std::string&& fileName);

}

}
