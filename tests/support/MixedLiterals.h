#pragma once

#include "core/data-store/dictionary/Literal.h"
#include "core/data-store/dictionary/NumericLexicalForms.h"
#include "support/MixedValues.h"

#include <cstdint>
#include <exception>
#include <ostream>
#include <span>
#include <string>
#include <vector>

// Literals of all numeric datatypes, good and bad, and what becomes of them one at a time, for tests of batches.

namespace kavix::test {

struct LiteralText {
    std::string m_lexicalForm;
    uint8_t m_datatypeID;
};

/// The value that makeValue() makes, written in one of several ways.
inline LiteralText makeLiteral(uint8_t datatypeID, uint64_t number) {
    char form[MAX_NUMERIC_LEXICAL_FORM_LENGTH];
    std::string text(form, writeNumericLexicalForm(datatypeID, makeValue(datatypeID, number).data, form));
    if (number % 3 == 1)
        text.insert(text[0] == '-' ? 1 : 0, "00");
    else if (number % 3 == 2 && text[0] != '-')
        text.insert(0, "+");
    return LiteralText{text, datatypeID};
}

inline LiteralText makeMixedLiteral(uint64_t number) {
    return makeLiteral(
        static_cast<uint8_t>(D_XSD_DECIMAL + number % NUMBER_OF_NUMERIC_DATATYPES),
        number / NUMBER_OF_NUMERIC_DATATYPES);
}

/// A literal that is refused: each kind in turn.
inline LiteralText makeInvalidLiteral(uint64_t number) {
    static const LiteralText s_literals[] = {
        {"abc", D_XSD_INT},
        {"", D_XSD_INTEGER},
        {"128", D_XSD_BYTE},
        {"0.00000000000000000001", D_XSD_DECIMAL},
        {"5", D_NONE},
        {"1e5", D_XSD_DECIMAL},
        {"5", 36},
        {"5", 255},
        {"9223372036854775808", D_XSD_LONG},
        {" 5 ", D_XSD_SHORT},
        {"0", D_XSD_POSITIVE_INTEGER},
        {"1.5", 20},
    };
    return s_literals[number % std::size(s_literals)];
}

inline std::vector<Literal> getLiterals(const std::vector<LiteralText>& texts) {
    std::vector<Literal> literals;
    for (const LiteralText& text : texts)
        literals.push_back(Literal{text.m_lexicalForm, text.m_datatypeID});
    return literals;
}

/// What became of a literal, for comparison.
struct Outcome {

    uint64_t m_resourceID = 0;
    std::string m_error; // as describeError() has it

    bool operator==(const Outcome& other) const = default;

    friend std::ostream& operator<<(std::ostream& output, const Outcome& outcome) {
        return output << outcome.m_resourceID << " " << outcome.m_error;
    }
};

template<typename Operation>
Outcome getOutcome(Operation operation) {
    Outcome outcome;
    outcome.m_error = describeError([&] { outcome.m_resourceID = operation(); });
    return outcome;
}

inline std::vector<Outcome> describe(std::span<const Resolution> resolutions) {
    std::vector<Outcome> outcomes;
    for (const Resolution& resolution : resolutions) {
        outcomes.push_back(Outcome{resolution.resourceID, std::string()});
        if (resolution.error != nullptr)
            outcomes.back().m_error = describeError([&] { std::rethrow_exception(resolution.error); });
    }
    return outcomes;
}

inline std::vector<Outcome> resolveSingly(Transaction& transaction, const std::vector<LiteralText>& texts) {
    std::vector<Outcome> outcomes;
    for (const LiteralText& text : texts)
        outcomes.push_back(getOutcome([&] { return transaction.resolve(text.m_lexicalForm, text.m_datatypeID); }));
    return outcomes;
}

}
