#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "support/MixedLiterals.h"
#include "support/MixedValues.h"
#include "support/ResourceIDWidths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

class DictionaryBatchTest : public ResourceIDWidthTest { };

INSTANTIATE_TEST_SUITE_P(Widths, DictionaryBatchTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

/// Numbers of one stretch of a batch: of any datatype, of one, or of two; few or many.
std::vector<uint64_t> makeNumbers(std::mt19937_64& random, size_t n) {
    const uint64_t range = uint64_t(14) << (random() % 11);
    const uint64_t first = random() % 20000;
    const uint64_t datatype = random() % NUMBER_OF_NUMERIC_DATATYPES;
    const unsigned kind = random() % 4;
    std::vector<uint64_t> numbers;
    for (size_t i = 0; i < n; ++i) {
        const uint64_t number = first + random() % range;
        const uint64_t numberOfDatatype = number / NUMBER_OF_NUMERIC_DATATYPES * NUMBER_OF_NUMERIC_DATATYPES;
        numbers.push_back(
            kind == 0   ? numberOfDatatype + datatype
            : kind == 1 ? numberOfDatatype + (datatype + random() % 2) % NUMBER_OF_NUMERIC_DATATYPES
                        : number);
    }
    return numbers;
}

/// A dictionary of which everything is asked in batches, beside one of which everything is asked one at a time.
TEST_P(DictionaryBatchTest, RandomBatchesAgreeWithOneAtATime) {
    for (const uint64_t seed : {1, 2, 3, 4, 5, 6}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        Dictionary single(makeOptions());
        Dictionary batched(makeOptions());
        std::vector<Dictionary::Snapshot> snapshots{Dictionary::EVERYTHING};
        for (int round = 0; round < 12; ++round) {
            Transaction singleTransaction(single);
            Transaction transaction(batched);
            for (int operation = 0; operation < 12; ++operation) {
                SCOPED_TRACE("round " + std::to_string(round) + ", operation " + std::to_string(operation));
                const size_t n = random() % 5 == 0 ? random() % 3500 : random() % 200;
                const std::vector<uint64_t> numbers = makeNumbers(random, n);
                const bool hasInvalid = random() % 2 == 0;
                const uint64_t distance = 1 + random() % 300;
                const Dictionary::Snapshot snapshot = snapshots[random() % snapshots.size()];
                std::vector<ResourceValue> values;
                std::vector<LiteralText> literals;
                for (const uint64_t number : numbers) {
                    const bool isInvalid = hasInvalid && random() % distance == 0;
                    values.push_back(makeMixedValue(number));
                    if (isInvalid)
                        values.back().dataSize += 1;
                    literals.push_back(isInvalid ? makeInvalidLiteral(number) : makeMixedLiteral(number));
                }
                std::vector<uint64_t> resourceIDs(n, 999);
                std::vector<Resolution> resolutions(n, Resolution{999, nullptr});
                switch (random() % 5) {
                case 0: {
                    const SingleResults expected = resolveSingly(singleTransaction, values);
                    ASSERT_EQ(
                        describeError([&] { transaction.resolve(values, resourceIDs.data()); }), expected.m_error);
                    resourceIDs.resize(expected.m_resourceIDs.size());
                    ASSERT_EQ(resourceIDs, expected.m_resourceIDs);
                    break;
                }
                case 1: {
                    SingleResults expected;
                    expected.m_error = describeError([&] {
                        for (const ResourceValue& value : values)
                            expected.m_resourceIDs.push_back(single.tryResolve(value, snapshot));
                    });
                    ASSERT_EQ(
                        describeError([&] { batched.tryResolve(values, resourceIDs.data(), snapshot); }),
                        expected.m_error);
                    resourceIDs.resize(expected.m_resourceIDs.size());
                    ASSERT_EQ(resourceIDs, expected.m_resourceIDs);
                    break;
                }
                case 2: {
                    const std::vector<Outcome> expected = resolveSingly(singleTransaction, literals);
                    transaction.resolve(getLiterals(literals), resolutions.data());
                    ASSERT_EQ(describe(resolutions), expected);
                    break;
                }
                case 3: {
                    std::vector<Outcome> expected;
                    for (const LiteralText& literal : literals)
                        expected.push_back(getOutcome(
                            [&] { return single.tryResolve(literal.m_lexicalForm, literal.m_datatypeID, snapshot); }));
                    batched.tryResolve(getLiterals(literals), resolutions.data(), snapshot);
                    ASSERT_EQ(describe(resolutions), expected);
                    break;
                }
                default: {
                    for (size_t i = 0; i < n; ++i)
                        resourceIDs[i] = random() % (batched.countResourcesByDatatypeID()[D_XSD_DECIMAL] * 20 + 100);
                    std::vector<ResourceValue> found(n);
                    batched.getValues(resourceIDs, found.data());
                    for (size_t i = 0; i < n; ++i) {
                        ASSERT_EQ(found[i].datatypeID, single.tryGetResourceDatatypeID(resourceIDs[i]));
                        if (found[i].datatypeID != D_NONE) {
                            ASSERT_TRUE(isSameValue(found[i], single.getValue(resourceIDs[i])));
                        }
                    }
                }
                }
            }
            if (random() % 4 != 0) {
                singleTransaction.commit();
                transaction.commit();
            }
            else {
                singleTransaction.rollback();
                transaction.rollback();
            }
            snapshots.push_back(batched.takeSnapshot());
            expectSameContents(single, batched);
            expectConsistent(batched);
            if (HasFatalFailure())
                return;
        }
        EXPECT_GT(batched.takeSnapshot().first, 4000u); // tables were resized
    }
}

TEST_P(DictionaryBatchTest, HowAListIsCutIntoBatchesDoesNotMatter) {
    std::mt19937_64 random(11);
    std::vector<ResourceValue> values;
    for (int i = 0; i < 8000; ++i)
        values.push_back(makeMixedValue(random() % 30000));
    Dictionary single(makeOptions());
    Transaction singleTransaction(single);
    const std::vector<uint64_t> expected = resolveSingly(singleTransaction, values).m_resourceIDs;
    singleTransaction.commit();
    for (const size_t size : {1u, 2u, 3u, 47u, 48u, 49u, 100u, 1023u, 1024u, 1025u, 2048u, 8000u}) {
        SCOPED_TRACE(size);
        Dictionary batched(makeOptions());
        Transaction transaction(batched);
        std::vector<uint64_t> resourceIDs(values.size());
        for (size_t first = 0; first < values.size(); first += size)
            transaction.resolve(
                std::span(values).subspan(first, std::min(size, values.size() - first)), resourceIDs.data() + first);
        EXPECT_EQ(resourceIDs, expected);
        transaction.commit();
        expectSameContents(single, batched);
    }
}

}

}
