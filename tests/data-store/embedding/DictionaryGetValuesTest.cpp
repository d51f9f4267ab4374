#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "support/MixedValues.h"
#include "support/ResourceIDWidths.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace kavix::test {

namespace {

class DictionaryGetValuesTest : public ResourceIDWidthTest {
protected:
    DictionaryGetValuesTest() :
        m_dictionary(makeOptions()) { }

    /// Gets values into what is left over from others, and compares each with what its ID alone gives.
    void expectValuesOfOneAtATime(const std::vector<uint64_t>& resourceIDs) {
        std::vector<ResourceValue> values(resourceIDs.size() + 2, makeValue(D_XSD_SHORT, 77));
        for (ResourceValue& value : values)
            value.auxiliaryDataSize = 3;
        m_dictionary.getValues(resourceIDs, values.data() + 1);
        EXPECT_TRUE(isSameValue(values.front(), makeValue(D_XSD_SHORT, 77)));
        EXPECT_TRUE(isSameValue(values.back(), makeValue(D_XSD_SHORT, 77)));
        for (size_t index = 0; index < resourceIDs.size(); ++index) {
            const ResourceValue& value = values[index + 1];
            const bool exists = m_dictionary.tryGetResourceDatatypeID(resourceIDs[index]) != D_NONE;
            const ResourceValue expected = exists ? m_dictionary.getValue(resourceIDs[index]) : ResourceValue();
            ASSERT_EQ(value.datatypeID, expected.datatypeID) << index;
            ASSERT_EQ(value.dataSize, expected.dataSize) << index;
            ASSERT_EQ(value.data, exists ? value.buffer : nullptr) << index;
            ASSERT_EQ(value.auxiliaryData, nullptr) << index;
            ASSERT_EQ(value.auxiliaryDataSize, 0u) << index;
            if (exists) {
                ASSERT_TRUE(isSameValue(value, expected)) << index;
            }
        }
    }

    Dictionary m_dictionary;
};

INSTANTIATE_TEST_SUITE_P(Widths, DictionaryGetValuesTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

TEST_P(DictionaryGetValuesTest, GivesTheValuesOfOneIDAtATime) {
    const struct {
        const char* name;
        ResourceValue (*makeValue)(uint64_t number);
    } rows[] = {
        {"integers", [](uint64_t number) { return makeValue(D_XSD_INTEGER, number); }},
        {"decimals", [](uint64_t number) { return makeValue(D_XSD_DECIMAL, number); }},
        {"all datatypes", makeMixedValue},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<uint64_t> known;
        Transaction transaction(m_dictionary);
        for (uint64_t number = 0; number < 5000; ++number)
            known.push_back(transaction.resolve(row.makeValue(number)));
        transaction.commit();
        for (const size_t n : {0, 1, 2, 15, 16, 17, 31, 32, 33, 48, 64, 1023, 1024, 1025, 5000}) {
            SCOPED_TRACE(n);
            std::vector<uint64_t> resourceIDs;
            for (size_t index = 0; index < n; ++index)
                resourceIDs.push_back(known[index * 7919 % known.size()]);
            expectValuesOfOneAtATime(resourceIDs);
        }
    }
}

TEST_P(DictionaryGetValuesTest, AnUnknownIDGivesAValueOfNoDatatype) {
    Transaction transaction(m_dictionary);
    std::vector<uint64_t> known;
    for (uint64_t number = 0; number < 1500; ++number)
        known.push_back(transaction.resolve(makeMixedValue(number)));
    transaction.commit();
    Transaction rolledBack(m_dictionary);
    const uint64_t goneID = rolledBack.resolve("777777", D_XSD_INT);
    rolledBack.rollback();
    const uint64_t unknown[] = {
        0,
        goneID,
        m_dictionary.takeSnapshot().resourceIDEnd,
        1 << 20,
        uint64_t(1) << 32,
        uint64_t(1) << 40,
        UINT64_MAX - 1,
        UINT64_MAX};
    const struct {
        const char* name;
        bool (*isUnknown)(size_t index);
    } rows[] = {
        {"the first", [](size_t index) { return index == 0; }},
        {"the last", [](size_t index) { return index == 2999; }},
        {"where a batch ends and begins", [](size_t index) { return index == 1023 || index == 1024; }},
        {"every second", [](size_t index) { return index % 2 == 0; }},
        {"all", [](size_t) { return true; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<uint64_t> resourceIDs;
        for (size_t index = 0; index < 3000; ++index)
            resourceIDs.push_back(
                row.isUnknown(index) ? unknown[index / 2 % std::size(unknown)] : known[index % known.size()]);
        expectValuesOfOneAtATime(resourceIDs);
    }
}

}

}
