// Every error of the library, whole: programs and users match errors by class, source file, line and message.

#include "core/platform/errors/ErrorCatalogue.h"

#include "core/platform/errors/KavixException.h"
#include "core/platform/errors/SystemCallException.h"

#include <cerrno>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

namespace kavix {
namespace {

using namespace std::string_literals;

constexpr uint64_t MAXIMUM = std::numeric_limits<uint64_t>::max();

struct ErrorRow {
    const char* name;
    std::function<void()> throwError;
    const char* className;
    const char* sourceFile;
    long line;
    std::string message;
};

void expectErrors(const std::vector<ErrorRow>& rows) {
    for (const ErrorRow& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            row.throwError();
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const KavixException& exception) {
            EXPECT_EQ(exception.getMessage(), row.message);
            EXPECT_STREQ(exception.what(), row.message.c_str());
            EXPECT_EQ(exception.getClassName(), row.className);
            EXPECT_EQ(exception.getSourceFile(), row.sourceFile);
            EXPECT_EQ(exception.getLine(), row.line);
            EXPECT_TRUE(exception.getCauses().empty());
        }
    }
}

std::vector<ErrorRow> getContractErrors() {
    return {
        {"premature end", [] { Errors::throwPrematureEndOfFile(); }, "KavixException",
         "Engine/core/platform/stream/InputStream", 23, "Premature end of file."},
        {"dictionary image", [] { Errors::throwCannotLoadNumericDatatype(); }, "KavixException",
         "Engine/core/data-store/dictionary/NumericDatatype", 521, "Invalid input file: cannot load NumericDatatype."},
        {"table image", [] { Errors::throwCannotLoadParallelHashTable(); }, "KavixException",
         "Engine/core/platform/collections/ParallelHashTableImpl", 472,
         "Invalid input file: cannot load ParallelHashTable."},
        {"no single ID",
         [] { Errors::throwResourceCapacityExceeded(ErrorSites::RESOURCE_CAPACITY_EXCEEDED_FOR_SINGLE_ID); },
         "KavixException", "Engine/core/data-store/dictionary/DictionaryDatatype", 133,
         "The capacity of Kavix for the number of resources has been exceeded."},
        {"no block of IDs",
         [] { Errors::throwResourceCapacityExceeded(ErrorSites::RESOURCE_CAPACITY_EXCEEDED_FOR_BLOCK); },
         "KavixException", "Engine/core/data-store/dictionary/DictionaryDatatype", 144,
         "The capacity of Kavix for the number of resources has been exceeded."},
        {"invalid form", [] { Errors::throwInvalidLexicalForm("abc", 3, "xsd:int"); }, "KavixException",
         "Engine/core/data-store/dictionary/NumericDatatype", 76,
         "Lexical form 'abc' is invalid for datatype xsd:int."},
        {"empty form", [] { Errors::throwInvalidLexicalForm("", 0, "xsd:int"); }, "KavixException",
         "Engine/core/data-store/dictionary/NumericDatatype", 76, "Lexical form '' is invalid for datatype xsd:int."},
        {"empty form without an address", [] { Errors::throwInvalidLexicalForm(nullptr, 0, "xsd:int"); },
         "KavixException", "Engine/core/data-store/dictionary/NumericDatatype", 76,
         "Lexical form '' is invalid for datatype xsd:int."},
        {"form with a NUL", [] { Errors::throwInvalidLexicalForm("1\0002", 3, "xsd:int"); }, "KavixException",
         "Engine/core/data-store/dictionary/NumericDatatype", 76,
         "Lexical form '1\0002' is invalid for datatype xsd:int."s},
        {"form with characters after its length",
         [] { Errors::throwInvalidLexicalForm("+-1 and more", 3, "xsd:byte"); }, "KavixException",
         "Engine/core/data-store/dictionary/NumericDatatype", 76,
         "Lexical form '+-1' is invalid for datatype xsd:byte."},
        {"out of range", [] { Errors::throwValueOutOfRange("128", 3, "xsd:byte"); }, "KavixException",
         "Engine/core/data-store/dictionary/NumericDatatype", 78,
         "Value '128' is not in the range of datatype xsd:byte."},
        {"out of range, full IRI",
         [] { Errors::throwValueOutOfRange("0128", 4, "<http://www.w3.org/2001/XMLSchema#byte>"); }, "KavixException",
         "Engine/core/data-store/dictionary/NumericDatatype", 78,
         "Value '0128' is not in the range of datatype <http://www.w3.org/2001/XMLSchema#byte>."},
        {"out of memory", [] { Errors::throwOutOfMemory(1000000, 4096, 65536); }, "KavixException",
         "Engine/core/platform/system/MemoryManager", 71,
         "The Kavix instance has run out of memory.\n[Extended information: 1000000 bytes were reserved for the "
         "system, of which 4096 were free when an attempt to allocate 65536 bytes was made.]"},
        {"out of memory, extreme numbers", [] { Errors::throwOutOfMemory(MAXIMUM, 0, MAXIMUM); }, "KavixException",
         "Engine/core/platform/system/MemoryManager", 71,
         "The Kavix instance has run out of memory.\n[Extended information: 18446744073709551615 bytes were reserved "
         "for the system, of which 0 were free when an attempt to allocate 18446744073709551615 bytes was made.]"},
        {"region too small", [] { Errors::throwRegionCapacityExceeded(12345678, 1024); }, "KavixException",
         "Engine/core/platform/system/MemoryRegion", 242,
         "Failed to ensure that a memory region could hold 12345678 items because it was initialized to hold at most "
         "1024 items."},
        {"region too small, extreme numbers", [] { Errors::throwRegionCapacityExceeded(MAXIMUM, 0); }, "KavixException",
         "Engine/core/platform/system/MemoryRegion", 242,
         "Failed to ensure that a memory region could hold 18446744073709551615 items because it was initialized to "
         "hold at most 0 items."},
        {"commit", [] { Errors::throwCannotCommitMemory(ENOMEM); }, "SystemCallException",
         "Engine/core/platform/system/MemoryRegion", 167,
         "An error occurred during memory allocation. This is most likely due to the system running out of memory. "
         "[mprotect failed with error 12: Cannot allocate memory]"},
        {"reserve", [] { Errors::throwCannotReserveAddressSpace(ENOMEM, 1234567890123456); }, "SystemCallException",
         "Engine/core/platform/system/MemoryRegion", 212,
         "An error occurred while reserving 1234567890123456 bytes of address space. [mmap failed with error 12: "
         "Cannot allocate memory]"},
        {"malformed decimal", [] { Errors::throwInvalidDecimal("1.5.5", 5); }, "KavixException",
         "Engine/core/data-store/dictionary/XSDDecimal", 58,
         "Lexical form '1.5.5' is invalid for datatype xsd:decimal."},
        {"malformed decimal, empty", [] { Errors::throwInvalidDecimal("", 0); }, "KavixException",
         "Engine/core/data-store/dictionary/XSDDecimal", 58, "Lexical form '' is invalid for datatype xsd:decimal."},
        {"malformed decimal, NUL", [] { Errors::throwInvalidDecimal("\0001.5", 4); }, "KavixException",
         "Engine/core/data-store/dictionary/XSDDecimal", 58,
         "Lexical form '\0001.5' is invalid for datatype xsd:decimal."s},
        {"decimal too large", [] { Errors::throwDecimalBeyondCapacity("9223372036854775808.5", 21); }, "KavixException",
         "Engine/core/data-store/dictionary/XSDDecimal", 60,
         "Value '9223372036854775808.5' exceeds the capacity of datatype xsd:decimal: at most 19 fraction digits and a "
         "signed 64-bit unscaled value."},
    };
}

std::vector<ErrorRow> getOtherErrors() {
    return {
        {"prefix name", [] { Errors::throwInvalidPrefixName("1a"); }, "KavixException",
         "Engine/core/data-store/dictionary/Prefixes", 40,
         "'1a' is not a valid Turtle prefix: it must start with a letter, continue with letters, digits, '_', '-' and "
         "'.', and not end with '.'."},
        {"property", [] { Errors::throwUnknownProperty("xsd:int", "Colour"); }, "KavixException",
         "Engine/core/data-store/dictionary/ComponentInfo", 30,
         "Component 'xsd:int' has no numeric property 'Colour'."},
        {"datatype IRI", [] { Errors::throwUnknownDatatype("http://a/b"); }, "KavixException",
         "Engine/core/data-store/dictionary/Dictionary", 40, "No datatype has the IRI 'http://a/b'."},
        {"datatype ID", [] { Errors::throwUnknownDatatypeID(255); }, "KavixException",
         "Engine/core/data-store/dictionary/Dictionary", 40, "No datatype has the ID 255."},
        {"resource ID", [] { Errors::throwUnknownResourceID(MAXIMUM); }, "KavixException",
         "Engine/core/data-store/dictionary/Dictionary", 50, "No resource has the ID 18446744073709551615."},
        {"binary value", [] { Errors::throwInvalidBinaryValue(31, "it has 4 bytes instead of 8"); }, "KavixException",
         "Engine/core/data-store/dictionary/Dictionary", 60,
         "The binary value of the datatype with ID 31 is invalid: it has 4 bytes instead of 8."},
        {"option", [] { Errors::throwInvalidOption("maxResourceID", 1, 2048, 4294967294); }, "KavixException",
         "Engine/core/data-store/dictionary/Dictionary", 70,
         "Option 'maxResourceID' cannot be 1: the smallest value is 2048 and the largest is 4294967294."},
        {"budget", [] { Errors::throwMemoryBudgetInUse(4096, 8192); }, "KavixException",
         "Engine/core/data-store/dictionary/Dictionary", 80,
         "The memory budget cannot be set to 4096 bytes because 8192 bytes are in use."},
        {"thread slots", [] { Errors::throwThreadSlotsExhausted(256); }, "KavixException",
         "Engine/core/platform/collections/ThreadSlots", 70,
         "At most 256 threads can use dictionaries at the same time; wait until one of them has ended."},
        {"thread end", [] { Errors::throwCannotWatchThreadEnd("pthread_key_create", EAGAIN); }, "SystemCallException",
         "Engine/core/platform/collections/ThreadSlots", 77,
         "An error occurred while registering a thread-exit handler. [pthread_key_create failed with error 11: "
         "Resource temporarily unavailable]"},
        {"open to read", [] { Errors::throwCannotOpenInputFile(ENOENT, "a.image"); }, "SystemCallException",
         "Engine/core/platform/stream/FileInputStream", 20,
         "File 'a.image' cannot be opened for reading. Check that it exists and that you may read it. [open failed "
         "with error 2: No such file or directory]"},
        {"read", [] { Errors::throwCannotReadFile(EIO, "a.image"); }, "SystemCallException",
         "Engine/core/platform/stream/FileInputStream", 30,
         "An error occurred while reading file 'a.image'. Check that it is a regular file and that its device works. "
         "[read failed with error 5: Input/output error]"},
        {"rewind", [] { Errors::throwCannotRewindFile(ESPIPE, "a.image"); }, "SystemCallException",
         "Engine/core/platform/stream/FileInputStream", 40,
         "File 'a.image' cannot be read a second time. Use a regular file instead of a pipe or a terminal. [lseek "
         "failed with error 29: Illegal seek]"},
        {"open to write", [] { Errors::throwCannotOpenOutputFile(EACCES, "a.image"); }, "SystemCallException",
         "Engine/core/platform/stream/FileOutputStream", 20,
         "File 'a.image' cannot be opened for writing. Check that its directory exists and that you may write there. "
         "[open failed with error 13: Permission denied]"},
        {"write", [] { Errors::throwCannotWriteFile(ENOSPC, "a.image"); }, "SystemCallException",
         "Engine/core/platform/stream/FileOutputStream", 30,
         "An error occurred while writing file 'a.image', which is now incomplete. Check the free space on the device, "
         "then write it again. [write failed with error 28: No space left on device]"},
        {"close", [] { Errors::throwCannotCloseFile(EIO, "a.image"); }, "SystemCallException",
         "Engine/core/platform/stream/FileOutputStream", 40,
         "An error occurred while closing file 'a.image', which may be incomplete. Check the free space on the device, "
         "then write it again. [close failed with error 5: Input/output error]"},
        {"synchronise", [] { Errors::throwCannotSynchroniseFile(EIO, "a.store"); }, "SystemCallException",
         "Engine/core/platform/stream/FileOutputStream", 90,
         "Not all of file 'a.store' could be written to the device; it may be incomplete. Check the device and its "
         "free space, then write it again. [fsync failed with error 5: Input/output error]"},
        {"lock", [] { Errors::throwCannotLockFile(EWOULDBLOCK, "a.store"); }, "SystemCallException",
         "Engine/core/platform/stream/ReplacingFile", 50,
         "File 'a.store' is being written by another process. Wait until it has finished. [flock failed with error 11: "
         "Resource temporarily unavailable]"},
        {"rename", [] { Errors::throwCannotRenameFile(EACCES, "a.store.unfinished", "a.store"); },
         "SystemCallException", "Engine/core/platform/stream/ReplacingFile", 90,
         "File 'a.store.unfinished' is complete but cannot take the place of file 'a.store', which is unchanged. Check "
         "that you may write in its folder. [rename failed with error 13: Permission denied]"},
        {"synchronise a folder", [] { Errors::throwCannotSynchroniseFolder(EIO, "/a", "/a/b.store"); },
         "SystemCallException", "Engine/core/platform/stream/ReplacingFile", 95,
         "File '/a/b.store' is written and in place, but folder '/a' could not be synchronised: after a power failure "
         "the old file might be back. [fsync failed with error 5: Input/output error]"},
        {"store", [] { Errors::throwInvalidStore("pool", "it has 1 bytes instead of 2"); }, "KavixException",
         "Engine/core/data-store/dictionary/StoreReader", 30,
         "The store cannot be opened: section 'pool': it has 1 bytes instead of 2."},
        {"bound of a store", [] { Errors::throwStoreNeedsAddressSpace(ENOMEM, 1099511627776); }, "SystemCallException",
         "Engine/core/data-store/dictionary/DictionaryStore", 50,
         "The store cannot be opened: its maximum resource ID, 1099511627776, needs more address space than the system "
         "allows. Raise the limit of the process (ulimit -v), or repair the store, which then gets a lower maximum. "
         "[mmap failed with error 12: Cannot allocate memory]"},
        {"section read twice", [] { Errors::throwCannotRewindSection(); }, "KavixException",
         "Engine/core/data-store/dictionary/Checksum", 60, "A section of a store cannot be read twice."},
        {"restoring over values", [] { Errors::throwDictionaryNotEmpty(); }, "KavixException",
         "Engine/core/data-store/dictionary/Restoration", 20,
         "Only an empty dictionary can be restored, but this one has already assigned resource IDs."},
        {"resource ID out of range", [] { Errors::throwResourceIDOutOfRange(0, 1, 1048575); }, "KavixException",
         "Engine/core/data-store/embedding/Restoration", 60,
         "Resource ID 0 is out of range: the smallest is 1 and the largest is 1048575."},
        {"before static objects", [] { Errors::throwFamiliesNotReady(); }, "KavixException",
         "Engine/core/data-store/embedding/Dictionary", 100,
         "A dictionary cannot be created before the library's own static objects; create it later."},
        {"contradicting record", [] { Errors::throwContradictingRecord(MAXIMUM, "the ID was already restored"); },
         "KavixException", "Engine/core/data-store/dictionary/Restoration", 50,
         "The record of resource 18446744073709551615 contradicts another record: the ID was already restored."},
        {"transaction runs", [] { Errors::throwTransactionRuns(); }, "KavixException",
         "Engine/core/data-store/dictionary/Dictionary", 90,
         "Another transaction is writing to this dictionary; wait until it has been committed or rolled back, or write "
         "through it."},
        {"transaction has ended", [] { Errors::throwTransactionHasEnded(); }, "KavixException",
         "Engine/core/data-store/dictionary/Transaction", 40,
         "The transaction has already been committed or rolled back; begin another one to write."},
    };
}

/// Groups digits by threes, as many users' locales do.
class GroupingNumbers : public std::numpunct<char> {

protected:

