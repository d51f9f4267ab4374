#include "numdict/literals/TurtleLiteral.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>

using namespace kavix::numdict;

namespace {

const std::string XSD = "http://www.w3.org/2001/XMLSchema#";
const std::string RDF = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";

}

TEST(TurtleLiteral, AllFormsOfTurtleAreRead) {
    const struct {
        std::string text;
        std::string lexicalForm;
        std::string datatypeIRI;
    } rows[] = {
        {"5", "5", XSD + "integer"},
        {" +05\r", "+05", XSD + "integer"},
        {"-0.5", "-0.5", XSD + "decimal"},
        {".5", ".5", XSD + "decimal"},
        {"5e0", "5e0", XSD + "double"},
        {"5.e-1", "5.e-1", XSD + "double"},
        {"-.5E+10", "-.5E+10", XSD + "double"},
        {"true", "true", XSD + "boolean"},
        {"\"5\"", "5", XSD + "string"},
        {"\"\"", "", XSD + "string"},
        {"''", "", XSD + "string"},
        {"\"5\"^^xsd:int", "5", XSD + "int"},
        {"'5'^^xsd:int", "5", XSD + "int"},
        {"\"5\"^^<http://www.w3.org/2001/XMLSchema#int>", "5", XSD + "int"},
        {"\"5\"^^<http://www.w3.org/2001/XMLSchema\\u0023int>", "5", XSD + "int"},
        {"\"\"\"a\"b\n''\"\"\"^^xsd:int", "a\"b\n''", XSD + "int"},
        {"'''it's'''", "it's", XSD + "string"},
        {"\"\\t\\n\\r\\b\\f\\\"\\'\\\\\\u0035\\U0001F600\"", "\t\n\r\b\f\"'\\5\xF0\x9F\x98\x80", XSD + "string"},
        {"\"chat\"@fr-CA", "chat", RDF + "langString"},
        {"\"x\"^^rdf:HTML", "x", RDF + "HTML"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto result = parseTurtleLiteral(row.text);
        const auto* literal = std::get_if<TurtleLiteral>(&result);
        if (literal == nullptr) {
            ADD_FAILURE() << std::get<TurtleLiteralError>(result).m_message;
            continue;
        }
        EXPECT_EQ(literal->m_lexicalForm, row.lexicalForm);
        EXPECT_EQ(literal->m_datatypeIRI, row.datatypeIRI);
    }
}

TEST(TurtleLiteral, AnythingElseIsAnErrorWithItsColumn) {
    const struct {
        const char* text;
        size_t column;
    } rows[] = {
        {"", 1},
        {"  ", 3},
        {"hello", 1},
        {"5 6", 3},
        {"5.", 2},
        {"5x", 2},
        {"+", 1},
        {".", 1},
        {"--5", 1},
        {"5e", 3},
        {"\"5", 3},
        {"\"5'", 4},
        {"\"\"\"5\"\"", 7},
        {"\"a\nb\"", 3},
        {"\"\\x\"", 3},
        {"\"\\u12\"", 6},
        {"\"\\uD800\"", 8},
        {"\"\\U00110000\"", 12},
        {"\"5\"^xsd:int", 4},
        {"\"5\"^^", 6},
        {"\"5\"^^foo:int", 6},
        {"\"5\"^^xsd:", 10},
        {"\"5\"^^<int>", 11},
        {"\"5\"^^<http://a b>", 15},
        {"\"5\"^^<http://a", 15},
        {"\"5\"@", 5},
        {"\"5\"@en-", 7},
        {"\"5\"^^xsd:int .", 14},
        {"<x:5>", 1},
        {"trueish", 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto result = parseTurtleLiteral(row.text);
        const auto* error = std::get_if<TurtleLiteralError>(&result);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->m_column, row.column) << error->m_message;
        EXPECT_FALSE(error->m_message.empty());
    }
}
