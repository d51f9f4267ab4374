#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DataPool.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/collections/ThreadSlots.h"
#include "support/ExpectError.h"
#include "support/ResourceIDWidths.h"
#include "support/Scale.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kavix::test {

namespace {

const std::string SOURCE = "Engine/core/data-store/dictionary/Dictionary";

Dictionary::Options makeOptions(
    ResourceIDWidth width, uint64_t maxResourceID = 0, uint64_t memoryBudgetBytes = uint64_t(1) << 30) {
    Dictionary::Options options;
    options.memoryBudgetBytes = memoryBudgetBytes;
    options.resourceIDWidth = width;
    options.maxResourceID = maxResourceID;
    return options;
}

class DictionaryTest : public ::testing::TestWithParam<ResourceIDWidth> {
protected:
    DictionaryTest() :
        m_dictionary(makeOptions(GetParam(), 1 << 20)) { }
    Dictionary m_dictionary;
};

INSTANTIATE_TEST_SUITE_P(Widths, DictionaryTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

TEST_P(DictionaryTest, TheBoundOfIDsMayBeItsSmallestAndItsLargest) {
    const uint64_t maximum = GetParam() == ResourceIDWidth::BITS_32 ? 0xfffffffeULL : uint64_t(1) << 40;
    for (const uint64_t maxResourceID : {uint64_t(2048), maximum, uint64_t(0)}) {
        SCOPED_TRACE(maxResourceID);
#if defined(KAVIX_TEST_UNDER_THREAD_SANITIZER)
        if (maxResourceID > UINT32_MAX)
            continue; // the sanitizer leaves too little address space
#endif
        Dictionary dictionary(makeOptions(GetParam(), maxResourceID));
        EXPECT_EQ(dictionary.getResourceIDWidth(), GetParam());
        EXPECT_EQ(dictionary.resolve("5", D_XSD_INT), 1u);
        EXPECT_EQ(dictionary.resolve("5.5", D_XSD_DECIMAL), 2u);
        EXPECT_EQ(dictionary.getLexicalForm(2), "5.5");
    }
    for (const uint64_t maxResourceID : {uint64_t(1), uint64_t(2047), maximum + 1, UINT64_MAX})
        expectError(
            SOURCE, 70,
            "Option 'maxResourceID' cannot be " + std::to_string(maxResourceID) +
                ": the smallest value is 2048 and the largest is " + std::to_string(maximum) + ".",
            [&] { Dictionary dictionary(makeOptions(GetParam(), maxResourceID)); });
}

TEST_P(DictionaryTest, ABudgetMustHoldAnEmptyDictionary) {
    constexpr uint64_t EMPTY_BYTES = 8192 + 13 * 16384;
    {
        const Dictionary dictionary(makeOptions(GetParam(), 4096, EMPTY_BYTES));
        EXPECT_EQ(dictionary.getUsedBytes(), EMPTY_BYTES);
    }
    expectOutOfMemory(EMPTY_BYTES - 1, 16383, 16384, [] {
        const Dictionary dictionary(makeOptions(GetParam(), 4096, EMPTY_BYTES - 1));
    });
    expectOutOfMemory(0, 0, 8192, [] { const Dictionary dictionary(makeOptions(GetParam(), 4096, 0)); });
    const Dictionary dictionary(makeOptions(GetParam(), 4096, UINT64_MAX));
    EXPECT_EQ(dictionary.getMemoryBudgetBytes(), UINT64_MAX);
    EXPECT_EQ(dictionary.getUsedBytes(), EMPTY_BYTES);
}

TEST_P(DictionaryTest, ALiteralGetsAnIDAndIsFoundUnderIt) {
    const struct {
        const char* form;
        uint8_t datatypeID;
        const char* lexicalForm;
        const char* turtle;
    } rows[] = {
        {"+05", D_XSD_INTEGER, "5", "5"},
        {"-5", D_XSD_SHORT, "-5", "\"-5\"^^xsd:short"},
        {"7.00", D_XSD_DECIMAL, "7", "7.0"},
        {"-.5", D_XSD_DECIMAL, "-0.5", "-0.5"},
    };
    uint64_t expectedID = 1;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.form);
        EXPECT_EQ(m_dictionary.tryResolve(row.form, row.datatypeID), 0u);
        const uint64_t resourceID = m_dictionary.resolve(row.form, row.datatypeID);
        EXPECT_EQ(resourceID, expectedID++); // one ID each
        const std::string_view datatypeIRI = Dictionary::getDatatypeIRI(row.datatypeID);
        EXPECT_EQ(m_dictionary.resolve(row.form, datatypeIRI), resourceID);
        EXPECT_EQ(m_dictionary.tryResolve(row.form, row.datatypeID), resourceID);
        EXPECT_EQ(m_dictionary.tryResolve(row.form, datatypeIRI), resourceID);
        EXPECT_EQ(m_dictionary.getLexicalForm(resourceID), row.lexicalForm);
        EXPECT_EQ(m_dictionary.getTurtleLiteral(resourceID), row.turtle);
        EXPECT_EQ(m_dictionary.tryGetResourceDatatypeID(resourceID), row.datatypeID);
        const ResourceValue value = m_dictionary.getValue(resourceID);
        EXPECT_EQ(value.data, value.buffer); // nothing points into the value it was copied from
        EXPECT_EQ(value.datatypeID, row.datatypeID);
        EXPECT_EQ(m_dictionary.resolve(value), resourceID);
        EXPECT_EQ(m_dictionary.tryResolve(value), resourceID);
    }
}

