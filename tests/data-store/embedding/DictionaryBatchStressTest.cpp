#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "support/MixedLiterals.h"
#include "support/MixedValues.h"
#include "support/ResourceIDWidths.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

class DictionaryBatchTest : public ResourceIDWidthTest { };

INSTANTIATE_TEST_SUITE_P(Widths, DictionaryBatchTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

/// What all threads were told of a list of values, and whether that agrees.
class Answers {

public:

    explicit Answers(size_t numberOfValues) :
        m_answers(numberOfValues) { }

    void record(size_t index, uint64_t resourceID) {
        uint64_t earlierAnswer = 0;
        if (resourceID == 0 ||
            (!m_answers[index].compare_exchange_strong(earlierAnswer, resourceID) && earlierAnswer != resourceID))
            ADD_FAILURE() << "two answers for one value: " << earlierAnswer << " and " << resourceID;
    }

    void recordFound(size_t index, uint64_t resourceID) {
        if (resourceID != 0)
            record(index, resourceID);
    }

    uint64_t get(size_t index) const { return m_answers[index].load(); }

private:

    std::vector<std::atomic<uint64_t>> m_answers;
};

/// What the threads work on: values, each once, as literals too; mostly of wide datatypes, whose tables grow.
struct Work {

    explicit Work(size_t numberOfValues) :
        m_answers(numberOfValues) {
        const uint8_t datatypeIDs[] = {D_XSD_DECIMAL, D_XSD_INTEGER, D_XSD_LONG, D_XSD_DECIMAL, D_XSD_INT};
        for (size_t i = 0; i < numberOfValues; ++i) {
            m_values.push_back(makeValue(datatypeIDs[i % 5], i));
            m_literals.push_back(makeLiteral(datatypeIDs[i % 5], i));
        }
    }

    std::vector<ResourceValue> m_values;
    std::vector<LiteralText> m_literals;
    Answers m_answers;
};

/// One random operation with a batch of the work's values.
void operate(
    Dictionary& dictionary, Transaction& transaction, Work& work, const std::vector<size_t>& indexes,
    std::mt19937_64& random) {
    const size_t n = indexes.size();
    std::vector<ResourceValue> batch;
    std::vector<Literal> literals;
    for (const size_t index : indexes) {
        batch.push_back(work.m_values[index]);
        literals.push_back(Literal{work.m_literals[index].m_lexicalForm, work.m_literals[index].m_datatypeID});
    }
    std::vector<uint64_t> resourceIDs(n);
    std::vector<Resolution> resolutions(n);
    switch (random() % 5) {
    case 0:
        transaction.resolve(batch, resourceIDs.data());
        for (size_t i = 0; i < n; ++i)
            work.m_answers.record(indexes[i], resourceIDs[i]);
        break;
    case 1:
        if (transaction.resolve(literals, resolutions.data()) != 0)
            ADD_FAILURE() << "a valid literal has an error";
        for (size_t i = 0; i < n; ++i)
            work.m_answers.record(indexes[i], resolutions[i].resourceID);
        break;
    case 2:
        for (size_t i = 0; i < std::min<size_t>(n, 200); ++i)
            work.m_answers.record(
                indexes[i], i % 2 == 0 ? transaction.resolve(batch[i])
                                       : transaction.resolve(literals[i].lexicalForm, literals[i].datatypeID));
        break;
    case 3:
        dictionary.tryResolve(batch, resourceIDs.data());
        dictionary.tryResolve(literals, resolutions.data());
        for (size_t i = 0; i < n; ++i) {
            work.m_answers.recordFound(indexes[i], resourceIDs[i]);
            work.m_answers.recordFound(indexes[i], resolutions[i].resourceID);
        }
        break;
    default:
        for (size_t i = 0; i < n; ++i)
            resourceIDs[i] = work.m_answers.get(indexes[i]);
        dictionary.getValues(resourceIDs, batch.data());
        for (size_t i = 0; i < n; ++i)
            if (resourceIDs[i] != 0 ? !isSameValue(batch[i], work.m_values[indexes[i]]) : batch[i].datatypeID != D_NONE)
                ADD_FAILURE() << "resource " << resourceIDs[i] << " has another value";
    }
}

/// Exactly: one ID for each value, no thread was given another, IDs are unique, the value is found under its ID, the
/// counts add up.
void checkAnswers(const Dictionary& dictionary, const Work& work) {
    const size_t numberOfValues = work.m_values.size();
    std::vector<uint64_t> found(numberOfValues);
    dictionary.tryResolve(work.m_values, found.data());
    std::vector<bool> isUsed(dictionary.takeSnapshot().resourceIDEnd, false);
    std::array<uint64_t, 256> expectedCounts{};
    for (size_t i = 0; i < numberOfValues; ++i) {
        ASSERT_EQ(found[i], dictionary.tryResolve(work.m_values[i])) << i;
        ASSERT_EQ(found[i], work.m_answers.get(i)) << i;
        if (found[i] == 0)
            continue;
        ASSERT_FALSE(isUsed[found[i]]) << i;
        isUsed[found[i]] = true;
        ASSERT_TRUE(isSameValue(dictionary.getValue(found[i]), work.m_values[i])) << i;
        ++expectedCounts[work.m_values[i].datatypeID];
    }
    EXPECT_EQ(dictionary.countResourcesByDatatypeID(), expectedCounts);
    EXPECT_GT(expectedCounts[D_XSD_DECIMAL], 4000u / STRESS_DIVISOR);
    expectConsistent(dictionary);
}

TEST_P(DictionaryBatchTest, BatchesAndSinglesGiveEveryValueOneIDThroughManyResizes) {
    const size_t numberOfValues = 60000 / STRESS_DIVISOR;
    for (const size_t wanted : {1u, 8u}) {
        const size_t numberOfThreads = std::min<size_t>(wanted, getNumberOfFreeSlots() - 1);
        SCOPED_TRACE(std::to_string(numberOfThreads) + " threads");
        Work work(numberOfValues);
        Dictionary dictionary(makeOptions(1 << 22));
        Transaction transaction(dictionary);
        runThreads(numberOfThreads, [&](size_t threadIndex) {
            std::mt19937_64 random(threadIndex);
            // A front that all threads move over the values, so that they contend for the same ones, in different
            // orders.
            const size_t window = 2500;
            for (size_t front = 0; front < numberOfValues; front += window / 4) {
                std::vector<size_t> indexes(random() % 3 == 0 ? random() % 20 : random() % 2200);
                for (size_t& index : indexes)
                    index = std::min(numberOfValues - 1, front + random() % window);
                operate(dictionary, transaction, work, indexes, random);
            }
        });
        transaction.commit();
        checkAnswers(dictionary, work);
    }
}

}

}
