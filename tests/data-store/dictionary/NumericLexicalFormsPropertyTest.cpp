#include "core/data-store/dictionary/NumericLexicalForms.h"

#include "core/data-store/dictionary/DatatypeIDs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

using namespace kavix;

namespace {

/// The definition: text is what its value prints as.
bool isPrintedAs(uint8_t datatypeID, const ResourceValue& value, const std::string& text) {
    char printed[MAX_NUMERIC_LEXICAL_FORM_LENGTH];
    return text == std::string_view(printed, writeNumericLexicalForm(datatypeID, value.data, printed));
}

/// Compares the decision from the text with the definition; returns whether the text is a form of the datatype at all.
bool compare(uint8_t datatypeID, const std::string& text, size_t& numberOfCanonical) {
    ResourceValue value;
    if (tryParseNumericValue(datatypeID, text.data(), text.size(), value) != LexicalFormStatus::VALID)
        return false;
    const bool expected = isPrintedAs(datatypeID, value, text);
    EXPECT_EQ(isCanonicalNumericForm(datatypeID, text.data(), text.size()), expected)
        << "datatype " << int(datatypeID) << " text " << text;
    numberOfCanonical += expected;
    return true;
}

}

// All texts of at most six of the characters on which a decision can depend.
TEST(NumericLexicalForms, EveryShortFormIsCanonicalExactlyIfItIsPrintedSo) {
    constexpr std::string_view CHARACTERS = "+-.015";
    size_t numberOfForms = 0;
    size_t numberOfCanonical = 0;
    for (const uint8_t datatypeID :
         {D_XSD_DECIMAL, D_XSD_INTEGER, D_XSD_NON_POSITIVE_INTEGER, D_XSD_BYTE, D_XSD_UNSIGNED_LONG})
        for (size_t length = 1, numberOfTexts = CHARACTERS.size(); length <= 6;
             ++length, numberOfTexts *= CHARACTERS.size())
            for (size_t number = 0; number < numberOfTexts; ++number) {
                std::string text;
                for (size_t rest = number; text.size() < length; rest /= CHARACTERS.size())
                    text += CHARACTERS[rest % CHARACTERS.size()];
                numberOfForms += compare(datatypeID, text, numberOfCanonical);
            }
    EXPECT_GT(numberOfForms, 8000u);
    EXPECT_GT(numberOfCanonical, 1000u);
    EXPECT_GT(numberOfForms - numberOfCanonical, 1000u);
}

TEST(NumericLexicalForms, RandomFormsAreCanonicalExactlyIfTheyArePrintedSo) {
    std::mt19937_64 random(20240611);
    const auto below = [&random](uint64_t bound) { return random() % bound; };
    const auto appendDigits = [&](std::string& text, size_t count) {
        while (count-- != 0)
            text += static_cast<char>('0' + below(10));
    };
    size_t numberOfForms = 0;
    size_t numberOfCanonical = 0;
    for (int repetition = 0; repetition < 300000; ++repetition) {
        std::string text;
        if (const uint64_t sign = below(6); sign < 2)
            text += "+-"[sign];
        if (below(4) == 0)
            text.append(below(30), '0');
        appendDigits(text, below(20));
        if (below(2) == 0) {
            text += '.';
            if (below(8) == 0)
                text.append(below(5), '0');
            appendDigits(text, below(20 - std::min<size_t>(text.size(), 19)));
        }
        if (below(4) == 0)
            text.append(below(30), '0');
        numberOfForms += compare(D_XSD_DECIMAL, text, numberOfCanonical);
        numberOfForms += compare(static_cast<uint8_t>(D_XSD_INTEGER + below(13)), text, numberOfCanonical);
    }
    EXPECT_GT(numberOfForms, 100000u);
    EXPECT_GT(numberOfCanonical, 20000u);
    EXPECT_GT(numberOfForms - numberOfCanonical, 20000u);
}