    char do_thousands_sep() const override { return ','; }

    std::string do_grouping() const override { return "\3"; }
};

class GlobalLocaleGuard {

public:

    explicit GlobalLocaleGuard(const std::locale& locale) :
        m_previous(std::locale::global(locale)) { }

    ~GlobalLocaleGuard() { std::locale::global(m_previous); }

    GlobalLocaleGuard(const GlobalLocaleGuard&) = delete;

    GlobalLocaleGuard& operator=(const GlobalLocaleGuard&) = delete;

private:

    std::locale m_previous;
};

TEST(ErrorCatalogue, ContractErrorsHaveTheirMessageSourceFileLineAndClass) {
    expectErrors(getContractErrors());
}

TEST(ErrorCatalogue, OtherErrorsHaveTheirMessageSourceFileLineAndClass) {
    expectErrors(getOtherErrors());
}

TEST(ErrorCatalogue, TheGlobalLocaleDoesNotChangeMessages) {
    const GlobalLocaleGuard guard(std::locale(std::locale::classic(), new GroupingNumbers));
    std::ostringstream grouping;
    grouping << 1234567;
    ASSERT_EQ(grouping.str(), "1,234,567") << "the locale of the test does not group";

    expectErrors(getContractErrors());
    expectErrors(getOtherErrors());
}

TEST(ErrorCatalogue, AnErrorComesFromItsSiteAlone) {
    const KavixException exception(
        std::string(ErrorSites::INVALID_STORE.m_sourceFile), ErrorSites::INVALID_STORE.m_line,
        KavixException::NO_CAUSES, "message");
    EXPECT_TRUE(comesFrom(exception, ErrorSites::INVALID_STORE));
    EXPECT_FALSE(
        comesFrom(exception, ErrorSite{ErrorSites::INVALID_STORE.m_sourceFile, ErrorSites::INVALID_STORE.m_line + 1}));
    EXPECT_FALSE(
        comesFrom(exception, ErrorSite{ErrorSites::CANNOT_READ_FILE.m_sourceFile, ErrorSites::INVALID_STORE.m_line}));
}

TEST(ErrorCatalogue, FailedSystemCallsKeepTheCallAndTheErrorNumber) {
    struct Row {
        const char* name;
        std::function<void()> throwError;
        const char* systemCall;
        int errorNumber;
    };
    const Row rows[] = {
        {"commit", [] { Errors::throwCannotCommitMemory(EACCES); }, "mprotect", EACCES},
        {"reserve", [] { Errors::throwCannotReserveAddressSpace(EINVAL, 1); }, "mmap", EINVAL},
        {"bound of a store", [] { Errors::throwStoreNeedsAddressSpace(EAGAIN, 1); }, "mmap", EAGAIN},
        {"thread end", [] { Errors::throwCannotWatchThreadEnd("pthread_setspecific", ENOMEM); }, "pthread_setspecific",
         ENOMEM},
        {"open to read", [] { Errors::throwCannotOpenInputFile(ENOENT, ""); }, "open", ENOENT},
        {"read", [] { Errors::throwCannotReadFile(EIO, ""); }, "read", EIO},
        {"rewind", [] { Errors::throwCannotRewindFile(ESPIPE, ""); }, "lseek", ESPIPE},
        {"open to write", [] { Errors::throwCannotOpenOutputFile(EROFS, ""); }, "open", EROFS},
        {"write", [] { Errors::throwCannotWriteFile(ENOSPC, ""); }, "write", ENOSPC},
        {"close", [] { Errors::throwCannotCloseFile(EDQUOT, ""); }, "close", EDQUOT},
        {"synchronise", [] { Errors::throwCannotSynchroniseFile(ENOSPC, ""); }, "fsync", ENOSPC},
        {"lock", [] { Errors::throwCannotLockFile(EWOULDBLOCK, ""); }, "flock", EWOULDBLOCK},
        {"rename", [] { Errors::throwCannotRenameFile(EROFS, "", ""); }, "rename", EROFS},
        {"synchronise a folder", [] { Errors::throwCannotSynchroniseFolder(EIO, "", ""); }, "fsync", EIO},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            row.throwError();
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const SystemCallException& exception) {
            EXPECT_STREQ(exception.getSystemCall(), row.systemCall);
            EXPECT_EQ(exception.getErrorNumber(), row.errorNumber);
        }
    }
}

}
}