TEST_P(DictionaryTest, UnknownDatatypesAreRefused) {
    ResourceValue value;
    for (const unsigned datatypeID : {0u, 1u, 20u, 21u, 36u, 255u}) {
        SCOPED_TRACE(datatypeID);
        const auto id = static_cast<uint8_t>(datatypeID);
        value.setBinaryValue(id, int64_t(1));
        const std::string message = "No datatype has the ID " + std::to_string(datatypeID) + ".";
        expectError(SOURCE, 40, message, [&] { m_dictionary.resolve("1", id); });
        expectError(SOURCE, 40, message, [&] { m_dictionary.resolve(value); });
        expectError(SOURCE, 40, message, [&] { m_dictionary.tryResolve("1", id); });
        expectError(SOURCE, 40, message, [&] { m_dictionary.tryResolve(value); });
        expectError(SOURCE, 40, message, [&] { Dictionary::getDatatypeIRI(id); });
    }
    for (const std::string& datatypeIRI :
         {std::string(), std::string("xsd:int"), std::string("http://www.w3.org/2001/XMLSchema#double"),
          std::string("http://www.w3.org/2001/XMLSchema#int ")}) {
        const std::string message = "No datatype has the IRI '" + datatypeIRI + "'.";
        expectError(SOURCE, 40, message, [&] { m_dictionary.resolve("1", datatypeIRI); });
        expectError(SOURCE, 40, message, [&] { m_dictionary.tryResolve("1", datatypeIRI); });
        expectError(SOURCE, 40, message, [&] { Dictionary::getDatatypeID(datatypeIRI); });
    }
    EXPECT_EQ(m_dictionary.takeSnapshot().resourceIDEnd, 1u);
}

TEST_P(DictionaryTest, EveryDatatypeIsKnownByIDAndIRI) {
    EXPECT_EQ(Dictionary::getDatatypeID(XSD_DECIMAL), D_XSD_DECIMAL);
    EXPECT_EQ(Dictionary::getDatatypeIRI(D_XSD_DECIMAL), XSD_DECIMAL);
    for (const IntegerDatatypeInfo& info : s_integerDatatypeInfos) {
        EXPECT_EQ(Dictionary::getDatatypeID(info.datatypeIRI), info.datatypeID);
        EXPECT_EQ(Dictionary::getDatatypeIRI(info.datatypeID), info.datatypeIRI);
    }
}

TEST_P(DictionaryTest, UnknownIDsAreRefused) {
    m_dictionary.resolve("5", D_XSD_INT); // ID 1; the arrays have a page each
    for (const uint64_t resourceID :
         {uint64_t(0), uint64_t(2), uint64_t(511), uint64_t(512), uint64_t(4095), uint64_t(4096), uint64_t(1) << 20,
          uint64_t(1) << 33, UINT64_MAX}) {
        SCOPED_TRACE(resourceID);
        EXPECT_EQ(m_dictionary.tryGetResourceDatatypeID(resourceID), D_NONE);
        const std::string message = "No resource has the ID " + std::to_string(resourceID) + ".";
        expectError(SOURCE, 50, message, [&] { m_dictionary.getValue(resourceID); });
        expectError(SOURCE, 50, message, [&] { m_dictionary.getLexicalForm(resourceID); });
        expectError(SOURCE, 50, message, [&] { m_dictionary.getTurtleLiteral(resourceID); });
    }
}

