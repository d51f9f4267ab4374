#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/platform/errors/KavixException.h"
#include "support/ResourceIDWidths.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace kavix::test {

namespace {

std::string makeForm(uint64_t number, uint8_t datatypeID) {
    return std::to_string(number) + (datatypeID == D_XSD_DECIMAL ? ".5" : "");
}

class TransactionTest : public ResourceIDWidthTest {
protected:
    TransactionTest() :
        m_dictionary(makeOptions(1 << 24, true)) { }

    Dictionary m_dictionary;
};

INSTANTIATE_TEST_SUITE_P(Widths, TransactionTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

/// A snapshot shows all values of the transactions that were committed before it, and of the others all or none.
/// @param ended  how many transactions had ended before this call
void expectWholeTransactions(const Dictionary& dictionary, uint64_t size, uint64_t ended) {
    const Dictionary::Snapshot snapshot = dictionary.takeSnapshot();
    for (uint64_t n = ended < 2 ? 0 : ended - 2; n < ended + 2; ++n) {
        uint64_t visible = 0;
        for (uint64_t i = 0; i < size; ++i) {
            const uint8_t datatypeID = i % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INT;
            const std::string form = makeForm(n * size + i, datatypeID);
            const uint64_t resourceID = dictionary.tryResolve(form, datatypeID, snapshot);
            if (resourceID == 0)
                continue;
            ++visible;
            if (dictionary.getLexicalForm(resourceID) != form)
                ADD_FAILURE() << "a snapshot shows a value that is not there";
        }
        const bool rollsBack = n % 3 == 2;
        if (visible != 0 && (visible != size || rollsBack))
            ADD_FAILURE() << visible << " of " << size << " values of transaction " << n << " are visible";
        if (n < ended && !rollsBack && visible == 0)
            ADD_FAILURE() << "transaction " << n << " was committed before the snapshot";
    }
}

TEST_P(TransactionTest, SnapshotsShowWholeCommittedTransactionsAndNothingOfOthers) {
    // Transaction n enters the numbers n * SIZE to (n + 1) * SIZE - 1 from three threads; every third rolls back.
    // Readers take snapshots all the while, which must show all numbers of a transaction or none.
    constexpr uint64_t SIZE = 60;
    const uint64_t numberOfTransactions = 240 / STRESS_DIVISOR;
    std::atomic<uint64_t> numberCommitted{0}; // transactions up to here have ended
    std::atomic<bool> isOver{false};
    std::atomic<uint64_t> arrived{0};
    std::atomic<uint64_t> round{0};
    std::atomic<Transaction*> current{nullptr};
    runThreads(6, [&](size_t threadIndex) {
        if (threadIndex >= 3) {
            while (!isOver.load())
                expectWholeTransactions(m_dictionary, SIZE, numberCommitted.load());
            return;
        }
        // Three writers work in rounds; the first begins and ends the transaction of each.
        for (uint64_t n = 0; n < numberOfTransactions; ++n) {
            if (threadIndex == 0) {
                Transaction transaction(m_dictionary);
                arrived = 0;
                current = &transaction;
                round.store(n + 1);
                for (uint64_t i = 0; i < SIZE; i += 3)
                    transaction.resolve(
                        makeForm(n * SIZE + i, i % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INT),
                        i % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INT);
                waitUntil([&] { return arrived.load() == 2; });
                if (n % 3 == 2)
                    transaction.rollback();
                else
                    transaction.commit();
                numberCommitted.store(n + 1);
            }
            else {
                waitUntil([&] { return round.load() == n + 1; });
                for (uint64_t i = threadIndex; i < SIZE; i += 3)
                    current.load()->resolve(
                        makeForm(n * SIZE + i, i % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INT),
                        i % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INT);
                arrived.fetch_add(1);
            }
        }
        if (threadIndex == 0)
            isOver = true;
    });
}

TEST_P(TransactionTest, SingleValuesTakeOneIDEachAndNeverFallIntoATransaction) {
    const uint64_t numberOfValues = 4000 / STRESS_DIVISOR;
    std::atomic<uint64_t> refused{0};
    std::atomic<uint64_t> entered{0};
    std::atomic<uint64_t> begun{0};
    runThreads(7, [&](size_t threadIndex) {
        if (threadIndex == 6) {
            // Every ID below a snapshot's bound has been entered completely.
            for (uint64_t checked = 1; entered.load() != 5 * numberOfValues;) {
                for (const uint64_t bound = m_dictionary.takeSnapshot().resourceIDEnd; checked < bound; ++checked)
                    if (m_dictionary.tryGetResourceDatatypeID(checked) == D_NONE)
                        ADD_FAILURE() << "a snapshot includes ID " << checked << ", whose value is still being entered";
                std::this_thread::yield();
            }
            return;
        }
        for (uint64_t i = 0; i < numberOfValues; ++i) {
            if (threadIndex == 0) {
                if (i % 40 == 0) {
                    Transaction transaction(m_dictionary);
                    begun.fetch_add(1);
                    letOthersRun();
                    // Rolled back while empty: a single value that got into it would be lost.
                }
                continue;
            }
            const uint64_t number = threadIndex * numberOfValues + i;
            const uint8_t datatypeID = i % 2 == 0 ? D_XSD_DECIMAL : D_XSD_INT;
            for (;;) {
                try {
                    const uint64_t resourceID = m_dictionary.resolve(makeForm(number, datatypeID), datatypeID);
                    if (m_dictionary.tryResolve(
                            makeForm(number, datatypeID), datatypeID, m_dictionary.takeSnapshot()) != resourceID)
                        ADD_FAILURE() << "a snapshot does not see a value that its own thread entered before";
                    entered.fetch_add(1);
                    break;
                }
                catch (const KavixException& exception) {
                    if (exception.getLine() != 90)
                        throw;
                    refused.fetch_add(1);
                    std::this_thread::yield();
                }
            }
        }
    });
    EXPECT_EQ(entered.load(), 5 * numberOfValues);
    EXPECT_EQ(m_dictionary.takeSnapshot().resourceIDEnd, 1 + 5 * numberOfValues); // exactly one ID each
    for (uint64_t resourceID = 1; resourceID <= 5 * numberOfValues; ++resourceID)
        ASSERT_NE(m_dictionary.tryGetResourceDatatypeID(resourceID), D_NONE);
}

TEST_P(TransactionTest, OfManyThreadsThatBeginATransactionOneAtATimeSucceeds) {
    const uint64_t attempts = 400 / STRESS_DIVISOR;
    std::atomic<int> running{0};
    std::atomic<uint64_t> succeeded{0};
    runThreads(8, [&](size_t) {
        for (uint64_t i = 0; i < attempts; ++i) {
            try {
                Transaction transaction(m_dictionary);
                if (running.fetch_add(1) != 0)
                    ADD_FAILURE() << "two transactions run";
                succeeded.fetch_add(1);
                running.fetch_sub(1);
            }
            catch (const KavixException& exception) {
                if (exception.getLine() != 90)
                    throw;
            }
        }
    });
    EXPECT_GE(succeeded.load(), 1u);
    m_dictionary.resolve("1", D_XSD_INT); // the gate is open
}

}

}
