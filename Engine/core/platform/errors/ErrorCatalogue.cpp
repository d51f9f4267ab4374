#include "core/platform/errors/ErrorCatalogue.h"

#include "core/platform/errors/KavixException.h"
#include "core/platform/errors/SystemCallException.h"

#include <utility>

namespace kavix {

bool comesFrom(const KavixException& exception, const ErrorSite& site) noexcept {
    return exception.getLine() == site.m_line && exception.getSourceFile() == site.m_sourceFile;
}

}

namespace kavix::Errors {

namespace {

template<typename... Pieces>
[[noreturn]] void throwKavixException(const ErrorSite& site, Pieces&&... pieces) {
    throw KavixException(site.m_sourceFile, site.m_line, KavixException::NO_CAUSES, std::forward<Pieces>(pieces)...);
}

template<typename... Pieces>
[[noreturn]] void throwSystemCallException(
    const ErrorSite& site, const char* systemCall, int errorNumber, Pieces&&... pieces) {
    throw SystemCallException(
        site.m_sourceFile, site.m_line, KavixException::NO_CAUSES, systemCall, errorNumber,
        std::forward<Pieces>(pieces)...);
}

}

// ---- Lexical forms. They are quoted as written: with whatever bytes they have, and all of them.

void throwInvalidLexicalForm(const char* lexicalForm, size_t length, std::string&& datatypeName) {
    throwKavixException(
        ErrorSites::INVALID_LEXICAL_FORM, "Lexical form '", std::string(lexicalForm, length),
        "' is invalid for datatype ", std::move(datatypeName), ".");
}

void throwValueOutOfRange(const char* lexicalForm, size_t length, std::string&& datatypeName) {
    throwKavixException(
        ErrorSites::VALUE_OUT_OF_RANGE, "Value '", std::string(lexicalForm, length),
        "' is not in the range of datatype ", std::move(datatypeName), ".");
}

void throwInvalidDecimal(const char* lexicalForm, size_t length) {
    throwKavixException(
        ErrorSites::INVALID_DECIMAL, "Lexical form '", std::string(lexicalForm, length),
        "' is invalid for datatype xsd:decimal.");
}

void throwDecimalBeyondCapacity(const char* lexicalForm, size_t length) {
    throwKavixException(
        ErrorSites::DECIMAL_BEYOND_CAPACITY, "Value '", std::string(lexicalForm, length),
        "' exceeds the capacity of datatype xsd:decimal: at most 19 fraction digits and a signed 64-bit unscaled "
        "value.");
}

// ---- Names and numbers that callers pass.

void throwUnknownDatatype(std::string&& datatypeIRI) {
    throwKavixException(ErrorSites::UNKNOWN_DATATYPE, "No datatype has the IRI '", std::move(datatypeIRI), "'.");
}

void throwUnknownDatatypeID(uint64_t datatypeID) {
    throwKavixException(ErrorSites::UNKNOWN_DATATYPE, "No datatype has the ID ", datatypeID, ".");
}

void throwUnknownResourceID(uint64_t resourceID) {
    throwKavixException(ErrorSites::UNKNOWN_RESOURCE_ID, "No resource has the ID ", resourceID, ".");
}

void throwInvalidBinaryValue(uint64_t datatypeID, std::string&& reason) {
    throwKavixException(
        ErrorSites::INVALID_BINARY_VALUE, "The binary value of the datatype with ID ", datatypeID,
        " is invalid: ", std::move(reason), ".");
}

void throwInvalidOption(std::string&& option, uint64_t value, uint64_t minimum, uint64_t maximum) {
    throwKavixException(
        ErrorSites::INVALID_OPTION, "Option '", std::move(option), "' cannot be ", value, ": the smallest value is ",
        minimum, " and the largest is ", maximum, ".");
}

void throwResourceIDOutOfRange(uint64_t resourceID, uint64_t minimum, uint64_t maximum) {
    throwKavixException(
        ErrorSites::RESOURCE_ID_OUT_OF_RANGE, "Resource ID ", resourceID, " is out of range: the smallest is ", minimum,
        " and the largest is ", maximum, ".");
}

void throwInvalidPrefixName(std::string&& name) {
    throwKavixException(
        ErrorSites::INVALID_PREFIX_NAME, "'", std::move(name),
        "' is not a valid Turtle prefix: it must start with a letter, continue with letters, digits, '_', '-' and '.', "
        "and not end with '.'.");
}

void throwUnknownProperty(std::string&& component, std::string&& property) {
    throwKavixException(
        ErrorSites::UNKNOWN_PROPERTY, "Component '", std::move(component), "' has no numeric property '",
        std::move(property), "'.");
}

void throwInvalidStore(std::string&& section, std::string&& reason) {
    throwKavixException(
        ErrorSites::INVALID_STORE, "The store cannot be opened: section '", std::move(section),
        "': ", std::move(reason), ".");
}

void throwContradictingRecord(uint64_t resourceID, std::string&& reason) {
    throwKavixException(
        ErrorSites::CONTRADICTING_RECORD, "The record of resource ", resourceID,
        " contradicts another record: ", std::move(reason), ".");
}

// ---- Operations at the wrong time.

void throwDictionaryNotEmpty() {
    throwKavixException(
        ErrorSites::DICTIONARY_NOT_EMPTY,
        "Only an empty dictionary can be restored, but this one has already assigned resource IDs.");
}

void throwCannotRewindSection() {
    throwKavixException(ErrorSites::CANNOT_REWIND_SECTION, "A section of a store cannot be read twice.");
}

void throwFamiliesNotReady() {
    throwKavixException(
        ErrorSites::FAMILIES_NOT_READY,
        "A dictionary cannot be created before the library's own static objects; create it later.");
}

void throwTransactionRuns() {
    throwKavixException(
        ErrorSites::TRANSACTION_RUNS, "Another transaction is writing to this dictionary; wait until it has been "
                                      "committed or rolled back, or write through it.");
}

void throwTransactionHasEnded() {
    throwKavixException(
        ErrorSites::TRANSACTION_HAS_ENDED,
        "The transaction has already been committed or rolled back; begin another one to write.");
}

// ---- Capacity and memory.

void throwResourceCapacityExceeded(const ErrorSite& site) {
    throwKavixException(site, "The capacity of Kavix for the number of resources has been exceeded.");
}

void throwThreadSlotsExhausted(uint64_t maximumNumberOfThreads) {
    throwKavixException(
        ErrorSites::THREAD_SLOTS_EXHAUSTED, "At most ", maximumNumberOfThreads,
        " threads can use dictionaries at the same time; wait until one of them has ended.");
}

void throwMemoryBudgetInUse(uint64_t requestedBytes, uint64_t usedBytes) {
    throwKavixException(
        ErrorSites::MEMORY_BUDGET_IN_USE, "The memory budget cannot be set to ", requestedBytes, " bytes because ",
        usedBytes, " bytes are in use.");
}

void throwOutOfMemory(uint64_t totalBytes, uint64_t freeBytes, uint64_t requestedBytes) {
    throwKavixException(
        ErrorSites::OUT_OF_MEMORY, "The Kavix instance has run out of memory.\n[Extended information: ", totalBytes,
        " bytes were reserved for the system, of which ", freeBytes, " were free when an attempt to allocate ",
        requestedBytes, " bytes was made.]");
}

void throwRegionCapacityExceeded(uint64_t requestedItems, uint64_t maximumNumberOfItems) {
    throwKavixException(
        ErrorSites::REGION_CAPACITY_EXCEEDED, "Failed to ensure that a memory region could hold ", requestedItems,
        " items because it was initialized to hold at most ", maximumNumberOfItems, " items.");
}

// ---- Saved images.

void throwPrematureEndOfFile() {
    throwKavixException(ErrorSites::PREMATURE_END_OF_FILE, "Premature end of file.");
}

void throwCannotLoadNumericDatatype() {
    throwKavixException(ErrorSites::CANNOT_LOAD_NUMERIC_DATATYPE, "Invalid input file: cannot load NumericDatatype.");
}

void throwCannotLoadParallelHashTable() {
    throwKavixException(
        ErrorSites::CANNOT_LOAD_PARALLEL_HASH_TABLE, "Invalid input file: cannot load ParallelHashTable.");
}

// ---- System calls. appendSystemError() adds the call and the system's reason.

void throwCannotCommitMemory(int errorNumber) {
    throwSystemCallException(
        ErrorSites::CANNOT_COMMIT_MEMORY, "mprotect", errorNumber,
        "An error occurred during memory allocation. This is most likely due to the system running out of memory.");
}

void throwCannotReserveAddressSpace(int errorNumber, uint64_t numberOfBytes) {
    throwSystemCallException(
        ErrorSites::CANNOT_RESERVE_ADDRESS_SPACE, "mmap", errorNumber, "An error occurred while reserving ",
        numberOfBytes, " bytes of address space.");
}

void throwStoreNeedsAddressSpace(int errorNumber, uint64_t maxResourceID) {
    throwSystemCallException(
        ErrorSites::STORE_NEEDS_ADDRESS_SPACE, "mmap", errorNumber,
        "The store cannot be opened: its maximum resource ID, ", maxResourceID,
        ", needs more address space than the system allows. Raise the limit of the process (ulimit -v), or repair the "
        "store, which then gets a lower maximum.");
}

void throwCannotWatchThreadEnd(const char* systemCall, int errorNumber) {
    throwSystemCallException(
        ErrorSites::CANNOT_WATCH_THREAD_END, systemCall, errorNumber,
        "An error occurred while registering a thread-exit handler.");
}

void throwCannotOpenInputFile(int errorNumber, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_OPEN_INPUT_FILE, "open", errorNumber, "File '", std::move(fileName),
        "' cannot be opened for reading. Check that it exists and that you may read it.");
}