TEST_P(DictionaryTest, InvalidFormsAndBinaryValuesChangeNothing) {
    const std::string numeric = "Engine/core/data-store/dictionary/NumericDatatype";
    expectError(numeric, 76, "Lexical form 'abc' is invalid for datatype xsd:int.", [&] {
        m_dictionary.resolve("abc", D_XSD_INT);
    });
    expectError(numeric, 76, "Lexical form '' is invalid for datatype xsd:int.", [&] {
        m_dictionary.resolve(std::string_view(), D_XSD_INT);
    });
    expectError(numeric, 76, "Lexical form '' is invalid for datatype xsd:int.", [&] {
        m_dictionary.tryResolve(std::string_view(), D_XSD_INT);
    });
    expectError(numeric, 78, "Value '300' is not in the range of datatype xsd:byte.", [&] {
        m_dictionary.tryResolve("300", D_XSD_BYTE);
    });
    expectError(
        "Engine/core/data-store/dictionary/XSDDecimal", 58, "Lexical form '' is invalid for datatype xsd:decimal.",
        [&] { m_dictionary.resolve(std::string_view(), D_XSD_DECIMAL); });
    ResourceValue value;
    value.setBinaryValue(D_XSD_BYTE, int64_t(300));
    const std::string message =
        "The binary value of the datatype with ID 31 is invalid: the value 300 is not in the range of the datatype.";
    expectError(SOURCE, 60, message, [&] { m_dictionary.resolve(value); });
    expectError(SOURCE, 60, message, [&] { m_dictionary.tryResolve(value); });
    Transaction transaction(m_dictionary);
    expectError(SOURCE, 60, message, [&] { transaction.resolve(value); });
    transaction.commit();
    EXPECT_EQ(m_dictionary.takeSnapshot(), (Dictionary::Snapshot{1, DataPool::FIRST_OFFSET}));
    EXPECT_EQ(m_dictionary.resolve("1", D_XSD_INT), 1u); // no error kept the gate
}

TEST_P(DictionaryTest, ASnapshotShowsWhatWasEnteredBeforeAndNothingElse) {
    m_dictionary.resolve("1", D_XSD_INT);
    m_dictionary.resolve("1.5", D_XSD_DECIMAL);
    const Dictionary::Snapshot snapshot = m_dictionary.takeSnapshot();
    EXPECT_EQ(snapshot.resourceIDEnd, 3u);
    m_dictionary.resolve("2", D_XSD_INT);
    m_dictionary.resolve("2.5", D_XSD_DECIMAL);
    EXPECT_EQ(m_dictionary.tryResolve("1", D_XSD_INT, snapshot), 1u);
    EXPECT_EQ(m_dictionary.tryResolve("1.5", D_XSD_DECIMAL, snapshot), 2u);
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT, snapshot), 0u);
    EXPECT_EQ(m_dictionary.tryResolve("2.5", D_XSD_DECIMAL, snapshot), 0u);
    EXPECT_EQ(m_dictionary.tryResolve(m_dictionary.getValue(3), snapshot), 0u);
    EXPECT_EQ(m_dictionary.tryResolve("2", D_XSD_INT), 3u);
    EXPECT_EQ(m_dictionary.tryResolve("2.5", D_XSD_DECIMAL, m_dictionary.takeSnapshot()), 4u);
}

TEST_P(DictionaryTest, SingleValuesEndAtTheBoundOfIDs) {
    Dictionary dictionary(makeOptions(GetParam(), 2048));
    for (uint64_t i = 1; i < 2048; ++i)
        ASSERT_EQ(dictionary.resolve(std::to_string(i), D_XSD_INT), i);
    expectError(
        "Engine/core/data-store/dictionary/DictionaryDatatype", 133,
        "The capacity of Kavix for the number of resources has been exceeded.",
        [&] { dictionary.resolve("0", D_XSD_INT); });
    EXPECT_EQ(dictionary.tryResolve("0", D_XSD_INT), 0u);
    EXPECT_EQ(dictionary.resolve("2047", D_XSD_INT), 2047u);
    EXPECT_EQ(dictionary.getLexicalForm(2047), "2047");
}

TEST_P(DictionaryTest, TheBudgetCanBeChangedDownToWhatIsInUse) {
    m_dictionary.resolve("1", D_XSD_INT);
    const uint64_t usedBytes = m_dictionary.getUsedBytes();
    EXPECT_EQ(m_dictionary.getMemoryBudgetBytes(), uint64_t(1) << 30);
    expectError(
        SOURCE, 80,
        "The memory budget cannot be set to " + std::to_string(usedBytes - 1) + " bytes because " +
            std::to_string(usedBytes) + " bytes are in use.",
        [&] { m_dictionary.setMemoryBudget(usedBytes - 1); });
    EXPECT_EQ(m_dictionary.getMemoryBudgetBytes(), uint64_t(1) << 30);
    m_dictionary.setMemoryBudget(usedBytes);
    EXPECT_EQ(m_dictionary.getMemoryBudgetBytes(), usedBytes);
    expectOutOfMemory(usedBytes, 0, 4096, [&] { m_dictionary.resolve("1.5", D_XSD_DECIMAL); });
    EXPECT_EQ(m_dictionary.getUsedBytes(), usedBytes);
    EXPECT_EQ(m_dictionary.resolve("2", D_XSD_INT), 3u); // ID 2 is lost
    m_dictionary.setMemoryBudget(usedBytes + 4096);
    EXPECT_EQ(m_dictionary.resolve("1.5", D_XSD_DECIMAL), 4u);
    EXPECT_EQ(m_dictionary.tryGetResourceDatatypeID(2), D_NONE);
}

