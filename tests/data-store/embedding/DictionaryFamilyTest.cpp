#include "core/data-store/embedding/DictionaryFamily.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/inspection/NumericDatatypeInspector.h"
#include "support/NamesOnlyFamily.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kavix {

using test::NamesOnlyFamily;

namespace {

constexpr uint8_t FIRST_ID = 200;
constexpr uint8_t SECOND_ID = 202;
constexpr uint8_t LAST_ID = 255;

// What registering while the program starts comes to, as the families of an embedder's own do. The family goes again:
// every dictionary that other tests make has all registered families.
const bool s_isFoundDuringStaticInitialisation = [] {
    const NamesOnlyFamily family{{240, "http://example.org/static"}};
    return DictionaryFamily::tryGetFamily(240) == family.get() &&
           DictionaryFamily::tryGetDatatypeID("http://example.org/static") == 240;
}();

bool isRegistered(const NamesOnlyFamily& family) {
    const std::vector<const DictionaryFamily*> families = DictionaryFamily::getFamilies();
    return std::find(families.begin(), families.end(), family.get()) != families.end();
}

}

TEST(DictionaryFamily, AFamilyIsFoundByTheIDsAndIRIsOfItsDatatypes) {
    const NamesOnlyFamily family{{FIRST_ID, "http://example.org/first"}, {LAST_ID, "http://example.org/last"}};
    EXPECT_EQ(DictionaryFamily::tryGetFamily(FIRST_ID), family.get());
    EXPECT_EQ(DictionaryFamily::tryGetFamily(LAST_ID), family.get());
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeID("http://example.org/first"), FIRST_ID);
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeID("http://example.org/last"), LAST_ID);
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeIRI(FIRST_ID), "http://example.org/first");
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeIRI(LAST_ID), "http://example.org/last");
    EXPECT_TRUE(isRegistered(family));
}

TEST(DictionaryFamily, WhatIsNotRegisteredIsNotFound) {
    const NamesOnlyFamily family{{FIRST_ID, "http://example.org/first"}};
    EXPECT_EQ(DictionaryFamily::tryGetFamily(D_NONE), nullptr);
    EXPECT_EQ(DictionaryFamily::tryGetFamily(FIRST_ID + 1), nullptr);
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeIRI(FIRST_ID + 1), "");
    for (const std::string_view datatypeIRI :
         {"", "http://example.org/firs", "http://example.org/first2", "http://example.org/First", "first"})
        EXPECT_EQ(DictionaryFamily::tryGetDatatypeID(datatypeIRI), D_NONE) << datatypeIRI;
    // Only the characters of the view count, not what follows them.
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeID(std::string_view("http://example.org/first and more", 24)), FIRST_ID);
}

TEST(DictionaryFamily, ADestroyedFamilyIsNotFoundAndItsDatatypesAreFree) {
    {
        const NamesOnlyFamily family{{FIRST_ID, "http://example.org/first"}, {SECOND_ID, "http://example.org/second"}};
        EXPECT_TRUE(isRegistered(family));
    }
    EXPECT_EQ(DictionaryFamily::tryGetFamily(FIRST_ID), nullptr);
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeID("http://example.org/first"), D_NONE);
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeID("http://example.org/second"), D_NONE);
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeIRI(SECOND_ID), "");

    const NamesOnlyFamily successor{{FIRST_ID, "http://example.org/second"}};
    EXPECT_EQ(DictionaryFamily::tryGetFamily(FIRST_ID), successor.get());
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeID("http://example.org/second"), FIRST_ID);
    EXPECT_EQ(DictionaryFamily::tryGetFamily(SECOND_ID), nullptr);
}

TEST(DictionaryFamily, FamiliesAreListedOnceInTheOrderOfTheirSmallestDatatypeIDs) {
    const NamesOnlyFamily later{{SECOND_ID, "http://example.org/second"}, {LAST_ID, "http://example.org/last"}};
    const NamesOnlyFamily earlier{{220, "http://example.org/220"}, {FIRST_ID, "http://example.org/first"}};
    std::vector<const DictionaryFamily*> families = DictionaryFamily::getFamilies();
    EXPECT_EQ(std::count(families.begin(), families.end(), earlier.get()), 1);
    EXPECT_EQ(std::count(families.begin(), families.end(), later.get()), 1);
    EXPECT_LT(
        std::find(families.begin(), families.end(), earlier.get()),
        std::find(families.begin(), families.end(), later.get()));
    EXPECT_LT(
        std::find(families.begin(), families.end(), DictionaryFamily::tryGetFamily(D_XSD_DECIMAL)),
        std::find(families.begin(), families.end(), earlier.get()));
}

TEST(DictionaryFamily, StaticFamiliesOfAnyTranslationUnitAreRegistered) {
    EXPECT_TRUE(s_isFoundDuringStaticInitialisation);
    EXPECT_EQ(DictionaryFamily::tryGetFamily(240), nullptr);
}

TEST(DictionaryFamily, TheNumericFamilyHasItsFactoryAndItsInspectorForItsFourteenDatatypes) {
    const Dictionary dictionary({.maxResourceID = 1 << 16}); // what a program that uses the library has
    const DictionaryFamily* const numeric = DictionaryFamily::tryGetFamily(D_XSD_DECIMAL);
    ASSERT_NE(numeric, nullptr);
    EXPECT_EQ(&numeric->getFactory(), &s_NumericDatatypeFactory);
    EXPECT_EQ(&numeric->getInspector(), &s_NumericDatatypeInspector);
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeID("http://www.w3.org/2001/XMLSchema#decimal"), D_XSD_DECIMAL);
    for (const IntegerDatatypeInfo& info : s_integerDatatypeInfos) {
        EXPECT_EQ(DictionaryFamily::tryGetFamily(info.datatypeID), numeric);
        EXPECT_EQ(DictionaryFamily::tryGetDatatypeID(info.datatypeIRI), info.datatypeID);
        EXPECT_EQ(DictionaryFamily::tryGetDatatypeIRI(info.datatypeID), info.datatypeIRI);
    }
    EXPECT_EQ(DictionaryFamily::tryGetFamily(D_XSD_DOUBLE), nullptr);
    EXPECT_EQ(DictionaryFamily::tryGetFamily(D_XSD_FLOAT), nullptr);
}

}
