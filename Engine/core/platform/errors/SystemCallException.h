#pragma once

#include "core/platform/errors/KavixException.h"

namespace kavix {

/// Appends " [CALL failed with error NUMBER: TEXT]" to a message. The text is that of the C locale, independent of the
/// locale of the process. Thread-safe.
void appendSystemError(const char* systemCall, int errorNumber, std::string& message);

/// A failed system call. The message ends with the name of the call and the system's text for the error number.
class SystemCallException : public KavixException {

public:

    /// @param systemCall   the name of the call; a string literal, not copied
    /// @param errorNumber  the value of errno immediately after the failure
    template<typename... Pieces>
    SystemCallException(
        const std::string& sourceFile, long line, const std::vector<std::exception_ptr>& causes, const char* systemCall,
        int errorNumber, Pieces&&... pieces) :
        KavixException(
            sourceFile, line, 0, causes, std::string("SystemCallException"),
            composeSystemMessage(systemCall, errorNumber, std::forward<Pieces>(pieces)...)),
        m_systemCall(systemCall),
        m_errorNumber(errorNumber) { }

    ~SystemCallException() override;

    const char* getSystemCall() const noexcept { return m_systemCall; }

    int getErrorNumber() const noexcept { return m_errorNumber; }

protected:

    void printOwnArguments(OutputStream& output, const std::string& indent) const override;

private:

    template<typename... Pieces>
    static std::string composeSystemMessage(const char* systemCall, int errorNumber, Pieces&&... pieces) {
        std::string message = composeMessage(std::forward<Pieces>(pieces)...);
        appendSystemError(systemCall, errorNumber, message);
        return message;
    }

    const char* m_systemCall;
    int m_errorNumber;
};

}
