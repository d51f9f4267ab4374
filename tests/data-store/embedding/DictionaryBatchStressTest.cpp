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

TEST_P(DictionaryBatchTest, BatchesAndSinglesGiveEveryValueOneIDThroughManyResizes) {
    const size_t numberOfValues = 60000 / STRESS_DIVISOR;
    // Mostly wide datatypes, whose tables grow; each value once.
    const uint8_t datatypeIDs[] = {D_XSD_DECIMAL, D_XSD_INTEGER, D_XSD_LONG, D_XSD_DECIMAL, D_XSD_INT};
    std::vector<ResourceValue> values;
    std::vector<LiteralText> literals;
    for (size_t i = 0; i < numberOfValues; ++i) {
        values.push_back(makeValue(datatypeIDs[i % 5], i));
        literals.push_back(makeLiteral(datatypeIDs[i % 5], i));
    }
    for (const size_t wanted : {1u, 8u}) {
        const size_t numberOfThreads = std::min<size_t>(wanted, getNumberOfFreeSlots() - 1);
        SCOPED_TRACE(std::to_string(numberOfThreads) + " threads");
        Dictionary dictionary(makeOptions(1 << 22));
        Transaction transaction(dictionary);
        Answers answers(numberOfValues);
        runThreads(numberOfThreads, [&](size_t threadIndex) {
            std::mt19937_64 random(threadIndex);
            // A front that all threads move over the values, so that they contend for the same ones, in different
            // orders.
            const size_t window = 2500;
            for (size_t front = 0; front < numberOfValues; front += window / 4) {
                const size_t n = random() % 3 == 0 ? random() % 20 : random() % 2200;
                std::vector<size_t> indexes;
                std::vector<ResourceValue> batch;
                std::vector<Literal> batchOfLiterals;
                for (size_t i = 0; i < n; ++i) {
                    const size_t index = std::min(numberOfValues - 1, front + random() % window);
                    indexes.push_back(index);
                    batch.push_back(values[index]);
                    batchOfLiterals.push_back(Literal{literals[index].m_lexicalForm, literals[index].m_datatypeID});
                }
                std::vector<uint64_t> resourceIDs(n);
                std::vector<Resolution> resolutions(n);
                switch (random() % 5) {
                case 0:
                    transaction.resolve(batch, resourceIDs.data());
                    for (size_t i = 0; i < n; ++i)
                        answers.record(indexes[i], resourceIDs[i]);
                    break;
                case 1:
                    if (transaction.resolve(batchOfLiterals, resolutions.data()) != 0)
                        ADD_FAILURE() << "a valid literal has an error";
                    for (size_t i = 0; i < n; ++i)
                        answers.record(indexes[i], resolutions[i].resourceID);
                    break;
                case 2:
                    for (size_t i = 0; i < std::min<size_t>(n, 200); ++i)
                        answers.record(
                            indexes[i],
                            i % 2 == 0
                                ? transaction.resolve(batch[i])
                                : transaction.resolve(batchOfLiterals[i].lexicalForm, batchOfLiterals[i].datatypeID));
                    break;
                case 3:
                    dictionary.tryResolve(batch, resourceIDs.data());
                    for (size_t i = 0; i < n; ++i)
                        answers.recordFound(indexes[i], resourceIDs[i]);
                    dictionary.tryResolve(batchOfLiterals, resolutions.data());
                    for (size_t i = 0; i < n; ++i)
                        answers.recordFound(indexes[i], resolutions[i].resourceID);
                    break;
                default:
                    for (size_t i = 0; i < n; ++i)
                        resourceIDs[i] = answers.get(indexes[i]);
                    batch.assign(n, ResourceValue());
                    dictionary.getValues(resourceIDs, batch.data());
                    for (size_t i = 0; i < n; ++i)
                        if (resourceIDs[i] != 0 ? !isSameValue(batch[i], values[indexes[i]])
                                                : batch[i].datatypeID != D_NONE)
                            ADD_FAILURE() << "resource " << resourceIDs[i] << " has another value";
                }
            }
        });
        transaction.commit();
        // Exactly: one ID for each value, no thread was given another, IDs are unique, the value is found under its
        // ID, the counts add up.
        std::vector<uint64_t> found(numberOfValues);
        dictionary.tryResolve(values, found.data());
        std::vector<bool> isUsed(dictionary.takeSnapshot().first, false);
        std::array<uint64_t, 256> expectedCounts{};
        for (size_t i = 0; i < numberOfValues; ++i) {
            ASSERT_EQ(found[i], dictionary.tryResolve(values[i])) << i;
            ASSERT_EQ(found[i], answers.get(i)) << i;
            if (found[i] == 0)
                continue;
            ASSERT_FALSE(isUsed[found[i]]) << i;
            isUsed[found[i]] = true;
            ASSERT_TRUE(isSameValue(dictionary.getValue(found[i]), values[i])) << i;
            ++expectedCounts[values[i].datatypeID];
        }
        EXPECT_EQ(dictionary.countResourcesByDatatypeID(), expectedCounts);
        EXPECT_GT(expectedCounts[D_XSD_DECIMAL], 4000u / STRESS_DIVISOR);
        expectConsistent(dictionary);
    }
}

}

}
