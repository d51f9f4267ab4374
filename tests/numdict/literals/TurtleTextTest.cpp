#include "numdict/literals/TurtleText.h"

#include "numdict/literals/TurtleLiteral.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>

using namespace kavix::numdict;

TEST(TurtleText, QuotedTextReadsBackAsItself) {
    const std::string text("tab\tquote\"backslash\\newline\nreturn\rnul\0bell\a\x7f\xC2\xB5", 45);
    const auto result = parseTurtleLiteral(makeTurtleString(text));
    ASSERT_TRUE(std::holds_alternative<TurtleLiteral>(result));
    EXPECT_EQ(std::get<TurtleLiteral>(result).m_lexicalForm, text);
}
