#include "core/platform/errors/SystemCallException.h"

#include "core/platform/stream/OutputStream.h"

#include <locale.h>
#include <string.h>

namespace kavix {

namespace {

/// The text of an error number in the C locale, the same for all users. strerror would follow the locale of the process
/// and may keep its text in a buffer that all threads share.
std::string getSystemErrorText(int errorNumber) {
    // Never freed: an error may be reported while static objects are destroyed.
    static const locale_t s_locale = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    if (s_locale == static_cast<locale_t>(nullptr))
        return "no text available";
    return ::strerror_l(errorNumber, s_locale);
}

}

void appendSystemError(const char* systemCall, int errorNumber, std::string& message) {
    message.append(" [")
        .append(systemCall)
        .append(" failed with error ")
        .append(std::to_string(errorNumber))
        .append(": ")
        .append(getSystemErrorText(errorNumber))
        .append("]");
}

SystemCallException::~SystemCallException() = default;

void SystemCallException::printOwnArguments(OutputStream& output, const std::string& indent) const {
    KavixException::printOwnArguments(output, indent);
    std::string lines = indent + "system call: " + m_systemCall + '\n';
    lines.append(indent).append("error number: ").append(std::to_string(m_errorNumber)).push_back('\n');
    output.write(lines.data(), lines.size());
}

}
