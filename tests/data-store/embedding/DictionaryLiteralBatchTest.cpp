#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/Literal.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "support/MixedBatches.h"
#include "support/MixedLiterals.h"
#include "support/MixedValues.h"
#include "support/ResourceIDWidths.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kavix::test {

namespace {

class DictionaryLiteralBatchTest : public ResourceIDWidthTest { };

INSTANTIATE_TEST_SUITE_P(Widths, DictionaryLiteralBatchTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

constexpr Mixture LITERAL_MIXTURES[] = {INTEGERS, DECIMALS, ALL_DATATYPES, ALL_DATATYPES_MANY_TWICE};

struct Damage {
    const char* name;
    bool (*isDamaged)(size_t index, size_t n);
};

constexpr Damage DAMAGES[] = {
    {"none", [](size_t, size_t) { return false; }},
    {"the first", [](size_t index, size_t) { return index == 0; }},
    {"the last", [](size_t index, size_t n) { return index == n - 1; }},
    {"those where a batch ends and begins", [](size_t index, size_t) { return index == 1023 || index == 1024; }},
    {"every fifth", [](size_t index, size_t) { return index % 5 == 0; }},
    {"all but one in the first batch", [](size_t index, size_t) { return index < 1024 && index != 700; }},
    {"all in the second batch", [](size_t index, size_t) { return index >= 1024; }},
    {"all", [](size_t, size_t) { return true; }},
};

std::vector<LiteralText> makeLiterals(const Mixture& mixture, const Damage& damage, size_t n) {
    std::vector<LiteralText> literals;
    for (size_t index = 0; index < n; ++index)
        literals.push_back(damage.isDamaged(index, n) ? makeInvalidLiteral(index) : makeLiteral(mixture, index));
    return literals;
}

/// Outcomes as they may be left over from another batch.
std::vector<Resolution> makeOldResolutions(size_t n) {
    std::vector<Resolution> resolutions(n);
    for (size_t index = 0; index < n; ++index)
        resolutions[index] =
            index % 2 == 0 ? Resolution{999, nullptr} : Resolution{0, std::make_exception_ptr(std::logic_error("old"))};
    return resolutions;
}

size_t countErrors(const std::vector<Outcome>& outcomes) {
    size_t count = 0;
    for (const Outcome& outcome : outcomes)
        count += !outcome.m_error.empty();
    return count;
}

std::vector<Outcome> resolveTogether(Transaction& transaction, const std::vector<LiteralText>& texts) {
    std::vector<Resolution> resolutions = makeOldResolutions(texts.size() + 2);
    const std::exception_ptr guard = resolutions.back().error;
    const size_t numberOfErrors = transaction.resolve(getLiterals(texts), resolutions.data() + 1);
    EXPECT_EQ(resolutions.front().resourceID, 999u);
    EXPECT_EQ(resolutions.back().error, guard);
    const std::vector<Outcome> outcomes = describe(std::span(resolutions).subspan(1, texts.size()));
    EXPECT_EQ(numberOfErrors, countErrors(outcomes));
    return outcomes;
}

std::vector<Outcome> lookUpTogether(
    const Dictionary& dictionary, const std::vector<LiteralText>& texts,
    const Dictionary::Snapshot& snapshot = Dictionary::EVERYTHING) {
    std::vector<Resolution> resolutions = makeOldResolutions(texts.size());
    const size_t numberOfErrors = dictionary.tryResolve(getLiterals(texts), resolutions.data(), snapshot);
    const std::vector<Outcome> outcomes = describe(resolutions);
    EXPECT_EQ(numberOfErrors, countErrors(outcomes));
    return outcomes;
}

std::vector<Outcome> lookUpSingly(
    const Dictionary& dictionary, const std::vector<LiteralText>& texts,
    const Dictionary::Snapshot& snapshot = Dictionary::EVERYTHING) {
    std::vector<Outcome> outcomes;
    for (const LiteralText& text : texts)
        outcomes.push_back(
            getOutcome([&] { return dictionary.tryResolve(text.m_lexicalForm, text.m_datatypeID, snapshot); }));
    return outcomes;
}

TEST_P(DictionaryLiteralBatchTest, EveryLiteralHasTheOutcomeOfOneAtATime) {
    for (const Mixture& mixture : LITERAL_MIXTURES)
        for (const Damage& damage : DAMAGES)
            for (const size_t n : {0, 1, 2, 1023, 1024, 1025, 2100}) {
                SCOPED_TRACE(std::to_string(n) + " literals: " + mixture.m_name + ", invalid: " + damage.name);
                if (&damage != &DAMAGES[0] && &mixture != &LITERAL_MIXTURES[2] && n > 1025)
                    continue;
                const std::vector<LiteralText> literals = makeLiterals(mixture, damage, n);
                Dictionary single(makeOptions());
                Dictionary batched(makeOptions());
                Transaction singleTransaction(single);
                Transaction transaction(batched);
                EXPECT_EQ(lookUpTogether(batched, literals), lookUpSingly(single, literals));
                const std::vector<Outcome> expected = resolveSingly(singleTransaction, literals);
                EXPECT_EQ(resolveTogether(transaction, literals), expected);
                EXPECT_EQ(lookUpTogether(batched, literals), expected);
                EXPECT_EQ(resolveTogether(transaction, literals), expected);
                singleTransaction.commit();
                transaction.commit();
                expectSameContents(single, batched);
                expectConsistent(batched);
            }
}

TEST_P(DictionaryLiteralBatchTest, EachInvalidLiteralHasItsOwnError) {
    const std::vector<LiteralText> literals = {
        {"1e5", D_XSD_INT},
        {"5", D_XSD_INT},
        {"300", D_XSD_BYTE},
        {"", D_XSD_DECIMAL},
        {"0.12345678901234567891", D_XSD_DECIMAL},
        {"5", D_NONE},
        {"5", 20},
        {"99999999999999999999", D_XSD_INTEGER},
        {"+5", D_XSD_INT},
    };
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    const std::vector<Outcome> outcomes = resolveTogether(transaction, literals);
    const std::string errors[] = {
        "Engine/core/data-store/dictionary/NumericDatatype:76: Lexical form '1e5' is invalid for datatype xsd:int.",
        "",
        "Engine/core/data-store/dictionary/NumericDatatype:78: Value '300' is not in the range of datatype xsd:byte.",
        "Engine/core/data-store/dictionary/XSDDecimal:58: Lexical form '' is invalid for datatype xsd:decimal.",
        outcomes[4].m_error, // below
        "Engine/core/data-store/dictionary/Dictionary:40: No datatype has the ID 0.",
        "Engine/core/data-store/dictionary/Dictionary:40: No datatype has the ID 20.",
        "Engine/core/data-store/dictionary/NumericDatatype:76: Lexical form '99999999999999999999' is invalid for "
        "datatype xsd:integer.",
        "",
    };
    for (size_t index = 0; index < literals.size(); ++index)
        EXPECT_EQ(outcomes[index].m_error, errors[index]);
    EXPECT_TRUE(outcomes[4].m_error.starts_with(
        "Engine/core/data-store/dictionary/XSDDecimal:60: Value '0.12345678901234567891' exceeds"));
    EXPECT_EQ(outcomes[1].m_resourceID, 1u);
    EXPECT_EQ(outcomes[8].m_resourceID, 1u);
}

TEST_P(DictionaryLiteralBatchTest, AFormMayBeEmpty) {
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    for (uint8_t datatypeID = D_XSD_DECIMAL; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID) {
        const Literal literal{std::string_view(), datatypeID};
        Resolution resolution;
        EXPECT_EQ(transaction.resolve(std::span(&literal, 1), &resolution), 1u);
        EXPECT_EQ(describe(std::span(&resolution, 1))[0].m_error, describeError([&] {
                      transaction.resolve(std::string_view(), datatypeID);
                  }));
    }
}

TEST_P(DictionaryLiteralBatchTest, WhereTheIDsRunOutPresentLiteralsStillGetTheirs) {
    // A transaction takes whole blocks, so below 2048 there is one, of 1024 IDs.
    for (const Mixture& mixture : LITERAL_MIXTURES)
        for (const Damage& damage : {DAMAGES[0], DAMAGES[4]}) {
            SCOPED_TRACE(std::string(mixture.m_name) + ", invalid: " + damage.name);
            std::vector<LiteralText> literals = makeLiterals(mixture, damage, 3000);
            for (size_t index = 1600; index < 3000; index += 2)
                literals[index] = literals[index - 1600];
            Dictionary single(makeOptions(2048));
            Dictionary batched(makeOptions(2048));
            Transaction singleTransaction(single);
            Transaction transaction(batched);
            const std::vector<Outcome> expected = resolveSingly(singleTransaction, literals);
            EXPECT_EQ(resolveTogether(transaction, literals), expected);
            EXPECT_EQ(resolveTogether(transaction, literals), expected);
            std::set<std::string> errors;
            for (const Outcome& outcome : expected)
                errors.insert(outcome.m_error.substr(0, outcome.m_error.find(' ')));
            EXPECT_EQ(errors.contains("Engine/core/data-store/dictionary/DictionaryDatatype:144:"), true);
            EXPECT_NE(expected[1604].m_resourceID, 0u);
            singleTransaction.commit();
            transaction.commit();
            expectSameContents(single, batched);
        }
}

TEST_P(DictionaryLiteralBatchTest, WhereTheBudgetRunsOutEachAbsentLiteralHasTheError) {
    for (const Mixture& mixture : LITERAL_MIXTURES) {
        size_t numberOfShortBudgets = 0;
        for (uint64_t extraBytes = 0;; extraBytes += 40960) {
            SCOPED_TRACE(std::string(mixture.m_name) + " with " + std::to_string(extraBytes) + " bytes to spend");
            std::vector<LiteralText> literals = makeLiterals(mixture, DAMAGES[0], 3000);
            for (size_t index = 1500; index < 3000; index += 2)
                literals[index] = literals[index - 1500];
            Dictionary single(makeOptions());
            Dictionary batched(makeOptions());
            for (Dictionary* dictionary : {&single, &batched})
                dictionary->setMemoryBudget(dictionary->getUsedBytes() + extraBytes);
            Transaction singleTransaction(single);
            Transaction transaction(batched);
            std::vector<Outcome> expected;
            for (const LiteralText& literal : literals) {
                const uint64_t resourceID =
                    single.tryResolve(literal.m_lexicalForm, literal.m_datatypeID); // needs no room
                expected.push_back(resourceID != 0 ? Outcome{resourceID, std::string()} : getOutcome([&] {
                    return singleTransaction.resolve(literal.m_lexicalForm, literal.m_datatypeID);
                }));
            }
            EXPECT_EQ(resolveTogether(transaction, literals), expected);
            const size_t numberOfErrors = countErrors(expected);
            for (Dictionary* dictionary : {&single, &batched})
                dictionary->setMemoryBudget(1 << 30);
            const std::vector<Outcome> again = resolveTogether(transaction, literals);
            EXPECT_EQ(again, resolveSingly(singleTransaction, literals));
            EXPECT_EQ(countErrors(again), 0u);
            singleTransaction.commit();
            transaction.commit();
            expectSameContents(single, batched);
            expectConsistent(batched);
            if (numberOfErrors == 0)
                break;
            ++numberOfShortBudgets;
        }
        EXPECT_GT(numberOfShortBudgets, 2u);
    }
}

TEST_P(DictionaryLiteralBatchTest, ALiteralEnteredEarlierInTheBatchHasNoError) {
    // 700 integers fill a table of 1024 buckets and spend every reservation, so resolving one more finds no room, even
    // if it is present.
    std::vector<LiteralText> literals;
    for (size_t index = 0; index < 700; ++index)
        literals.push_back(makeLiteral(D_XSD_INTEGER, index));
    literals.push_back(literals[0]);
    literals.push_back(makeLiteral(D_XSD_INTEGER, 700));
    literals.push_back(literals[699]);
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    transaction.resolve("1", D_XSD_INT); // a block of IDs
    dictionary.setMemoryBudget(dictionary.getUsedBytes());
    const std::vector<Outcome> outcomes = resolveTogether(transaction, literals);
    EXPECT_EQ(countErrors(outcomes), 1u);
    EXPECT_EQ(outcomes[700], outcomes[0]);
    EXPECT_NE(outcomes[701].m_error, "");
    EXPECT_EQ(outcomes[702], outcomes[699]);
}

TEST_P(DictionaryLiteralBatchTest, OnlyWhatASnapshotReachesIsFound) {
    const std::vector<LiteralText> literals = makeLiterals(ALL_DATATYPES, DAMAGES[4], 3000);
    Dictionary dictionary(makeOptions());
    std::vector<Dictionary::Snapshot> snapshots{{0, 0}, {1, UINT64_MAX}, {UINT64_MAX, 0}, Dictionary::EVERYTHING};
    for (size_t index = 0; index < literals.size(); ++index) {
        if (index % 500 == 0)
            snapshots.push_back(dictionary.takeSnapshot());
        if (index % 5 != 0 && index % 3 == 1)
            dictionary.resolve(literals[index].m_lexicalForm, literals[index].m_datatypeID);
    }
    for (const Dictionary::Snapshot& snapshot : snapshots)
        EXPECT_EQ(lookUpTogether(dictionary, literals, snapshot), lookUpSingly(dictionary, literals, snapshot));
}

TEST_P(DictionaryLiteralBatchTest, AnEndedTransactionFailsEachOfThem) {
    Dictionary dictionary(makeOptions());
    const std::vector<LiteralText> literals = makeLiterals(ALL_DATATYPES, DAMAGES[4], 2000);
    Transaction transaction(dictionary);
    transaction.commit();
    const std::vector<Outcome> outcomes = resolveTogether(transaction, literals);
    EXPECT_EQ(outcomes, resolveSingly(transaction, literals));
    EXPECT_EQ(countErrors(outcomes), literals.size());
    EXPECT_EQ(transaction.resolve(std::span<const Literal>(), nullptr), 0u);
}

TEST_P(DictionaryLiteralBatchTest, WithoutAThreadSlotEachLiteralHasTheError) {
    const std::vector<LiteralText> literals = {
        {"5", D_XSD_INT}, {"x", D_XSD_INT}, {"5", D_NONE}, {"5.5", D_XSD_DECIMAL}};
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    const size_t numberOfThreads = getNumberOfFreeSlots();
    std::atomic<size_t> arrived{0};
    std::atomic<bool> isOver{false};
    std::thread refused([&] {
        waitUntil([&] { return arrived.load() == numberOfThreads; });
        const std::vector<Outcome> found = lookUpTogether(dictionary, literals);
        EXPECT_EQ(found, lookUpSingly(dictionary, literals));
        EXPECT_EQ(countErrors(found), 4u);
        const std::vector<Outcome> resolved = resolveTogether(transaction, literals);
        EXPECT_EQ(resolved, resolveSingly(transaction, literals));
        EXPECT_TRUE(resolved[0].m_error.starts_with("Engine/core/platform/collections/ThreadSlots:70: "));
        EXPECT_EQ(resolved[2].m_error, resolved[0].m_error); // before any datatype is looked at
        const std::vector<ResourceValue> values = {makeValue(D_XSD_INT, 5), ResourceValue()};
        uint64_t resourceIDs[2];
        EXPECT_EQ(describeError([&] { transaction.resolve(values, resourceIDs); }), resolved[0].m_error);
        EXPECT_EQ(describeError([&] { dictionary.tryResolve(values, resourceIDs); }), resolved[0].m_error);
        EXPECT_EQ(
            describeError([&] { dictionary.tryResolve(std::span(values).subspan(1), resourceIDs); }),
            "Engine/core/data-store/dictionary/Dictionary:40: No datatype has the ID 0.");
        isOver = true;
    });
    runThreads(numberOfThreads, [&](size_t) {
        arrived.fetch_add(1);
        waitUntil([&] { return isOver.load(); });
    });
    refused.join();
    EXPECT_EQ(countErrors(resolveTogether(transaction, literals)), 2u);
}

}

}
