#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "support/MixedLiterals.h"
#include "support/MixedValues.h"
#include "support/ResourceIDWidths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
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
class TwoDictionaries {

public:

    explicit TwoDictionaries(const Dictionary::Options& options) :
        m_single(options),
        m_batched(options) { }

    void begin() {
        m_singleTransaction.emplace(m_single);
        m_transaction.emplace(m_batched);
    }

    void end(bool commits) {
        for (Transaction* const transaction : {&*m_singleTransaction, &*m_transaction})
            commits ? transaction->commit() : transaction->rollback();
        m_snapshots.push_back(m_batched.takeSnapshot());
        expectSameContents(m_single, m_batched);
        expectConsistent(m_batched);
    }

    /// One random operation with a random batch.
    void operate(std::mt19937_64& random) {
        makeBatch(random);
        const Dictionary::Snapshot snapshot = m_snapshots[random() % m_snapshots.size()];
        switch (random() % 5) {
        case 0:
            return resolveValues();
        case 1:
            return lookUpValues(snapshot);
        case 2:
            return resolveLiterals();
        case 3:
            return lookUpLiterals(snapshot);
        default:
            getValues(random);
        }
    }

    uint64_t getNextResourceID() const { return m_batched.takeSnapshot().resourceIDEnd; }

private:

    void makeBatch(std::mt19937_64& random) {
        m_values.clear();
        m_literals.clear();
        const bool hasInvalid = random() % 2 == 0;
        const uint64_t distance = 1 + random() % 300;
        for (const uint64_t number : makeNumbers(random, random() % 5 == 0 ? random() % 3500 : random() % 200)) {
            const bool isInvalid = hasInvalid && random() % distance == 0;
            m_values.push_back(makeMixedValue(number));
            if (isInvalid)
                m_values.back().dataSize += 1;
            m_literals.push_back(isInvalid ? makeInvalidLiteral(number) : makeMixedLiteral(number));
        }
        m_resourceIDs.assign(m_values.size(), 999);
        m_resolutions.assign(m_values.size(), Resolution{999, nullptr});
    }

    void expectResults(const SingleResults& expected, const std::string& error) {
        ASSERT_EQ(error, expected.m_error);
        m_resourceIDs.resize(expected.m_resourceIDs.size());
        ASSERT_EQ(m_resourceIDs, expected.m_resourceIDs);
    }

    void resolveValues() {
        const SingleResults expected = resolveSingly(*m_singleTransaction, m_values);
        expectResults(expected, describeError([&] { m_transaction->resolve(m_values, m_resourceIDs.data()); }));
    }

    void lookUpValues(const Dictionary::Snapshot& snapshot) {
        SingleResults expected;
        expected.m_error = describeError([&] {
            for (const ResourceValue& value : m_values)
                expected.m_resourceIDs.push_back(m_single.tryResolve(value, snapshot));
        });
        expectResults(expected, describeError([&] { m_batched.tryResolve(m_values, m_resourceIDs.data(), snapshot); }));
    }

    void resolveLiterals() {
        const std::vector<Outcome> expected = resolveSingly(*m_singleTransaction, m_literals);
        m_transaction->resolve(getLiterals(m_literals), m_resolutions.data());
        ASSERT_EQ(describe(m_resolutions), expected);
    }

    void lookUpLiterals(const Dictionary::Snapshot& snapshot) {
        std::vector<Outcome> expected;
        for (const LiteralText& literal : m_literals)
            expected.push_back(
                getOutcome([&] { return m_single.tryResolve(literal.m_lexicalForm, literal.m_datatypeID, snapshot); }));
        m_batched.tryResolve(getLiterals(m_literals), m_resolutions.data(), snapshot);
        ASSERT_EQ(describe(m_resolutions), expected);
    }

    void getValues(std::mt19937_64& random) {
        const uint64_t end = m_batched.countResourcesByDatatypeID()[D_XSD_DECIMAL] * 20 + 100;
        for (uint64_t& resourceID : m_resourceIDs)
            resourceID = random() % end;
        std::vector<ResourceValue> found(m_resourceIDs.size());
        m_batched.getValues(m_resourceIDs, found.data());
        for (size_t i = 0; i < found.size(); ++i) {
            ASSERT_EQ(found[i].datatypeID, m_single.tryGetResourceDatatypeID(m_resourceIDs[i]));
            if (found[i].datatypeID != D_NONE) {
                ASSERT_TRUE(isSameValue(found[i], m_single.getValue(m_resourceIDs[i])));
            }
        }
    }

    Dictionary m_single;
    Dictionary m_batched;
    std::optional<Transaction> m_singleTransaction;
    std::optional<Transaction> m_transaction;
    std::vector<Dictionary::Snapshot> m_snapshots{Dictionary::EVERYTHING};
    std::vector<ResourceValue> m_values; // the batch, as values and as literals
    std::vector<LiteralText> m_literals;
    std::vector<uint64_t> m_resourceIDs; // for the results of the batch
    std::vector<Resolution> m_resolutions;
};

TEST_P(DictionaryBatchTest, RandomBatchesAgreeWithOneAtATime) {
    for (const uint64_t seed : {1, 2, 3, 4, 5, 6}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 random(seed);
        TwoDictionaries dictionaries(makeOptions());
        for (int round = 0; round < 12; ++round) {
            dictionaries.begin();
            for (int operation = 0; operation < 12; ++operation) {
                SCOPED_TRACE("round " + std::to_string(round) + ", operation " + std::to_string(operation));
                dictionaries.operate(random);
                if (HasFatalFailure())
                    return;
            }
            dictionaries.end(random() % 4 != 0);
            if (HasFatalFailure())
                return;
        }
        EXPECT_GT(dictionaries.getNextResourceID(), 4000u); // tables were resized
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
