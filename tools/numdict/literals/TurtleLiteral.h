#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

namespace kavix::numdict {

/// A literal as Turtle writes it, in its parts.
struct TurtleLiteral {
    std::string m_lexicalForm;
    std::string m_datatypeIRI; // xsd:string or rdf:langString if none is written
};

/// Why a text is not a Turtle literal.
struct TurtleLiteralError {
    size_t m_column; // in bytes, from 1
    std::string m_message;
};

/// Reads one Turtle literal: a number (5, -0.5, 1e3), true, false, or a text in one of Turtle's four kinds of quotes
/// with escapes, followed by a language tag, by ^^<IRI> or by ^^ and a name with the prefix xsd, rdf, rdfs or owl.
/// White space around the literal is ignored, anything else after it is an error.
std::variant<TurtleLiteral, TurtleLiteralError> parseTurtleLiteral(std::string_view text);

}
