#include "core/platform/errors/KavixException.h"

#include "core/platform/stream/OutputStream.h"

#include <string_view>

namespace kavix {

namespace {

constexpr std::string_view INDENTATION_OF_CAUSES = "    ";

/// Writes "name: value" and a line break. Further lines of a value are indented below its name, so that a reader can
/// distinguish them from the next detail.
void printDetail(OutputStream& output, const std::string& indent, std::string_view name, std::string_view value) {
    std::string line = indent;
    line.append(name).append(": ");
    for (const char character : value) {
        line.push_back(character);
        if (character == '\n')
            line.append(indent).append(INDENTATION_OF_CAUSES);
    }
    line.push_back('\n');
    output.write(line.data(), line.size());
}

void printHeading(OutputStream& output, const std::string& indent, std::string_view heading) {
    std::string line = indent;
    line.append(heading).push_back('\n');
    output.write(line.data(), line.size());
}

}

// Constant-initialised, so errors can be thrown by the static initialisation of any other file.
constinit const std::vector<std::exception_ptr> KavixException::NO_CAUSES;

KavixException::KavixException(
    const std::string& sourceFile, long line, int flags, const std::vector<std::exception_ptr>& causes,
    std::string&& className, std::string&& message) :
    m_sourceFile(sourceFile),
    m_line(line),
    m_flags(flags),
    m_causes(causes),
    m_className(std::move(className)),
    m_message(std::move(message)) { }

KavixException::~KavixException() = default;

const char* KavixException::what() const noexcept {
    return m_message.c_str();
}

void KavixException::printArguments(OutputStream& output) const {
    printIndented(output, std::string());
}

void KavixException::printOwnArguments(OutputStream& output, const std::string& indent) const {
    printDetail(output, indent, "class", m_className);
    printDetail(output, indent, "source file", m_sourceFile);
    printDetail(output, indent, "line", std::to_string(m_line));
    if (m_flags != 0)
        printDetail(output, indent, "flags", std::to_string(m_flags));
    printDetail(output, indent, "message", m_message);
}

void KavixException::printIndented(OutputStream& output, const std::string& indent) const {
    printOwnArguments(output, indent);
    const std::string causeIndent = indent + std::string(INDENTATION_OF_CAUSES);
    for (const std::exception_ptr& cause : m_causes) {
        if (cause == nullptr)
            continue; // rethrowing it would terminate the program
        printHeading(output, indent, "caused by:");
        // A failure while a cause is printed is thrown from the handler, and so is not taken for the cause.
        try {
            std::rethrow_exception(cause);
        }
        catch (const KavixException& kavixCause) {
            kavixCause.printIndented(output, causeIndent);
        }
        catch (const std::exception& otherCause) {
            printDetail(output, causeIndent, "message", otherCause.what());
        }
        catch (...) {
            printDetail(output, causeIndent, "message", "an exception of an unknown class");
        }
    }
}

}
