#include "core/data-store/dictionary/Prefixes.h"

#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/MemoryOutputStream.h"
#include "support/TestTable.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace kavix {
namespace {

using namespace std::string_literals;

/// What both operations write, which must be the same.
std::string encode(const Prefixes& prefixes, std::string_view iri) {
    std::string text = "before ";
    prefixes.encodeIRI(iri.data(), iri.size(), text);
    EXPECT_EQ(text.substr(0, 7), "before ") << "what the string held is kept";
    MemoryOutputStream output;
    prefixes.encodeIRI(iri.data(), iri.size(), output);
    EXPECT_EQ(output.getContent(), text.substr(7));
    return output.takeContent();
}

struct Row {
    std::string name;
    std::string input;
    std::string expected;
};

void expectEncodings(const Prefixes& prefixes, const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(encode(prefixes, row.input), row.expected);
    }
}

/// The UTF-8 form of a code point; also of those that have none by right.
std::string toUTF8(uint32_t codePoint) {
    const auto continuation = [codePoint](int shift) {
        return static_cast<char>(0x80 | ((codePoint >> shift) & 0x3F));
    };
    if (codePoint < 0x80)
        return {static_cast<char>(codePoint)};
    if (codePoint < 0x800)
        return {static_cast<char>(0xC0 | (codePoint >> 6)), continuation(0)};
    if (codePoint < 0x10000)
        return {static_cast<char>(0xE0 | (codePoint >> 12)), continuation(6), continuation(0)};
    return {static_cast<char>(0xF0 | (codePoint >> 18)), continuation(12), continuation(6), continuation(0)};
}

Prefixes makePrefixes() {
    Prefixes prefixes;
    prefixes.addPrefix("n", "http://n/");
    return prefixes;
}

bool isAbbreviated(const Prefixes& prefixes, const std::string& localName) {
    const std::string text = encode(prefixes, "http://n/" + localName);
    if (text == "n:" + localName)
        return true;
    EXPECT_EQ(text.substr(0, 10), "<http://n/");
    return false;
}

TEST(Prefixes, DefaultsAbbreviateTheCommonVocabularies) {
    expectEncodings(
        Prefixes::s_defaultPrefixes,
        {
            {"xsd", XSD_UNSIGNED_BYTE, "xsd:unsignedByte"},
            {"xsd decimal", XSD_DECIMAL, "xsd:decimal"},
            {"rdf", "http://www.w3.org/1999/02/22-rdf-syntax-ns#type", "rdf:type"},
            {"rdfs", "http://www.w3.org/2000/01/rdf-schema#label", "rdfs:label"},
            {"owl", "http://www.w3.org/2002/07/owl#sameAs", "owl:sameAs"},
            {"namespace alone", XSD_NAMESPACE, "xsd:"},
            {"namespace less its last character", "http://www.w3.org/2001/XMLSchema",
             "<http://www.w3.org/2001/XMLSchema>"},
            {"other case", "http://www.w3.org/2001/XMLSCHEMA#int", "<http://www.w3.org/2001/XMLSCHEMA#int>"},
            {"other vocabulary", "http://example.org/int", "<http://example.org/int>"},
            {"empty IRI", "", "<>"},
        });
}

TEST(Prefixes, AnEmptyTableAbbreviatesNothing) {
    EXPECT_EQ(encode(Prefixes(), XSD_INT), "<http://www.w3.org/2001/XMLSchema#int>");
    EXPECT_EQ(encode(Prefixes(), std::string_view()), "<>");
}

TEST(Prefixes, OnlyTheGivenLengthIsEncoded) {
    std::string text;
    Prefixes::s_defaultPrefixes.encodeIRI(XSD_UNSIGNED_LONG, sizeof(XSD_UNSIGNED_LONG) - 1 - 4, text);

    EXPECT_EQ(text, "xsd:unsigned");
}

