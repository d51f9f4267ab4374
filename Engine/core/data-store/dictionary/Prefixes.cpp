#include "core/data-store/dictionary/Prefixes.h"

#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/system/StaticInitialisation.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace kavix {

namespace {

struct CodePointRange {
    char32_t m_first;
    char32_t m_last;
};

constexpr char32_t NO_CODE_POINT = 0xFFFFFFFF;

constexpr char32_t FIRST_NON_ASCII = 0x80;

/// The letters of Turtle names beyond ASCII, ascending.
constexpr CodePointRange LETTERS[] = {
    {0x00C0, 0x00D6}, {0x00D8, 0x00F6}, {0x00F8, 0x02FF}, {0x0370, 0x037D}, {0x037F, 0x1FFF}, {0x200C, 0x200D},
    {0x2070, 0x218F}, {0x2C00, 0x2FEF}, {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF},
};

/// Other characters beyond ASCII that a Turtle name may contain, but not start with: combining marks and the like.
constexpr CodePointRange MARKS[] = {{0x00B7, 0x00B7}, {0x0300, 0x036F}, {0x203F, 0x2040}};

template<size_t NUMBER_OF_RANGES>
constexpr bool isInRanges(char32_t codePoint, const CodePointRange (&ranges)[NUMBER_OF_RANGES]) noexcept {
    for (const CodePointRange& range : ranges)
        if (codePoint >= range.m_first && codePoint <= range.m_last)
            return true;
    return false;
}

constexpr bool isDigit(char32_t codePoint) noexcept {
    return codePoint >= '0' && codePoint <= '9';
}

constexpr bool isHexDigit(char character) noexcept {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F') ||
           (character >= 'a' && character <= 'f');
}

/// The characters that a prefix name may start with (PN_CHARS_BASE).
constexpr bool isNameLetter(char32_t codePoint) noexcept {
    if (codePoint < FIRST_NON_ASCII)
        return (codePoint >= 'A' && codePoint <= 'Z') || (codePoint >= 'a' && codePoint <= 'z');
    return isInRanges(codePoint, LETTERS);
}

/// The characters that may follow the start of a name (PN_CHARS).
constexpr bool isNameCharacter(char32_t codePoint) noexcept {
    if (isNameLetter(codePoint) || codePoint == '_' || codePoint == '-' || isDigit(codePoint))
        return true;
    return codePoint >= FIRST_NON_ASCII && isInRanges(codePoint, MARKS);
}

/// Removes the first character of UTF-8 text, which must not be empty. Returns NO_CODE_POINT, and leaves the text
/// unchanged, if the text does not start with a well-formed character: overlong forms, surrogates, beyond U+10FFFF,
/// truncated.
char32_t takeCodePoint(std::string_view& text) noexcept {
    const uint8_t leadByte = static_cast<uint8_t>(text.front());
    if (leadByte < FIRST_NON_ASCII) {
        text.remove_prefix(1);
        return leadByte;
    }
    size_t length;
    char32_t codePoint;
    char32_t minimum; // lower ones have a shorter form
    if ((leadByte & 0xE0) == 0xC0) {
        length = 2;
        codePoint = leadByte & 0x1F;
        minimum = 0x80;
    }
    else if ((leadByte & 0xF0) == 0xE0) {
        length = 3;
        codePoint = leadByte & 0x0F;
        minimum = 0x800;
    }
    else if ((leadByte & 0xF8) == 0xF0) {
        length = 4;
        codePoint = leadByte & 0x07;
        minimum = 0x10000;
    }
    else
        return NO_CODE_POINT;
    if (text.size() < length)
        return NO_CODE_POINT;
    for (size_t index = 1; index != length; ++index) {
        const uint8_t byte = static_cast<uint8_t>(text[index]);
        if ((byte & 0xC0) != 0x80)
            return NO_CODE_POINT;
        codePoint = (codePoint << 6) | (byte & 0x3F);
    }
    const bool isSurrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (codePoint < minimum || codePoint > 0x10FFFF || isSurrogate)
        return NO_CODE_POINT;
    text.remove_prefix(length);
    return codePoint;
}

/// Whether Turtle allows this name before the colon:  (PN_CHARS_BASE ((PN_CHARS | '.')* PN_CHARS)?)?
bool isPrefixName(std::string_view name) noexcept {
    if (name.empty())
        return true;
    if (name.back() == '.' || !isNameLetter(takeCodePoint(name)))
        return false;
    while (!name.empty()) {
        const char32_t codePoint = takeCodePoint(name);
        if (!isNameCharacter(codePoint) && codePoint != '.')
            return false;
    }
    return true;
}

/// Whether Turtle allows this name after the colon without a backslash:
///   ((PN_CHARS_U | ':' | [0-9] | PERCENT) ((PN_CHARS | '.' | ':' | PERCENT)* (PN_CHARS | ':' | PERCENT))?)?
/// where PERCENT is '%' and two hexadecimal digits.
bool isUnescapedLocalName(std::string_view name) noexcept {
    if (!name.empty() && name.back() == '.')
        return false;
    for (bool isFirst = true; !name.empty(); isFirst = false) {
        if (name.front() == '%') {
            if (name.size() < 3 || !isHexDigit(name[1]) || !isHexDigit(name[2]))
                return false;
            name.remove_prefix(3);
            continue;
        }
        const char32_t codePoint = takeCodePoint(name);
        const bool isAllowed =
            isFirst ? isNameLetter(codePoint) || codePoint == '_' || codePoint == ':' || isDigit(codePoint)
                    : isNameCharacter(codePoint) || codePoint == '.' || codePoint == ':';
        if (!isAllowed)
            return false;
    }
    return true;
}

/// Whether a byte is not allowed between angle brackets. All such bytes are ASCII, so bytes of longer characters are
/// not among them.
constexpr bool needsEscape(char character) noexcept {
    return static_cast<uint8_t>(character) <= 0x20 ||
           std::string_view("<>\"{}|^`\\").find(character) != std::string_view::npos;
}

template<typename Write>
void encodeFullIRI(std::string_view iri, const Write& write) {
    static constexpr char HEX_DIGITS[] = "0123456789ABCDEF";
    write("<");
    while (!iri.empty()) {
        const size_t plainLength = static_cast<size_t>(std::find_if(iri.begin(), iri.end(), needsEscape) - iri.begin());
        if (plainLength != 0)
            write(iri.substr(0, plainLength));
        iri.remove_prefix(plainLength);
        if (!iri.empty()) {
            const uint8_t byte = static_cast<uint8_t>(iri.front());
            const char escape[] = {'\\', 'u', '0', '0', HEX_DIGITS[byte >> 4], HEX_DIGITS[byte & 0x0F]};
            write(std::string_view(escape, sizeof(escape)));
            iri.remove_prefix(1);
        }
    }
    write(">");
}

Prefixes makeDefaultPrefixes() {
    Prefixes prefixes;
    prefixes.addPrefix("rdf", "http://www.w3.org/1999/02/22-rdf-syntax-ns#");
    prefixes.addPrefix("rdfs", "http://www.w3.org/2000/01/rdf-schema#");
    prefixes.addPrefix("owl", "http://www.w3.org/2002/07/owl#");
    prefixes.addPrefix("xsd", XSD_NAMESPACE);
    return prefixes;
}

}

