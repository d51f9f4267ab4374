#pragma once

#include "core/data-store/dictionary/NumericLexicalForms.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kavix::numdict {

inline constexpr size_t NUMBER_OF_REJECTION_REASONS = 3;

/// Why a literal of a numeric datatype is rejected: each status but VALID, in the order of reports.
inline constexpr std::array<LexicalFormStatus, NUMBER_OF_REJECTION_REASONS> REJECTION_REASONS{
    LexicalFormStatus::MALFORMED, LexicalFormStatus::OUT_OF_RANGE, LexicalFormStatus::BEYOND_CAPACITY};

/// An element for each reason.
template<typename T>
class ByReason {

public:

    T& operator[](LexicalFormStatus reason) noexcept { return m_elements[toIndex(reason)]; }

    const T& operator[](LexicalFormStatus reason) const noexcept { return m_elements[toIndex(reason)]; }

private:

    static size_t toIndex(LexicalFormStatus reason) noexcept {
        return static_cast<size_t>(reason) - static_cast<size_t>(REJECTION_REASONS[0]);
    }

    std::array<T, NUMBER_OF_REJECTION_REASONS> m_elements{};
};

/// "malformed", "outOfRange", "beyondCapacity", as programs read it.
const char* getReasonName(LexicalFormStatus reason) noexcept;

/// The same in words.
const char* getReasonPhrase(LexicalFormStatus reason) noexcept;

/// What the library says about an invalid lexical form of a numeric datatype; empty for a valid one.
std::string getRejectionMessage(uint8_t datatypeID, std::string_view lexicalForm);

/// A sentence to add where that message does not tell the reason: it says of a legal integer beyond 64 bits that its
/// form is invalid. Empty for everything else.
std::string getRejectionExplanation(uint8_t datatypeID, LexicalFormStatus reason);

}
