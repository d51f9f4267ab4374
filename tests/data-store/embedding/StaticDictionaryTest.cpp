// Of Dictionary alone: what must happen before main().

#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/platform/errors/KavixException.h"

#include <gtest/gtest.h>

#include <string>

namespace kavix::test {

namespace {

// A static object of a program, in a translation unit that knows nothing of when the library's are made.
Dictionary s_dictionary({.maxResourceID = 1 << 16});
const uint64_t s_half = s_dictionary.resolve("0.50", "http://www.w3.org/2001/XMLSchema#decimal");
const std::string s_literal = s_dictionary.getTurtleLiteral(s_dictionary.resolve("5", D_XSD_INT));

std::string getErrorOfCreation() {
    try {
        Dictionary dictionary({.maxResourceID = 1 << 16});
    }
    catch (const KavixException& exception) {
        return exception.getMessage();
    }
    return "";
}

const std::string s_firstTable = s_dictionary.getComponentInfo()->getChildren()[0]->getChildren()[0]->getName();

// Before the library's own.
[[gnu::init_priority(500)]] const std::string s_earlyError = getErrorOfCreation();

}

TEST(StaticDictionary, WorksBeforeMainBegins) {
    EXPECT_EQ(s_literal, "\"5\"^^xsd:int");
    EXPECT_EQ(s_dictionary.getLexicalForm(s_half), "0.5");
    EXPECT_EQ(s_dictionary.tryResolve(".5", D_XSD_DECIMAL), s_half);
    EXPECT_EQ(s_firstTable, "xsd:decimal");
}

TEST(StaticDictionary, BeforeTheLibraryIsReadyThereIsAnError) {
    EXPECT_EQ(s_earlyError, "A dictionary cannot be created before the library's own static objects; create it later.");
}

}
