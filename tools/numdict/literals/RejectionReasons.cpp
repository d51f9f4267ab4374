#include "numdict/literals/RejectionReasons.h"

#include "core/platform/errors/KavixException.h"
#include "numdict/literals/Datatypes.h"

#include <fmt/format.h>

#include <limits>

namespace kavix::numdict {

namespace {

struct ReasonTexts {
    const char* m_name;
    const char* m_phrase;
};

ReasonTexts getTexts(LexicalFormStatus reason) noexcept {
    switch (reason) {
    case LexicalFormStatus::OUT_OF_RANGE:
        return {"outOfRange", "out of the datatype's range"};
    case LexicalFormStatus::BEYOND_CAPACITY:
        return {"beyondCapacity", "beyond the 64-bit capacity"};
    default:
        return {"malformed", "malformed"};
    }
}

}

const char* getReasonName(LexicalFormStatus reason) noexcept {
    return getTexts(reason).m_name;
}

const char* getReasonPhrase(LexicalFormStatus reason) noexcept {
    return getTexts(reason).m_phrase;
}

std::string getRejectionMessage(uint8_t datatypeID, std::string_view lexicalForm) {
    try {
        parseNumericValue(datatypeID, lexicalForm.data(), lexicalForm.size());
    }
    catch (const KavixException& exception) {
        return exception.getMessage();
    }
    return std::string();
}

std::string getRejectionExplanation(uint8_t datatypeID, LexicalFormStatus reason) {
    // The message for a decimal says that it exceeds the capacity.
    if (reason != LexicalFormStatus::BEYOND_CAPACITY || datatypeID == D_XSD_DECIMAL)
        return std::string();
    return fmt::format(
        "It is a legal {}, but Kavix holds integers from {} to {}.", getDatatypeName(datatypeID),
        std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max());
}

}