TEST(Prefixes, WhatFollowsTheGivenLengthDoesNotCompleteACharacter) {
    const Prefixes prefixes = makePrefixes();
    for (const std::string& whole :
         {"http://n/a%20"s, "http://n/\xC3\xA9"s, "http://n/\xE6\x97\xA5"s, "http://n/\xF0\x9F\x8D\x8E"s}) {
        SCOPED_TRACE(whole);
        const std::vector<char> bytes(
            whole.begin(), whole.end() - 1); // no byte after them: a sanitizer reports a read beyond
        const std::string_view cutOff(bytes.data(), bytes.size());
        EXPECT_EQ(encode(prefixes, whole), "n:" + whole.substr(9));
        EXPECT_EQ(encode(prefixes, cutOff), "<" + std::string(cutOff) + ">");
    }
}

TEST(Prefixes, TheLongestNamespaceWhoseLocalNameIsAllowedIsUsed) {
    Prefixes prefixes;
    prefixes.addPrefix("b", "http://a/b");
    prefixes.addPrefix("scheme", "http:");
    prefixes.addPrefix("bc", "http://a/bc.");
    prefixes.addPrefix("a", "http://a/");
    expectEncodings(
        prefixes, {
                      {"longest", "http://a/bc.d", "bc:d"},
                      {"only the next is allowed", "http://a/bc.-d", "b:c.-d"},
                      {"local name ends with a point", "http://a/bc.d.", "<http://a/bc.d.>"},
                      {"middle", "http://a/bd", "b:d"},
                      {"middle not allowed, shorter serves", "http://a/b-d", "a:b-d"},
                      {"middle starts with a point, shorter serves", "http://a/b.d", "a:b.d"},
                      {"nothing left", "http://a/b", "b:"},
                      {"nothing left of the longest", "http://a/bc.", "bc:"},
                      {"shortest", "http://a/c", "a:c"},
                      {"no local name of any", "http://c/d", "<http://c/d>"},
                      {"shortest of all", "http:x", "scheme:x"},
                  });
}

TEST(Prefixes, AnEmptyNameAndAnEmptyNamespaceAreNamesToo) {
    Prefixes prefixes;
    prefixes.addPrefix("", "http://a/");
    EXPECT_EQ(encode(prefixes, "http://a/b"), ":b");
    EXPECT_EQ(encode(prefixes, "http://a/"), ":");

    prefixes.addPrefix("all", "");
    EXPECT_EQ(encode(prefixes, "urn:b"), "all:urn:b");
    EXPECT_EQ(encode(prefixes, "http://b/c"), "<http://b/c>");
    EXPECT_EQ(encode(prefixes, "http://a/b"), ":b");
}

TEST(Prefixes, LocalNamesFollowTheTurtleGrammar) {
    const Prefixes prefixes = makePrefixes();
    const test::TestTable localNames("data-store/dictionary/LocalNames.tsv");
    for (const char* const allowed : {"yes", "no"})
        for (const test::TestRow& row : localNames.getRows("allowed", allowed)) {
            SCOPED_TRACE(row.getPlace());
            EXPECT_EQ(isAbbreviated(prefixes, row.getText("local name")), std::string_view(allowed) == "yes");
        }
}

