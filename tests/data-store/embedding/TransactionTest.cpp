#include "core/data-store/embedding/Transaction.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "support/ExpectError.h"
#include "support/ResourceIDWidths.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace kavix::test {

namespace {

void expectTransactionRuns(const std::function<void()>& action) {
    expectError(
        "Engine/core/data-store/dictionary/Dictionary", 90,
        "Another transaction is writing to this dictionary; wait until it has been committed or rolled back, or write "
        "through it.",
        action);
}

void expectTransactionHasEnded(const std::function<void()>& action) {
    expectError(
        "Engine/core/data-store/dictionary/Transaction", 40,
        "The transaction has already been committed or rolled back; begin another one to write.", action);
}

class TransactionTest : public ResourceIDWidthTest {
protected:
    TransactionTest() :
        m_dictionary(makeOptions(1 << 20, true)) { }

    Dictionary m_dictionary;
};

INSTANTIATE_TEST_SUITE_P(Widths, TransactionTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

TEST_P(TransactionTest, CommittedValuesBecomeVisibleAllAtOnce) {
    m_dictionary.resolve("1", D_XSD_INT);
    const Dictionary::Snapshot before = m_dictionary.takeSnapshot();
    Transaction transaction(m_dictionary);
    EXPECT_TRUE(transaction.isRunning());
    EXPECT_EQ(transaction.resolve("2", D_XSD_INT), 2u);
    EXPECT_EQ(transaction.resolve("2.5", XSD_DECIMAL), 3u);
    EXPECT_EQ(transaction.resolve(m_dictionary.getValue(1)), 1u);
    const Dictionary::Snapshot during = m_dictionary.takeSnapshot();
    EXPECT_EQ(during, before);
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT, during), 0u);
    EXPECT_EQ(m_dictionary.tryResolve("2.5", D_XSD_DECIMAL, during), 0u);
    EXPECT_EQ(m_dictionary.tryResolve("1", D_XSD_INT, during), 1u);
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT), 2u); // EVERYTHING includes it

    transaction.commit();

    EXPECT_FALSE(transaction.isRunning());
    const Dictionary::Snapshot after = m_dictionary.takeSnapshot();
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT, after), 2u);
    EXPECT_EQ(m_dictionary.tryResolve("2.5", D_XSD_DECIMAL, after), 3u);
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT, before), 0u);
    EXPECT_EQ(after.resourceIDEnd, 2u + 1024u);
}

TEST_P(TransactionTest, RollbackRemovesItsValuesAndLeavesEarlierOnes) {
    const uint64_t integerID = m_dictionary.resolve("1", D_XSD_INT);
    const uint64_t decimalID = m_dictionary.resolve("1.5", D_XSD_DECIMAL);
    Transaction transaction(m_dictionary);
    EXPECT_EQ(transaction.resolve("1", D_XSD_INT), integerID);
    EXPECT_EQ(transaction.resolve("1.5", D_XSD_DECIMAL), decimalID);
    const uint64_t newIntegerID = transaction.resolve("2", D_XSD_INT);
    const uint64_t newDecimalID = transaction.resolve("2.5", D_XSD_DECIMAL);

    transaction.rollback();

    EXPECT_FALSE(transaction.isRunning());
    EXPECT_EQ(m_dictionary.tryResolve("1", D_XSD_INT), integerID);
    EXPECT_EQ(m_dictionary.tryResolve("1.5", D_XSD_DECIMAL), decimalID);
    EXPECT_EQ(m_dictionary.getLexicalForm(integerID), "1");
    for (const uint64_t resourceID : {newIntegerID, newDecimalID}) {
        EXPECT_EQ(m_dictionary.tryGetResourceDatatypeID(resourceID), D_NONE);
        expectError(
            "Engine/core/data-store/dictionary/Dictionary", 50,
            "No resource has the ID " + std::to_string(resourceID) + ".", [&] { m_dictionary.getValue(resourceID); });
    }
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT), 0u);
    EXPECT_EQ(m_dictionary.tryResolve("2.5", D_XSD_DECIMAL), 0u);
    EXPECT_EQ(m_dictionary.countResourcesByDatatypeID()[D_XSD_INT], 1u);
    EXPECT_EQ(m_dictionary.countResourcesByDatatypeID()[D_XSD_DECIMAL], 1u);
    // The IDs are not used again.
    EXPECT_GT(m_dictionary.resolve("2", D_XSD_INT), newDecimalID);
    EXPECT_EQ(m_dictionary.getLexicalForm(m_dictionary.tryResolve("2", D_XSD_INT)), "2");
}

