#include "core/platform/errors/SystemCallException.h"

#include "core/platform/stream/MemoryOutputStream.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace kavix {
namespace {

TEST(SystemCallException, KeepsTheCallAndTheErrorNumberBesideTheMessage) {
    static const char SYSTEM_CALL[] = "mmap";
    const SystemCallException exception(
        "File", 212, KavixException::NO_CAUSES, SYSTEM_CALL, ENOMEM, "Reserving ", 4096ul,
        std::string(" bytes failed."));

    EXPECT_EQ(exception.getSystemCall(), SYSTEM_CALL) << "the name is kept by address";
    EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
    EXPECT_EQ(exception.getClassName(), "SystemCallException");
    EXPECT_EQ(exception.getSourceFile(), "File");
    EXPECT_EQ(exception.getLine(), 212);
    EXPECT_STREQ(exception.what(), "Reserving 4096 bytes failed. [mmap failed with error 12: Cannot allocate memory]");
}

TEST(SystemCallException, IsCaughtByItsOwnClassAndByItsBases) {
    static_assert(std::is_base_of_v<KavixException, SystemCallException>);
    const auto throwOne = [] {
        throw SystemCallException("File", 1, KavixException::NO_CAUSES, "open", ENOENT, "Opening failed.");
    };
    const std::string message = "Opening failed. [open failed with error 2: No such file or directory]";

    EXPECT_THROW(throwOne(), SystemCallException);
    try {
        throwOne();
    }
    catch (const KavixException& exception) {
        EXPECT_EQ(exception.what(), message);
        EXPECT_EQ(exception.getClassName(), "SystemCallException");
        EXPECT_NE(dynamic_cast<const SystemCallException*>(&exception), nullptr)
            << "caught by reference, nothing is cut off";
    }
    try {
        throwOne();
    }
    catch (const std::exception& exception) {
        EXPECT_EQ(exception.what(), message);
    }
}

TEST(SystemCallException, OtherErrorsAreNotSystemCallExceptions) {
    try {
        throw KavixException("File", 1, KavixException::NO_CAUSES, "text");
    }
    catch (const SystemCallException&) {
        ADD_FAILURE() << "caught by the wrong class";
    }
    catch (const KavixException&) {
    }
}

TEST(SystemCallException, PrintsTheCallAndTheErrorNumberToo) {
    const SystemCallException exception("File", 9, KavixException::NO_CAUSES, "write", ENOSPC, "Writing failed.");
    MemoryOutputStream output;

    exception.printArguments(output);

    EXPECT_EQ(
        output.getContent(), "class: SystemCallException\n"
                             "source file: File\n"
                             "line: 9\n"
                             "message: Writing failed. [write failed with error 28: No space left on device]\n"
                             "system call: write\n"
                             "error number: 28\n");
}

TEST(SystemCallException, TheSystemsTextFollowsTheMessage) {
    struct Row {
        const char* name;
        const char* systemCall;
        int errorNumber;
        std::string message;
        std::string expected;
    };
    const Row rows[] = {
        {"usual", "open", ENOENT, "A.", "A. [open failed with error 2: No such file or directory]"},
        {"empty message", "read", EIO, "", " [read failed with error 5: Input/output error]"},
        {"no error", "mmap", 0, "A.", "A. [mmap failed with error 0: Success]"},
        {"unknown number", "mmap", 123456, "A.", "A. [mmap failed with error 123456: Unknown error 123456]"},
        {"negative number", "mmap", -1, "A.", "A. [mmap failed with error -1: Unknown error -1]"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string message = row.message;
        appendSystemError(row.systemCall, row.errorNumber, message);
        EXPECT_EQ(message, row.expected);
    }
}

TEST(SystemCallException, ThreadsDoNotMixTheirTexts) {
    constexpr int NUMBER_OF_THREADS = 4;
    constexpr int FIRST_ERROR_NUMBER = 100000; // unknown, so that the text is composed again each time
    std::vector<std::thread> threads;
    std::vector<int> wrongTexts(NUMBER_OF_THREADS);
    for (int threadIndex = 0; threadIndex != NUMBER_OF_THREADS; ++threadIndex)
        threads.emplace_back([threadIndex, &wrongTexts] {
            const int errorNumber = FIRST_ERROR_NUMBER + threadIndex;
            const std::string expected = " [call failed with error " + std::to_string(errorNumber) +
                                         ": Unknown error " + std::to_string(errorNumber) + "]";
            for (int round = 0; round != 1000; ++round) {
                std::string message;
                appendSystemError("call", errorNumber, message);
                wrongTexts[static_cast<size_t>(threadIndex)] += message != expected ? 1 : 0;
            }
        });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrongTexts, std::vector<int>(NUMBER_OF_THREADS));
}

}
}