TEST(Prefixes, LocalNamesFollowTheRangesOfUnicode) {
    const Prefixes prefixes = makePrefixes();
    struct RangeRow {
        uint32_t first;
        uint32_t last;
        bool isAllowedFirst;
        bool isAllowedLater;
    };
    // From U+0080 to the end of Unicode without a gap: both bounds of each range are checked.
    const RangeRow rows[] = {
        {0x0080, 0x00B6, false, false},    {0x00B7, 0x00B7, false, true},      {0x00B8, 0x00BF, false, false},
        {0x00C0, 0x00D6, true, true},      {0x00D7, 0x00D7, false, false},     {0x00D8, 0x00F6, true, true},
        {0x00F7, 0x00F7, false, false},    {0x00F8, 0x02FF, true, true},       {0x0300, 0x036F, false, true},
        {0x0370, 0x037D, true, true},      {0x037E, 0x037E, false, false},     {0x037F, 0x1FFF, true, true},
        {0x2000, 0x200B, false, false},    {0x200C, 0x200D, true, true},       {0x200E, 0x203E, false, false},
        {0x203F, 0x2040, false, true},     {0x2041, 0x206F, false, false},     {0x2070, 0x218F, true, true},
        {0x2190, 0x2BFF, false, false},    {0x2C00, 0x2FEF, true, true},       {0x2FF0, 0x3000, false, false},
        {0x3001, 0xD7FF, true, true},      {0xD800, 0xDFFF, false, false}, // surrogates: not UTF-8
        {0xE000, 0xF8FF, false, false},    {0xF900, 0xFDCF, true, true},       {0xFDD0, 0xFDEF, false, false},
        {0xFDF0, 0xFFFD, true, true},      {0xFFFE, 0xFFFF, false, false},     {0x10000, 0xEFFFF, true, true},
        {0xF0000, 0x10FFFF, false, false}, {0x110000, 0x1FFFFF, false, false}, // beyond Unicode
    };
    uint32_t expectedFirst = 0x80;
    for (const RangeRow& row : rows) {
        ASSERT_EQ(row.first, expectedFirst) << "the table has a gap";
        expectedFirst = row.last + 1;
        for (const uint32_t codePoint : {row.first, row.last}) {
            SCOPED_TRACE(codePoint);
            EXPECT_EQ(isAbbreviated(prefixes, toUTF8(codePoint)), row.isAllowedFirst);
            EXPECT_EQ(isAbbreviated(prefixes, "a" + toUTF8(codePoint)), row.isAllowedLater);
            EXPECT_EQ(isAbbreviated(prefixes, "a" + toUTF8(codePoint) + "b"), row.isAllowedLater);
        }
    }
}

TEST(Prefixes, IRIsThatAreNotUTF8AreWrittenInFull) {
    const Row rows[] = {
        {"continuation byte first", "\x80", ""},
        {"last continuation byte first", "\xBF", ""},
        {"two bytes cut off", "\xC3", ""},
        {"two bytes, no continuation",
         "\xC3"
         "a",
         ""},
        {"two bytes, lead byte again", "\xC3\xC3", ""},
        {"three bytes cut off", "\xE6\x97", ""},
        {"three bytes, no continuation",
         "\xE6\x97"
         "a",
         ""},
        {"four bytes cut off", "\xF0\x9F\x8D", ""},
        {"four bytes, no continuation",
         "\xF0\x9F\x8D"
         "a",
         ""},
        {"A in two bytes", "\xC1\x81", ""},
        {"A in three bytes", "\xE0\x81\x81", ""},
        {"U+00E9 in three bytes", "\xE0\x83\xA9", ""},
        {"U+00E9 in four bytes", "\xF0\x80\x83\xA9", ""},
        {"U+3042 in four bytes", "\xF0\x83\x81\x82", ""},
        {"five bytes", "\xF8\x88\x80\x80\x80", ""},
        {"0xFE", "\xFE", ""},
        {"0xFF", "\xFF", ""},
    };
    const Prefixes prefixes = makePrefixes();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        for (const std::string before : {"", "a"}) {
            const std::string iri = "http://n/" + before + row.input;
            EXPECT_EQ(encode(prefixes, iri), "<" + iri + ">");
        }
    }
}

TEST(Prefixes, ANamespaceDoesNotSplitACharacter) {
    Prefixes prefixes;
    prefixes.addPrefix("n", "http://n/\xC3");

    EXPECT_EQ(encode(prefixes, "http://n/\xC3\xA9"), "<http://n/\xC3\xA9>");
}

TEST(Prefixes, FullIRIsEscapeExactlyWhatTurtleForbids) {
    const std::string_view forbidden = "<>\"{}|^`\\";
    static constexpr char HEX_DIGITS[] = "0123456789ABCDEF";
    for (int byte = 0; byte != 256; ++byte) {
        SCOPED_TRACE(byte);
        const char character = static_cast<char>(byte);
        const bool isEscaped = byte <= 0x20 || forbidden.find(character) != std::string_view::npos;
        const std::string expected =
            isEscaped ? "\\u00"s + HEX_DIGITS[byte / 16] + HEX_DIGITS[byte % 16] : std::string(1, character);
        EXPECT_EQ(encode(Prefixes(), std::string(1, character)), "<" + expected + ">");
        EXPECT_EQ(encode(Prefixes(), "a"s + character + character + "b"), "<a" + expected + expected + "b>");
    }
}

