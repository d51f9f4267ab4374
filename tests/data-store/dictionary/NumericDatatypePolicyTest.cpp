#include "core/data-store/dictionary/NumericDatatype.h"

#include "support/NumericBatches.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

// What the tables of numbers take as a key's hash, and as the same key. The image format fixes both.

namespace kavix::test {

namespace {

template<typename ResourceID>
class NumericDatatypePolicyTest : public ::testing::Test {
protected:
    using Store = NumericStore<ResourceID>;
};

TYPED_TEST_SUITE(NumericDatatypePolicyTest, ResourceIDTypes);

TYPED_TEST(NumericDatatypePolicyTest, AnIntegerStartsAtTheProductOfItsValue) {
    typename TestFixture::Store store;
    store.initialize();
    store.resolve("1", D_XSD_INTEGER);
    store.resolve("-1", D_XSD_INTEGER);
    store.resolve("0", D_XSD_INTEGER);
    const NumericImage image = saveToImage(*store.m_dictionary);
    const ImageTable& table = image[D_XSD_INTEGER];
    EXPECT_EQ(table.m_buckets[0x9e3779b1 & 1023].m_word, 1u);
    EXPECT_EQ(table.m_buckets[(0 - uint64_t(0x9e3779b1)) & 1023].m_word, 2u);
    EXPECT_EQ(table.m_buckets[0].m_word, 3u);
}

TYPED_TEST(NumericDatatypePolicyTest, EveryIntegerThatLooksLikeAMarkerIsStored) {
    typename TestFixture::Store store;
    store.initialize();
    const int64_t values[] = {0,
                              -1,
                              -2,
                              1,
                              std::numeric_limits<int64_t>::min(),
                              std::numeric_limits<int64_t>::max(),
                              0xffffffff,
                              0xfffffffe,
                              -0x100000000};
    uint64_t resourceID = 0;
    for (const int64_t value : values)
        EXPECT_EQ(store.tryResolve(makeInteger(D_XSD_INTEGER, value)), 0u) << value;
    for (const int64_t value : values)
        EXPECT_EQ(store.resolve(makeInteger(D_XSD_INTEGER, value)), ++resourceID) << value;
    for (int64_t filler = 1000; filler < 3000; ++filler) // moves them to larger arrays
        store.resolve(makeInteger(D_XSD_INTEGER, filler));
    resourceID = 0;
    for (const int64_t value : values)
        EXPECT_EQ(store.tryResolve(makeInteger(D_XSD_INTEGER, value)), ++resourceID) << value;
}

TYPED_TEST(NumericDatatypePolicyTest, DecimalsDifferInEitherField) {
    typename TestFixture::Store store;
    store.initialize();
    const char* const forms[] = {"0", "1", "-1", "0.1", "0.01", "-0.1", "-0.9223372036854775808"};
    uint64_t resourceID = 0;
    for (const char* const form : forms)
        EXPECT_EQ(store.resolve(form, D_XSD_DECIMAL), ++resourceID) << form;
    resourceID = 0;
    for (const char* const form : forms)
        EXPECT_EQ(store.tryResolve(form, D_XSD_DECIMAL), ++resourceID) << form;
    EXPECT_EQ(store.tryResolve("0.001", D_XSD_DECIMAL), 0u);
}

TYPED_TEST(NumericDatatypePolicyTest, ADecimalStartsAtTheHashOfBothFields) {
    using Policy = typename NumericDatatype<TypeParam>::DecimalPolicy;
    // FNV-1a over two whole units.
    const auto getExpected = [](uint64_t unscaledValue, uint64_t fractionDigits) {
        uint64_t hash = unscaledValue ^ 0xcbf29ce484222325;
        hash = (hash * 0x100000001b3) ^ fractionDigits;
        return hash * 0x100000001b3;
    };
    EXPECT_EQ(Policy::getHash(XSDDecimal()), getExpected(0, 0));
    EXPECT_EQ(Policy::getHash(XSDDecimal(-1)), getExpected(~uint64_t(0), 0));
    EXPECT_EQ(Policy::getHash(XSDDecimal::fromNormalisedFields(12345, 19)), getExpected(12345, 19));
}

TYPED_TEST(NumericDatatypePolicyTest, TheTestsKnowTheValueOfAHash) {
    using Integers = BatchFixture<TypeParam, int64_t>;
    using Decimals = BatchFixture<TypeParam, XSDDecimal>;
    EXPECT_EQ(
        NumericDatatype<TypeParam>::IntegerPolicy::getHash(Integers::makeValueWithHash(0x123456789abcdef)),
        0x123456789abcdefu);
    EXPECT_EQ(
        NumericDatatype<TypeParam>::DecimalPolicy::getHash(Decimals::makeValueWithHash(0x123456789abcdef)),
        0x123456789abcdefu);
}

}

}