TEST_P(TransactionTest, DestructionRollsBackWhatWasNotCommitted) {
    {
        Transaction transaction(m_dictionary);
        transaction.resolve("2", D_XSD_INT);
    }
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT), 0u);
    {
        Transaction transaction(m_dictionary);
        transaction.resolve("2", D_XSD_INT);
        transaction.commit();
    }
    EXPECT_NE(m_dictionary.tryResolve("2", D_XSD_INT), 0u);
}

TEST_P(TransactionTest, RollbackReachesEveryBlockOfEveryThread) {
    Transaction transaction(m_dictionary);
    runThreads(4, [&](size_t threadIndex) {
        for (int i = 0; i < 1500; ++i) {
            transaction.resolve(std::to_string(i), static_cast<uint8_t>(D_XSD_INTEGER));
            transaction.resolve(std::to_string(threadIndex) + std::to_string(i) + "5.5", D_XSD_DECIMAL);
        }
    });
    EXPECT_EQ(m_dictionary.countResourcesByDatatypeID()[D_XSD_INTEGER], 1500u);
    transaction.rollback();
    const auto counts = m_dictionary.countResourcesByDatatypeID();
    for (const uint64_t count : counts)
        EXPECT_EQ(count, 0u);
    for (int i = 0; i < 1500; ++i)
        ASSERT_EQ(m_dictionary.tryResolve(std::to_string(i), D_XSD_INTEGER), 0u);
}

TEST_P(TransactionTest, DuringATransactionAnotherOneAndSingleValuesAreRefused) {
    const uint64_t resourceID = m_dictionary.resolve("1", D_XSD_INT);
    ResourceValue value = m_dictionary.getValue(resourceID);
    Transaction transaction(m_dictionary);
    for (int i = 0; i < 2; ++i) {
        expectTransactionRuns([&] { Transaction another(m_dictionary); });
        expectTransactionRuns([&] { m_dictionary.resolve("2", D_XSD_INT); });
        expectTransactionRuns([&] { m_dictionary.resolve("1", D_XSD_INT); }); // even for what is present
        expectTransactionRuns([&] { m_dictionary.resolve(value); });
        std::thread([&] { expectTransactionRuns([&] { m_dictionary.resolve("2", XSD_INT); }); }).join();
    }
    EXPECT_EQ(m_dictionary.tryResolve("1", D_XSD_INT), resourceID);
    EXPECT_EQ(transaction.resolve("1", D_XSD_INT), resourceID);
    transaction.commit();
    EXPECT_EQ(m_dictionary.resolve("2", D_XSD_INT), 2u); // the transaction entered nothing and took no block
    Transaction next(m_dictionary);
    EXPECT_TRUE(next.isRunning());
    next.rollback();
    EXPECT_EQ(m_dictionary.resolve("3", D_XSD_INT), 3u);
}