[[gnu::init_priority(INITIALISE_TABLES)]] const Prefixes Prefixes::s_defaultPrefixes = makeDefaultPrefixes();

void Prefixes::addPrefix(std::string_view name, std::string_view namespaceIRI) {
    if (!isPrefixName(name))
        Errors::throwInvalidPrefixName(std::string(name));
    // All that can fail precedes the first change of the table.
    Prefix prefix{std::string(name), std::string(namespaceIRI)};
    m_prefixes.reserve(m_prefixes.size() + 1);
    std::erase_if(m_prefixes, [&prefix](const Prefix& other) { return other.m_name == prefix.m_name; });
    const auto position = std::find_if(m_prefixes.begin(), m_prefixes.end(), [&prefix](const Prefix& other) {
        return other.m_namespaceIRI.size() < prefix.m_namespaceIRI.size();
    });
    m_prefixes.insert(position, std::move(prefix));
}

const Prefixes::Prefix* Prefixes::findPrefix(std::string_view iri) const noexcept {
    for (const Prefix& prefix : m_prefixes)
        if (iri.starts_with(prefix.m_namespaceIRI) && isUnescapedLocalName(iri.substr(prefix.m_namespaceIRI.size())))
            return &prefix;
    return nullptr;
}

template<typename Write>
void Prefixes::encode(std::string_view iri, const Write& write) const {
    const Prefix* const prefix = findPrefix(iri);
    if (prefix == nullptr)
        encodeFullIRI(iri, write);
    else {
        write(prefix->m_name);
        write(":");
        write(iri.substr(prefix->m_namespaceIRI.size()));
    }
}

void Prefixes::encodeIRI(const char* iri, size_t length, std::string& text) const {
    encode(std::string_view(iri, length), [&text](std::string_view piece) { text.append(piece); });
}

void Prefixes::encodeIRI(const char* iri, size_t length, OutputStream& output) const {
    encode(
        std::string_view(iri, length), [&output](std::string_view piece) { output.write(piece.data(), piece.size()); });
}

}
