#include "core/platform/errors/KavixException.h"

#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/SystemCallException.h"
#include "core/platform/stream/MemoryOutputStream.h"
#include "support/FailingOutputStream.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <ios>
#include <limits>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kavix {
namespace {

using namespace std::string_literals;

/// Throws while static objects are made, before those of most files: NO_CAUSES must be usable by then.
std::string composeMessageEarly() {
    try {
        Errors::throwRegionCapacityExceeded(2, 1);
    }
    catch (const KavixException& exception) {
        return exception.getMessage() + std::to_string(exception.getCauses().size());
    }
}

__attribute__((init_priority(101))) const std::string s_earlyMessage = composeMessageEarly();

std::string print(const KavixException& exception) {
    MemoryOutputStream output;
    exception.printArguments(output);
    return output.takeContent();
}

template<typename Exception>
std::exception_ptr makeCause(Exception exception) {
    return std::make_exception_ptr(std::move(exception));
}

TEST(KavixException, PiecesFollowOneAnotherWithNothingBetweenThem) {
    const unsigned long number = 42;
    const KavixException exception(
        "File", 7, KavixException::NO_CAUSES, "a", std::string("b "), number, 0ul, "", std::string(), "c",
        std::numeric_limits<unsigned long>::max());

    EXPECT_EQ(exception.getMessage(), "ab 420c18446744073709551615");
    EXPECT_STREQ(exception.what(), "ab 420c18446744073709551615");
    EXPECT_EQ(exception.getClassName(), "KavixException");
    EXPECT_EQ(exception.getSourceFile(), "File");
    EXPECT_EQ(exception.getLine(), 7);
    EXPECT_TRUE(exception.getCauses().empty());
}

TEST(KavixException, WithoutPiecesTheMessageIsEmpty) {
    const KavixException exception("File", 7, KavixException::NO_CAUSES);

    EXPECT_STREQ(exception.what(), "");
}

TEST(KavixException, TheFullConstructorKeepsWhatItIsGiven) {
    const std::vector<std::exception_ptr> causes = {makeCause(std::runtime_error("deep"))};
    const KavixException exception(
        "Source", std::numeric_limits<long>::max(), 0, causes, std::string("OwnClass"), std::string("text"));

    EXPECT_EQ(exception.getSourceFile(), "Source");
    EXPECT_EQ(exception.getLine(), std::numeric_limits<long>::max());
    EXPECT_EQ(exception.getClassName(), "OwnClass");
    EXPECT_EQ(exception.getMessage(), "text");
    EXPECT_EQ(exception.getCauses(), causes);
}

TEST(KavixException, EndsAMessageForCAtItsFirstNULButKeepsTheRest) {
    const KavixException exception("File", 1, KavixException::NO_CAUSES, "'", "1\0002"s, "'");

    EXPECT_EQ(exception.getMessage(), "'1\0002'"s);
    EXPECT_STREQ(exception.what(), "'1");
}

TEST(KavixException, CopiesAreEqualAndIndependent) {
    static_assert(std::is_nothrow_destructible_v<KavixException> && std::has_virtual_destructor_v<KavixException>);
    std::unique_ptr<KavixException> original = std::make_unique<KavixException>(
        "File", 3, KavixException::NO_CAUSES, "a message too long to lie in the string object itself");
    const KavixException copy(*original);
    original.reset();

    EXPECT_STREQ(copy.what(), "a message too long to lie in the string object itself");
    EXPECT_EQ(copy.getSourceFile(), "File");
}

TEST(KavixException, CanBeThrownDuringStaticInitialisation) {
    EXPECT_EQ(
        s_earlyMessage, "Failed to ensure that a memory region could hold 2 items because it was initialized to hold "
                        "at most 1 items.0");
}

/// What happens to the composing stream when it gets no memory for a piece.
struct PieceThatDoesNotFit { };

std::ostream& operator<<(std::ostream& stream, const PieceThatDoesNotFit&) {
    stream.setstate(std::ios_base::badbit);
    return stream;
}

TEST(KavixException, AMessageThatCannotBeComposedIsReportedInItsPlace) {
    EXPECT_THROW(
        throw KavixException("File", 1, KavixException::NO_CAUSES, "a", PieceThatDoesNotFit(), "b"),
        std::ios_base::failure);
    EXPECT_THROW(
        throw SystemCallException("File", 1, KavixException::NO_CAUSES, "open", ENOENT, "a", PieceThatDoesNotFit()),
        std::ios_base::failure);
}

TEST(KavixException, PrintsItsDetails) {
    const KavixException exception("Engine/core/Some", 12, KavixException::NO_CAUSES, "Something failed.");

    EXPECT_EQ(
        print(exception), "class: KavixException\n"
                          "source file: Engine/core/Some\n"
                          "line: 12\n"
                          "message: Something failed.\n");
}

TEST(KavixException, PrintsFurtherLinesOfAMessageIndented) {
    const KavixException exception("Some", 12, KavixException::NO_CAUSES, "First.\n[Second.]");

    EXPECT_EQ(
        print(exception), "class: KavixException\n"
                          "source file: Some\n"
                          "line: 12\n"
                          "message: First.\n"
                          "    [Second.]\n");
}

TEST(KavixException, PrintsCausesOfEveryClassIndented) {
    const std::vector<std::exception_ptr> deepCauses = {makeCause(std::runtime_error("device gone"))};
    const std::vector<std::exception_ptr> causes = {
        makeCause(KavixException("Inner", 2, deepCauses, "Inner failure.")),
        nullptr,
        makeCause(SystemCallException("Call", 3, KavixException::NO_CAUSES, "read", EIO, "Reading failed.")),
        makeCause(17),
    };
    const KavixException exception("Outer", 1, causes, "Outer failure.");

    EXPECT_EQ(
        print(exception), "class: KavixException\n"
                          "source file: Outer\n"
                          "line: 1\n"
                          "message: Outer failure.\n"
                          "caused by:\n"
                          "    class: KavixException\n"
                          "    source file: Inner\n"
                          "    line: 2\n"
                          "    message: Inner failure.\n"
                          "    caused by:\n"
                          "        message: device gone\n"
                          "caused by:\n"
                          "    class: SystemCallException\n"
                          "    source file: Call\n"
                          "    line: 3\n"
                          "    message: Reading failed. [read failed with error 5: Input/output error]\n"
                          "    system call: read\n"
                          "    error number: 5\n"
                          "caused by:\n"
                          "    message: an exception of an unknown class\n");
}

TEST(KavixException, AFailureToPrintIsNotMistakenForACause) {
    const std::vector<std::exception_ptr> causes = {
        makeCause(KavixException("Inner", 2, KavixException::NO_CAUSES, "Inner failure."))};
    const KavixException exception("Outer", 1, causes, "Outer failure.");

    constexpr size_t NUMBER_OF_WRITES = 9; // four details, a heading, four details
    for (size_t n = 1; n <= NUMBER_OF_WRITES; ++n) {
        test::FailingOutputStream output(n);
        EXPECT_THROW(exception.printArguments(output), std::runtime_error) << n;
    }
    test::FailingOutputStream output(NUMBER_OF_WRITES + 1);
    EXPECT_NO_THROW(exception.printArguments(output));
}

}
}
