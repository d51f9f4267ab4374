#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"
#include "core/data-store/dictionary/NumericDatatypeFactory.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "support/NamesOnlyFactory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kavix {

using test::NamesOnlyFactory;

namespace {

constexpr uint8_t FIRST_ID = 200;
constexpr uint8_t SECOND_ID = 202;
constexpr uint8_t LAST_ID = 255;

// What registering while the program starts comes to, as the families of an embedder's own do. The factory goes again:
// every dictionary that other tests make has all registered families.
const bool s_isFoundDuringStaticInitialisation = [] {
    const NamesOnlyFactory factory({{240, "http://example.org/static"}});
    return DictionaryDatatypeFactory::tryGetFactory(240) == &factory &&
           DictionaryDatatypeFactory::tryGetDatatypeID("http://example.org/static") == 240;
}();

bool isRegistered(const DictionaryDatatypeFactory& factory) {
    const std::vector<const DictionaryDatatypeFactory*> factories = DictionaryDatatypeFactory::getFactories();
    return std::find(factories.begin(), factories.end(), &factory) != factories.end();
}

}

TEST(DictionaryDatatypeFactory, AFactoryIsFoundByTheIDsAndIRIsOfItsDatatypes) {
    const NamesOnlyFactory factory({{FIRST_ID, "http://example.org/first"}, {LAST_ID, "http://example.org/last"}});
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetFactory(FIRST_ID), &factory);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetFactory(LAST_ID), &factory);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeID("http://example.org/first"), FIRST_ID);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeID("http://example.org/last"), LAST_ID);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeIRI(FIRST_ID), "http://example.org/first");
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeIRI(LAST_ID), "http://example.org/last");
    EXPECT_TRUE(isRegistered(factory));
    const DictionaryDatatypeFactory::DatatypeIDsAndIRIs expected{
        {FIRST_ID, "http://example.org/first"}, {LAST_ID, "http://example.org/last"}};
    EXPECT_EQ(factory.getDatatypeIDsAndIRIs(), expected);
}

TEST(DictionaryDatatypeFactory, WhatIsNotRegisteredIsNotFound) {
    const NamesOnlyFactory factory({{FIRST_ID, "http://example.org/first"}});
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetFactory(D_NONE), nullptr);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetFactory(FIRST_ID + 1), nullptr);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeIRI(FIRST_ID + 1), "");
    for (const std::string_view datatypeIRI :
         {"", "http://example.org/firs", "http://example.org/first2", "http://example.org/First", "first"})
        EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeID(datatypeIRI), D_NONE) << datatypeIRI;
    // Only the characters of the view count, not what follows them.
    EXPECT_EQ(
        DictionaryDatatypeFactory::tryGetDatatypeID(std::string_view("http://example.org/first and more", 24)),
        FIRST_ID);
}

TEST(DictionaryDatatypeFactory, ADestroyedFactoryIsNotFoundAndItsDatatypesAreFree) {
    {
        const NamesOnlyFactory factory(
            {{FIRST_ID, "http://example.org/first"}, {SECOND_ID, "http://example.org/second"}});
        EXPECT_TRUE(isRegistered(factory));
    }
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetFactory(FIRST_ID), nullptr);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeID("http://example.org/first"), D_NONE);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeID("http://example.org/second"), D_NONE);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeIRI(SECOND_ID), "");

    const NamesOnlyFactory successor({{FIRST_ID, "http://example.org/second"}});
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetFactory(FIRST_ID), &successor);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetDatatypeID("http://example.org/second"), FIRST_ID);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetFactory(SECOND_ID), nullptr);
}

TEST(DictionaryDatatypeFactory, FactoriesAreListedOnceInTheOrderOfTheirSmallestDatatypeIDs) {
    const NamesOnlyFactory later({{SECOND_ID, "http://example.org/second"}, {LAST_ID, "http://example.org/last"}});
    const NamesOnlyFactory earlier({{220, "http://example.org/220"}, {FIRST_ID, "http://example.org/first"}});
    std::vector<const DictionaryDatatypeFactory*> factories = DictionaryDatatypeFactory::getFactories();
    EXPECT_EQ(std::count(factories.begin(), factories.end(), &earlier), 1);
    EXPECT_EQ(std::count(factories.begin(), factories.end(), &later), 1);
    EXPECT_LT(
        std::find(factories.begin(), factories.end(), &earlier), std::find(factories.begin(), factories.end(), &later));
    EXPECT_LT(
        std::find(factories.begin(), factories.end(), &s_NumericDatatypeFactory),
        std::find(factories.begin(), factories.end(), &earlier));
}

TEST(DictionaryDatatypeFactory, StaticFactoriesOfAnyTranslationUnitAreRegistered) {
    EXPECT_TRUE(s_isFoundDuringStaticInitialisation);
    EXPECT_EQ(DictionaryDatatypeFactory::tryGetFactory(240), nullptr);
}

}
