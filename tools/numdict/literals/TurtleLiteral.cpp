#include "numdict/literals/TurtleLiteral.h"

#include "numdict/literals/Datatypes.h"

#include <array>
#include <cstdint>
#include <optional>
#include <utility>

namespace kavix::numdict {

namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 4> PREFIXES{{
    {"xsd:", XSD_NAMESPACE},
    {"rdf:", RDF_NAMESPACE},
    {"rdfs:", "http://www.w3.org/2000/01/rdf-schema#"},
    {"owl:", "http://www.w3.org/2002/07/owl#"},
}};

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

bool isLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool isWhiteSpace(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

int getHexDigitValue(char character) {
    if (isDigit(character))
        return character - '0';
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

void appendUTF8(uint32_t codePoint, std::string& text) {
    const auto append = [&text](uint32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (codePoint < 0x80)
        append(codePoint);
    else if (codePoint < 0x800) {
        append(0xC0 | codePoint >> 6);
        append(0x80 | (codePoint & 0x3F));
    }
    else if (codePoint < 0x10000) {
        append(0xE0 | codePoint >> 12);
        append(0x80 | (codePoint >> 6 & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    }
    else {
        append(0xF0 | codePoint >> 18);
        append(0x80 | (codePoint >> 12 & 0x3F));
        append(0x80 | (codePoint >> 6 & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    }
}

/// Reads from left to right; after a failure the error is kept and reading goes no further.
class LiteralParser {

public:

    explicit LiteralParser(std::string_view text) :
        m_text(text),
        m_next(0) { }

    std::variant<TurtleLiteral, TurtleLiteralError> parse() {
        skipWhiteSpace();
        if (isAtEnd())
            fail("a literal is missing");
        else if (peek() == '"' || peek() == '\'')
            parseQuoted();
        else
            parseBare();
        skipWhiteSpace();
        if (!m_error && !isAtEnd())
            fail("unexpected text after the literal");
        if (m_error)
            return *m_error;
        return m_literal;
    }

private:

    bool isAtEnd() const { return m_next == m_text.size(); }

    char peek() const { return isAtEnd() ? '\0' : m_text[m_next]; }

    bool eat(std::string_view expected) {
        if (m_text.substr(m_next, expected.size()) != expected)
            return false;
        m_next += expected.size();
        return true;
    }

    void skipWhiteSpace() {
        while (!isAtEnd() && isWhiteSpace(peek()))
            ++m_next;
    }

    bool fail(const char* message) {
        if (!m_error)
            m_error = TurtleLiteralError{m_next + 1, message};
        return false;
    }

    size_t skipDigits() {
        const size_t start = m_next;
        while (isDigit(peek()))
            ++m_next;
        return m_next - start;
    }

    void parseBare() {
        const size_t start = m_next;
        if (eat("true") || eat("false")) {
            setLiteral(start, "boolean");
            return;
        }
        if (peek() == '+' || peek() == '-')
            ++m_next;
        size_t digits = skipDigits();
        const char* datatype = "integer";
        if (peek() == '.' && m_next + 1 < m_text.size() &&
            (isDigit(m_text[m_next + 1]) ||
             (digits != 0 && (m_text[m_next + 1] == 'e' || m_text[m_next + 1] == 'E')))) {
            ++m_next;
            digits += skipDigits();
            datatype = "decimal";
        }
        if (digits != 0 && (peek() == 'e' || peek() == 'E')) {
            ++m_next;
            if (peek() == '+' || peek() == '-')
                ++m_next;
            if (skipDigits() == 0) {
                fail("the exponent has no digits");
                return;
            }
            datatype = "double";
        }
        if (digits == 0) {
            m_next = start;
            fail("not a Turtle literal: write a number, or a text in quotes such as \"5\"^^xsd:int");
            return;
        }
        setLiteral(start, datatype);
    }

    void setLiteral(size_t start, const char* datatype) {
        m_literal.m_lexicalForm = m_text.substr(start, m_next - start);
        m_literal.m_datatypeIRI = std::string(XSD_NAMESPACE) + datatype;
    }

    void parseQuoted() {
        const char quote = peek();
        const std::string longQuote(3, quote);
        const bool isLong = eat(longQuote);
        if (!isLong)
            ++m_next;
        for (;;) {
            if (isAtEnd()) {
                fail("the closing quote is missing");
                return;
            }
            if (isLong ? eat(longQuote) : eat(std::string_view(&quote, 1)))
                break;
            if (peek() == '\\') {
                if (!parseEscape(true, m_literal.m_lexicalForm))
                    return;
            }
            else if (!isLong && (peek() == '\n' || peek() == '\r')) {
                fail("a line end in a text needs three quotes, or an escape");
                return;
            }
            else
                m_literal.m_lexicalForm += m_text[m_next++];
        }
        parseSuffix();
    }

    bool parseEscape(bool isInText, std::string& text) {
        static constexpr std::array<std::pair<char, char>, 8> ESCAPES{
            {{'t', '\t'}, {'b', '\b'}, {'n', '\n'}, {'r', '\r'}, {'f', '\f'}, {'"', '"'}, {'\'', '\''}, {'\\', '\\'}}};
        ++m_next;
        const char kind = peek();
        if (kind == 'u' || kind == 'U') {
            ++m_next;
            uint32_t codePoint = 0;
            for (int index = kind == 'u' ? 4 : 8; index > 0; --index) {
                const int value = getHexDigitValue(peek());
                if (value < 0)
                    return fail("a Unicode escape is \\u and four or \\U and eight hexadecimal digits");
                codePoint = codePoint << 4 | static_cast<uint32_t>(value);
                ++m_next;
            }
            if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
                return fail("no such Unicode character");
            appendUTF8(codePoint, text);
            return true;
        }
        if (isInText && !isAtEnd())
            for (const auto& [name, character] : ESCAPES)
                if (name == kind) {
                    text += character;
                    ++m_next;
                    return true;
                }
        return fail("unknown escape");
    }

    void parseSuffix() {
        if (eat("^^")) {
            if (peek() == '<')
                parseIRI();
            else
                parsePrefixedName();
        }
        else if (eat("@")) {
            if (!isLetter(peek())) {
                fail("a language tag starts with a letter");
                return;
            }
            while (isLetter(peek()))
                ++m_next;
            while (peek() == '-' && m_next + 1 < m_text.size() &&
                   (isLetter(m_text[m_next + 1]) || isDigit(m_text[m_next + 1])))
                for (++m_next; isLetter(peek()) || isDigit(peek());)
                    ++m_next;
            m_literal.m_datatypeIRI = std::string(RDF_NAMESPACE) + "langString";
        }
        else
            m_literal.m_datatypeIRI = std::string(XSD_NAMESPACE) + "string";
    }

    void parseIRI() {
        ++m_next;
        while (!eat(">")) {
            if (isAtEnd()) {
                fail("the '>' of the datatype is missing");
                return;
            }
            if (peek() == '\\') {
                if (!parseEscape(false, m_literal.m_datatypeIRI))
                    return;
            }
            else if (
                static_cast<unsigned char>(peek()) <= ' ' ||
                std::string_view("<\"{}|^`").find(peek()) != std::string_view::npos) {
                fail("this character is not allowed in an IRI");
                return;
            }
            else
                m_literal.m_datatypeIRI += m_text[m_next++];
        }
        if (m_literal.m_datatypeIRI.find(':') == std::string::npos)
            fail("the IRI of the datatype is not absolute");
    }

    void parsePrefixedName() {
        for (const auto& [prefix, namespaceIRI] : PREFIXES)
            if (eat(prefix)) {
                const size_t start = m_next;
                while (isLetter(peek()) || isDigit(peek()) || peek() == '_' || (peek() == '-' && m_next != start))
                    ++m_next;
                if (m_next == start)
                    fail("the name of the datatype is missing");
                m_literal.m_datatypeIRI = std::string(namespaceIRI) + std::string(m_text.substr(start, m_next - start));
                return;
            }
        fail("the datatype must be a name with the prefix xsd, rdf, rdfs or owl, or an IRI in <>");
    }

    const std::string_view m_text;
    size_t m_next;
    TurtleLiteral m_literal;
    std::optional<TurtleLiteralError> m_error;
};

}

std::variant<TurtleLiteral, TurtleLiteralError> parseTurtleLiteral(std::string_view text) {
    return LiteralParser(text).parse();
}

}
