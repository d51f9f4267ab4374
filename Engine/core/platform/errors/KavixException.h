#pragma once

#include <exception>
#include <locale>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

class OutputStream;

/// The base class of all errors of the system. Nothing returns error codes.
///
/// An exception has the source file and the line that identify it for users (written constants, see ErrorCatalogue.h),
/// its class, the exceptions that caused it, and one message for people. Immutable after construction; any number of
/// threads may read it at the same time.
class KavixException : public std::exception {

public:

    /// The causes of an error without causes.
    static const std::vector<std::exception_ptr> NO_CAUSES;

    /// Composes the message from pieces: string literals, std::string by rvalue, unsigned long in plain decimal.
    /// Nothing is added between the pieces. If the message cannot be composed, that failure is thrown instead.
    template<typename... Pieces>
    KavixException(
        const std::string& sourceFile, long line, const std::vector<std::exception_ptr>& causes, Pieces&&... pieces) :
        KavixException(
            sourceFile, line, 0, causes, std::string("KavixException"),
            composeMessage(std::forward<Pieces>(pieces)...)) { }

    /// @param flags  reserved; every error of the system passes 0
    KavixException(
        const std::string& sourceFile, long line, int flags, const std::vector<std::exception_ptr>& causes,
        std::string&& className, std::string&& message);

    ~KavixException() override;

    const char* what() const noexcept override;

    const std::string& getMessage() const noexcept { return m_message; }

    const std::string& getClassName() const noexcept { return m_className; }

    /// The path from Engine/ on, without extension.
    const std::string& getSourceFile() const noexcept { return m_sourceFile; }

    long getLine() const noexcept { return m_line; }

    const std::vector<std::exception_ptr>& getCauses() const noexcept { return m_causes; }

    /// Writes the details of this exception, one "name: value" per line, and those of its causes, indented.
    void printArguments(OutputStream& output) const;

protected:

    template<typename... Pieces>
    static std::string composeMessage(Pieces&&... pieces) {
        std::ostringstream stream;
        stream.imbue(std::locale::classic()); // the global locale might group digits
        stream.exceptions(std::ios_base::badbit); // otherwise a piece that does not fit would be dropped silently
        (void(stream << pieces), ...);
        return std::move(stream).str();
    }

    virtual void printOwnArguments(OutputStream& output, const std::string& indent) const;

private:

    void printIndented(OutputStream& output, const std::string& indent) const;

    std::string m_sourceFile;
    long m_line;
    int m_flags;
    std::vector<std::exception_ptr> m_causes;
    std::string m_className;
    std::string m_message;
};

}