void throwCannotReadFile(int errorNumber, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_READ_FILE, "read", errorNumber, "An error occurred while reading file '",
        std::move(fileName), "'. Check that it is a regular file and that its device works.");
}

void throwCannotRewindFile(int errorNumber, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_REWIND_FILE, "lseek", errorNumber, "File '", std::move(fileName),
        "' cannot be read a second time. Use a regular file instead of a pipe or a terminal.");
}

void throwCannotOpenOutputFile(int errorNumber, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_OPEN_OUTPUT_FILE, "open", errorNumber, "File '", std::move(fileName),
        "' cannot be opened for writing. Check that its directory exists and that you may write there.");
}

void throwCannotWriteFile(int errorNumber, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_WRITE_FILE, "write", errorNumber, "An error occurred while writing file '",
        std::move(fileName), "', which is now incomplete. Check the free space on the device, then write it again.");
}

void throwCannotCloseFile(int errorNumber, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_CLOSE_FILE, "close", errorNumber, "An error occurred while closing file '",
        std::move(fileName), "', which may be incomplete. Check the free space on the device, then write it again.");
}

void throwCannotSynchroniseFile(int errorNumber, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_SYNCHRONISE_FILE, "fsync", errorNumber, "Not all of file '", std::move(fileName),
        "' could be written to the device; it may be incomplete. Check the device and its free space, then write it "
        "again.");
}

void throwCannotLockFile(int errorNumber, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_LOCK_FILE, "flock", errorNumber, "File '", std::move(fileName),
        "' is being written by another process. Wait until it has finished.");
}

void throwCannotRenameFile(int errorNumber, std::string&& oldFileName, std::string&& newFileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_RENAME_FILE, "rename", errorNumber, "File '", std::move(oldFileName),
        "' is complete but cannot take the place of file '", std::move(newFileName),
        "', which is unchanged. Check that you may write in its folder.");
}

void throwCannotSynchroniseFolder(int errorNumber, std::string&& folder, std::string&& fileName) {
    throwSystemCallException(
        ErrorSites::CANNOT_SYNCHRONISE_FOLDER, "fsync", errorNumber, "File '", std::move(fileName),
        "' is written and in place, but folder '", std::move(folder),
        "' could not be synchronised: after a power failure the old file might be back.");
}

}