TEST(Prefixes, FullIRIsAreWrittenWhole) {
    expectEncodings(
        makePrefixes(),
        {
            {"space in a local name", "http://n/a b", "<http://n/a\\u0020b>"},
            {"NUL in a local name", "http://n/a\0b"s, "<http://n/a\\u0000b>"},
            {"percent stays", "http://m/%20", "<http://m/%20>"},
            {"longer characters stay", "http://m/\xC3\xA9 \xE6\x97\xA5", "<http://m/\xC3\xA9\\u0020\xE6\x97\xA5>"},
            {"escape at both ends", "<a>", "<\\u003Ca\\u003E>"},
            {"only escapes", "^\\", "<\\u005E\\u005C>"},
        });
}

TEST(Prefixes, NamesFollowTheTurtleGrammar) {
    struct NameRow {
        const char* name;
        std::string prefixName;
        bool isAllowed;
    };
    const NameRow rows[] = {
        {"empty", "", true},
        {"letter", "a", true},
        {"letters, digits, signs", "aZ09_-b", true},
        {"hyphen last", "a-", true},
        {"underscore last", "a_", true},
        {"point in the middle", "a.b", true},
        {"points in the middle", "a..b", true},
        {"two-byte letter", "\xC3\xA9", true},
        {"mark after", "a\xC2\xB7", true},
        {"underscore first", "_a", false},
        {"digit first", "1a", false},
        {"hyphen first", "-a", false},
        {"point first", ".a", false},
        {"point last", "a.", false},
        {"point alone", ".", false},
        {"colon", "a:", false},
        {"percent", "a%20", false},
        {"space", "a b", false},
        {"NUL", "a\0"s, false},
        {"mark first", "\xC2\xB7", false},
        {"not UTF-8", "a\xC3", false},
        {"sign beyond ASCII", "a\xC3\x97", false},
    };
    for (const NameRow& row : rows) {
        SCOPED_TRACE(row.name);
        Prefixes prefixes;
        prefixes.addPrefix("n", "http://n/");
        try {
            prefixes.addPrefix(row.prefixName, "http://n/longer/");
            EXPECT_TRUE(row.isAllowed);
            EXPECT_EQ(encode(prefixes, "http://n/longer/a"), row.prefixName + ":a");
        }
        catch (const KavixException& exception) {
            EXPECT_FALSE(row.isAllowed);
            EXPECT_EQ(
                exception.getMessage(),
                "'" + row.prefixName +
                    "' is not a valid Turtle prefix: it must start with a letter, continue with "
                    "letters, digits, '_', '-' and '.', and not end with '.'.");
            EXPECT_EQ(exception.getSourceFile(), "Engine/core/data-store/dictionary/Prefixes");
            EXPECT_EQ(encode(prefixes, "http://n/longer/a"), "<http://n/longer/a>") << "the table is unchanged";
        }
        EXPECT_EQ(encode(prefixes, "http://n/a"), "n:a");
    }
}

TEST(Prefixes, AddingANameAgainReplacesItsNamespace) {
    Prefixes prefixes;
    prefixes.addPrefix("a", "http://a/long/");
    prefixes.addPrefix("b", "http://b/");
    prefixes.addPrefix("a", "http://a/");
    expectEncodings(
        prefixes, {
                      {"new namespace", "http://a/x", "a:x"},
                      {"old namespace", "http://a/long/x", "<http://a/long/x>"},
                      {"other prefix", "http://b/x", "b:x"},
                  });

    prefixes.addPrefix("a", "http://b/longer/");
    EXPECT_EQ(encode(prefixes, "http://b/longer/x"), "a:x") << "the order by length is kept";
    EXPECT_EQ(encode(prefixes, "http://b/x"), "b:x");
    EXPECT_EQ(encode(prefixes, "http://a/x"), "<http://a/x>");
}

TEST(Prefixes, OfTwoNamesForANamespaceTheFirstIsUsed) {
    Prefixes prefixes;
    prefixes.addPrefix("first", "http://a/");
    prefixes.addPrefix("second", "http://a/");

    EXPECT_EQ(encode(prefixes, "http://a/x"), "first:x");
}

}
}