TEST_P(TransactionTest, AnEndedTransactionRefusesValuesAndEndsOnlyOnce) {
    for (const bool commits : {true, false}) {
        Transaction transaction(m_dictionary);
        commits ? transaction.commit() : transaction.rollback();
        Transaction next(m_dictionary);
        const uint64_t resourceID = next.resolve("7", D_XSD_INT);
        expectTransactionHasEnded([&] { transaction.resolve("1", D_XSD_INT); });
        expectTransactionHasEnded([&] { transaction.resolve("1", XSD_INT); });
        expectTransactionHasEnded([&] { transaction.resolve(m_dictionary.getValue(resourceID)); });
        transaction.rollback();
        transaction.commit();
        expectTransactionRuns([&] { m_dictionary.resolve("8", D_XSD_INT); }); // the next one still runs
        EXPECT_EQ(m_dictionary.getLexicalForm(resourceID), "7");
        next.rollback();
    }
}

TEST_P(TransactionTest, AThreadThatEndedLeavesItsContextToTheNextOwnerOfItsSlot) {
    Transaction transaction(m_dictionary);
    uint64_t firstID = 0;
    uint64_t secondID = 0;
    std::thread([&] { firstID = transaction.resolve("1", D_XSD_INT); }).join();
    std::thread([&] { secondID = transaction.resolve("2", D_XSD_INT); }).join();
    EXPECT_EQ(firstID, 1u);
    EXPECT_EQ(secondID, 2u); // the same block
}

TEST_P(TransactionTest, ContextsDoNotOutliveTheirTransaction) {
    {
        Transaction transaction(m_dictionary);
        EXPECT_EQ(transaction.resolve("1.5", D_XSD_DECIMAL), 1u);
        transaction.commit();
    }
    const Dictionary::Snapshot snapshot = m_dictionary.takeSnapshot();
    Transaction transaction(m_dictionary);
    const uint64_t integerID = transaction.resolve("2", D_XSD_INT);
    const uint64_t decimalID = transaction.resolve("2.5", D_XSD_DECIMAL);
    EXPECT_GE(integerID, snapshot.resourceIDEnd);
    EXPECT_GE(decimalID, snapshot.resourceIDEnd);
    transaction.commit();
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT, snapshot), 0u);
    EXPECT_EQ(m_dictionary.tryResolve("2.5", D_XSD_DECIMAL, snapshot), 0u);
}

TEST_P(TransactionTest, AFailedResolveLeavesTheTransactionRunning) {
    Transaction transaction(m_dictionary);
    transaction.resolve("1", D_XSD_INT);
    const uint64_t usedBytes = m_dictionary.getUsedBytes();
    m_dictionary.setMemoryBudget(usedBytes);
    expectOutOfMemory(usedBytes, 0, 69632, [&] { transaction.resolve("1.5", D_XSD_DECIMAL); });
    expectError(
        "Engine/core/data-store/dictionary/NumericDatatype", 76, "Lexical form 'x' is invalid for datatype xsd:int.",
        [&] { transaction.resolve("x", D_XSD_INT); });
    EXPECT_EQ(transaction.resolve("3", D_XSD_INT), 3u);
    m_dictionary.setMemoryBudget(usedBytes + 69632);
    EXPECT_EQ(transaction.resolve("1.5", D_XSD_DECIMAL), 4u);
    transaction.rollback(); // passes over the ID that was lost
    EXPECT_EQ(m_dictionary.countResourcesByDatatypeID()[D_XSD_INT], 0u);
    EXPECT_EQ(m_dictionary.tryResolve("1.5", D_XSD_DECIMAL), 0u);
}

TEST_P(TransactionTest, ATransactionEndsAtTheBoundOfBlocks) {
    Dictionary::Options options = makeOptions(1 << 20, true);
    options.maxResourceID = 2048;
    Dictionary dictionary(options);
    Transaction transaction(dictionary);
    for (int i = 0; i < 1024; ++i)
        transaction.resolve(std::to_string(i), D_XSD_INT);
    expectError(
        "Engine/core/data-store/dictionary/DictionaryDatatype", 144,
        "The capacity of Kavix for the number of resources has been exceeded.",
        [&] { transaction.resolve("-1", D_XSD_INT); });
    transaction.commit();
    EXPECT_EQ(dictionary.resolve("-1", D_XSD_INT), 1025u); // single IDs continue to the bound
}

}

}