TEST_P(DictionaryTest, ResourcesAreCountedByDatatype) {
    std::array<uint64_t, 256> expected{};
    EXPECT_EQ(m_dictionary.countResourcesByDatatypeID(), expected);
    for (int i = 0; i < 7; ++i)
        m_dictionary.resolve(std::to_string(i % 5), D_XSD_INT);
    m_dictionary.resolve("5", D_XSD_DECIMAL);
    expected[D_XSD_INT] = 5;
    expected[D_XSD_DECIMAL] = 1;
    EXPECT_EQ(m_dictionary.countResourcesByDatatypeID(), expected);
    Transaction transaction(m_dictionary);
    transaction.resolve("5", D_XSD_BYTE); // its block has 1023 unused IDs
    transaction.commit();
    expected[D_XSD_BYTE] = 1;
    EXPECT_EQ(m_dictionary.countResourcesByDatatypeID(), expected);
}

TEST_P(DictionaryTest, TheStatisticsOfTheFamiliesHaveOneRoot) {
    m_dictionary.resolve("5", D_XSD_INT);
    const std::unique_ptr<ComponentInfo> root = m_dictionary.getComponentInfo();
    EXPECT_EQ(root->getName(), "Dictionary");
    ASSERT_EQ(root->getChildren().size(), 1u);
    EXPECT_EQ(root->getChildren()[0]->getName(), "NumericDatatype");
    EXPECT_EQ(root->getChildren()[0]->getChildren().size(), 14u);
}

TEST_P(DictionaryTest, TwoDictionariesShareNothingButThreadSlots) {
    Dictionary other(makeOptions(GetParam(), 4096));
    m_dictionary.resolve("1", D_XSD_INT);
    EXPECT_EQ(other.tryResolve("1", D_XSD_INT), 0u);
    EXPECT_EQ(other.resolve("2", D_XSD_INT), 1u);
    Transaction transaction(m_dictionary);
    EXPECT_EQ(other.resolve("3", D_XSD_INT), 2u);
}

TEST_P(DictionaryTest, The257thThreadIsRefusedUntilAnotherEnds) {
    const uint64_t resourceID = m_dictionary.resolve("1", D_XSD_INT);
    const size_t numberOfThreads = getNumberOfFreeSlots();
    StartLine allHaveSlots(numberOfThreads + 1);
    std::atomic<bool> mayOneEnd{false};
    std::atomic<bool> mayAllEnd{false};
    std::vector<std::thread> threads;
    for (size_t threadIndex = 0; threadIndex < numberOfThreads; ++threadIndex)
        threads.emplace_back([&, threadIndex] {
            EXPECT_EQ(m_dictionary.tryResolve("1", D_XSD_INT), resourceID);
            allHaveSlots.arriveAndWait();
            waitUntil([&] { return threadIndex == 0 ? mayOneEnd.load() : mayAllEnd.load(); });
        });
    allHaveSlots.arriveAndWait();
    const std::string message =
        "At most 256 threads can use dictionaries at the same time; wait until one of them has ended.";
    std::thread([&] {
        ResourceValue value;
        value.setBinaryValue(D_XSD_INT, int64_t(1));
        const std::string source = "Engine/core/platform/collections/ThreadSlots";
        expectError(source, 70, message, [&] { m_dictionary.resolve("2", D_XSD_INT); });
        expectError(source, 70, message, [&] { m_dictionary.resolve(value); });
        expectError(source, 70, message, [&] { m_dictionary.tryResolve("1", D_XSD_INT); });
        expectError(source, 70, message, [&] { m_dictionary.tryResolve(value); });
        expectError(source, 70, message, [&] { Transaction transaction(m_dictionary); });
        EXPECT_EQ(m_dictionary.getLexicalForm(resourceID), "1"); // reading by ID takes no slot
        EXPECT_EQ(m_dictionary.takeSnapshot().resourceIDEnd, 2u);
    }).join();
    EXPECT_EQ(m_dictionary.resolve("3", D_XSD_INT), 2u); // those with slots continue, and the gate is open
    mayOneEnd = true;
    threads[0].join();
    std::thread([&] { EXPECT_EQ(m_dictionary.resolve("2", D_XSD_INT), 3u); }).join();
    mayAllEnd = true;
    for (size_t threadIndex = 1; threadIndex < numberOfThreads; ++threadIndex)
        threads[threadIndex].join();
}

}

}
