#include "numdict/literals/RejectionReasons.h"

#include "core/platform/errors/KavixException.h"

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

}
