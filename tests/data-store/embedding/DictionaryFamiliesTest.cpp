#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/dictionary/DictionaryDatatypeBatches.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/DictionaryFamily.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/data-store/inspection/DictionaryDatatypeInspector.h"
#include "core/platform/stream/MemoryOutputStream.h"
#include "support/ExpectError.h"
#include "support/MixedLiterals.h"
#include "support/MixedValues.h"
#include "support/NamesOnlyFactory.h"
#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

// Dictionaries with families of an embedder's own beside the numeric one.

namespace kavix::test {

namespace {

constexpr uint8_t PLAIN_ID = 240;
constexpr uint8_t COUNTED_ID = 250;
constexpr uint8_t SECOND_COUNTED_ID = 251;

/// A family, for one thread, whose values are 64-bit numbers and whose lexical forms begin with 'v'. Its batches do one
/// element after the other.
class LetterDictionary : public DictionaryDatatypeBatches {

public:

    using DictionaryDatatypeBatches::DictionaryDatatypeBatches;

    void initialize(uint64_t maxResourceID, uint64_t) override {
        m_maxResourceID = maxResourceID;
        m_maxResourceIDForBlocks = maxResourceID - RESOURCE_ID_BLOCK_SIZE;
    }

    void restoreEmpty(const std::vector<uint64_t>&) override { }

    uint64_t getNumberOfMappableEntriesInCompaction() override { return m_resourceIDs.size(); }
    void prepareCompact(uint64_t, uint64_t, DictionaryCompactionState&) override { }
    void finishCompact(const DictionaryCompactionState&) override { }

    void deleteUncommittedResourceID(
        const std::pair<uint64_t, uint64_t>&, uint64_t resourceID, uint8_t datatypeID) override {
        m_resourceIDs.erase({datatypeID, m_resourceData[resourceID]});
    }

    void getResource(uint64_t resourceID, uint8_t datatypeID, ResourceValue& value) const override {
        value.setBinaryValue(datatypeID, m_resourceData[resourceID]);
    }
    void getResource(uint64_t resourceID, uint8_t, std::string& text) const override {
        text = "v" + std::to_string(m_resourceData[resourceID]);
    }

    uint64_t tryResolveResource(
        const std::pair<uint64_t, uint64_t>& visibility, const ResourceValue& value) const noexcept override {
        const auto found = m_resourceIDs.find({value.datatypeID, value.getBinaryValue<uint64_t>()});
        return found != m_resourceIDs.end() && found->second < visibility.first ? found->second : 0;
    }

    uint64_t tryResolveResource(
        const std::pair<uint64_t, uint64_t>& visibility, const char* lexicalForm, size_t length,
        uint8_t datatypeID) const override {
        return tryResolveResource(visibility, parse(lexicalForm, length, datatypeID));
    }

    uint64_t resolveResource(DictionaryUsageContext* context, const ResourceValue& value) override {
        uint64_t& resourceID = m_resourceIDs[{value.datatypeID, value.getBinaryValue<uint64_t>()}];
        if (resourceID == 0) {
            resourceID = nextResourceIDGetter(context)();
            setResource(resourceID, value.getBinaryValue<uint64_t>(), value.datatypeID);
        }
        return resourceID;
    }

    uint64_t resolveResource(
        DictionaryUsageContext* context, const char* lexicalForm, size_t length, uint8_t datatypeID) override {
        return resolveResource(context, parse(lexicalForm, length, datatypeID));
    }

    void resolveResources(
        DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) override {
        for (size_t index = 0; index < values.size(); ++index)
            resourceIDs[index] = resolveResource(context, values[index]);
    }

    void tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values,
        uint64_t* resourceIDs) const noexcept override {
        for (size_t index = 0; index < values.size(); ++index)
            resourceIDs[index] = tryResolveResource(visibility, values[index]);
    }

    size_t resolveResources(
        DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept override {
        size_t numberOfFailures = 0;
        for (size_t index = 0; index < literals.size(); ++index)
            numberOfFailures += !resolutions[index].trySet([&, &literal = literals[index]] {
                return resolveResource(
                    context, literal.lexicalForm.data(), literal.lexicalForm.size(), literal.datatypeID);
            });
        return numberOfFailures;
    }

    size_t tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const Literal> literals,
        Resolution* resolutions) const noexcept override {
        size_t numberOfFailures = 0;
        for (size_t index = 0; index < literals.size(); ++index)
            numberOfFailures += !resolutions[index].trySet([&, &literal = literals[index]] {
                return tryResolveResource(
                    visibility, literal.lexicalForm.data(), literal.lexicalForm.size(), literal.datatypeID);
            });
        return numberOfFailures;
    }

    void getResources(
        std::span<const uint64_t> resourceIDs, const uint8_t* datatypeIDs, ResourceValue* values) const override {
        for (size_t index = 0; index < resourceIDs.size(); ++index)
            getResource(resourceIDs[index], datatypeIDs[index], values[index]);
    }

    void restoreResource(DictionaryUsageContext*, uint64_t, const ResourceValue&) override { }
    void save(OutputStream&) const override { }
    void load(InputStream&) override { }
    std::unique_ptr<ComponentInfo> getComponentInfo() const override {
        return std::make_unique<ComponentInfo>("LetterDictionary");
    }

private:

    static ResourceValue parse(const char* lexicalForm, size_t length, uint8_t datatypeID) {
        if (length < 2 || lexicalForm[0] != 'v')
            throw KavixException("letters", 1, KavixException::NO_CAUSES, "no letter");
        ResourceValue value;
        value.setBinaryValue(datatypeID, uint64_t(std::stoull(std::string(lexicalForm + 1, length - 1))));
        return value;
    }

    std::map<std::pair<uint8_t, uint64_t>, uint64_t> m_resourceIDs; // by datatype ID and number
};

/// The same, noting how large each batch was.
class CountingLetterDictionary : public LetterDictionary {

public:

    static inline std::vector<size_t> s_sizes;

    using LetterDictionary::LetterDictionary;

    void resolveResources(
        DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) override {
        note(values);
        LetterDictionary::resolveResources(context, values, resourceIDs);
    }

    void tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values,
        uint64_t* resourceIDs) const noexcept override {
        note(values);
        LetterDictionary::tryResolveResources(visibility, values, resourceIDs);
    }

    size_t resolveResources(
        DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept override {
        note(literals);
        return LetterDictionary::resolveResources(context, literals, resolutions);
    }

    size_t tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const Literal> literals,
        Resolution* resolutions) const noexcept override {
        note(literals);
        return LetterDictionary::tryResolveResources(visibility, literals, resolutions);
    }

    void getResources(
        std::span<const uint64_t> resourceIDs, const uint8_t* datatypeIDs, ResourceValue* values) const override {
        s_sizes.push_back(resourceIDs.size());
        LetterDictionary::getResources(resourceIDs, datatypeIDs, values);
    }

private:

    template<typename Element>
    static void note(std::span<const Element> elements) {
        s_sizes.push_back(elements.size());
        for (const Element& element : elements)
            EXPECT_TRUE(element.datatypeID == COUNTED_ID || element.datatypeID == SECOND_COUNTED_ID);
    }
};

template<typename DictionaryOfFamily>
class LetterFactory : public NamesOnlyFactory {

public:

    using NamesOnlyFactory::NamesOnlyFactory;

    std::unique_ptr<DictionaryDatatype> createDictionaryDatatype(
        bool, MemoryManager&, std::atomic<uint64_t>& nextResourceID, MemoryRegion<uint64_t>& resourceData,
        MemoryRegion<std::atomic<uint8_t>>& resourceDatatypeIDs, DataPool& dataPool) const override {
        return std::make_unique<DictionaryOfFamily>(nextResourceID, resourceData, resourceDatatypeIDs, dataPool);
    }
};

class LetterInspector : public DictionaryDatatypeInspector {

public:

    void checkBinaryValue(const ResourceValue& value) const override {
        if (value.dataSize != sizeof(uint64_t))
            throw KavixException("letters", 2, KavixException::NO_CAUSES, "wrong size");
    }

    size_t countValidBinaryValues(std::span<const ResourceValue> values) const noexcept override {
        size_t count = 0;
        while (count < values.size() && values[count].dataSize == sizeof(uint64_t))
            ++count;
        return count;
    }

    void checkImage(InputStream&, const ImageLimits&, const ProblemReport&) const override { }
    void verify(const DictionaryDatatype&, const StoreContents&, const ProblemReport&) const override { }
    std::vector<TableStatistics> getTableStatistics(const DictionaryDatatype&, const StoreContents&) const override {
        return {};
    }
};

class DictionaryFamiliesTest : public ::testing::Test {
protected:

    DictionaryFamiliesTest() { CountingLetterDictionary::s_sizes.clear(); }

    /// The value and the literal with a number: all families in turn, and in longer runs.
    static uint8_t getDatatypeID(size_t number) {
        const uint8_t datatypeIDs[] = {PLAIN_ID,  D_XSD_INTEGER,     COUNTED_ID, D_XSD_DECIMAL,
                                       D_XSD_INT, SECOND_COUNTED_ID, COUNTED_ID, PLAIN_ID};
        return datatypeIDs[number < 1000 ? number % 8 : number / 500 % 8];
    }

    static ResourceValue makeAnyValue(size_t number) {
        if (const uint8_t datatypeID = getDatatypeID(number); datatypeID < PLAIN_ID)
            return makeValue(datatypeID, number);
        ResourceValue value;
        value.setBinaryValue(getDatatypeID(number), uint64_t(number));
        return value;
    }

    static LiteralText makeAnyLiteral(size_t number) {
        if (const uint8_t datatypeID = getDatatypeID(number); datatypeID < PLAIN_ID)
            return makeLiteral(datatypeID, number);
        return LiteralText{"v" + std::to_string(number), getDatatypeID(number)};
    }

    static Dictionary::Options makeOptions() {
        Dictionary::Options options;
        options.maxResourceID = 1 << 20;
        options.useHugePages = false;
        return options;
    }

    const LetterFactory<LetterDictionary> m_plainFactory{{PLAIN_ID, "http://example.org/plain"}};
    const LetterFactory<CountingLetterDictionary> m_countedFactory{
        {COUNTED_ID, "http://example.org/counted"}, {SECOND_COUNTED_ID, "http://example.org/second"}};
    const LetterInspector m_inspector;
    const DictionaryFamily m_plainFamily{m_plainFactory, m_inspector};
    const DictionaryFamily m_countedFamily{m_countedFactory, m_inspector};
};

TEST_F(DictionaryFamiliesTest, ValuesOfAllFamiliesGetTheIDsOfOneAtATime) {
    for (const size_t n : {1, 8, 1000, 1024, 1025, 9000}) {
        std::vector<ResourceValue> values;
        for (size_t number = 0; number < n; ++number)
            values.push_back(makeAnyValue(number * 7919 % 9001));
        Dictionary single(makeOptions());
        Dictionary batched(makeOptions());
        Transaction singleTransaction(single);
        Transaction transaction(batched);
        const SingleResults expected = resolveSingly(singleTransaction, values);
        std::vector<uint64_t> resourceIDs(n, 999);
        transaction.resolve(values, resourceIDs.data());
        EXPECT_EQ(resourceIDs, expected.m_resourceIDs);
        resourceIDs.assign(n, 999);
        batched.tryResolve(values, resourceIDs.data());
        EXPECT_EQ(resourceIDs, expected.m_resourceIDs);
        std::vector<ResourceValue> found(n);
        batched.getValues(resourceIDs, found.data());
        for (size_t index = 0; index < n; ++index)
            ASSERT_TRUE(isSameValue(found[index], values[index])) << index;
        singleTransaction.commit();
        transaction.commit();
    }
}

TEST_F(DictionaryFamiliesTest, AFamilyGetsItsRunsAndNothingElse) {
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    std::vector<ResourceValue> values;
    for (const auto& [datatypeID, size] :
         {std::pair<uint8_t, size_t>{COUNTED_ID, 2},
          {SECOND_COUNTED_ID, 1},
          {PLAIN_ID, 1},
          {COUNTED_ID, 1},
          {D_XSD_INT, 1100},
          {COUNTED_ID, 2000},
          {SECOND_COUNTED_ID, 49}})
        for (size_t i = 0; i < size; ++i) {
            values.emplace_back();
            values.back().setBinaryValue(datatypeID, uint64_t(i));
        }
    const std::vector<size_t> expectedSizes{3, 1, 1024, 1024, 1};
    std::vector<uint64_t> resourceIDs(values.size());
    transaction.resolve(values, resourceIDs.data());
    EXPECT_EQ(CountingLetterDictionary::s_sizes, expectedSizes);
    CountingLetterDictionary::s_sizes.clear();
    dictionary.tryResolve(values, resourceIDs.data());
    EXPECT_EQ(CountingLetterDictionary::s_sizes, expectedSizes);
}

TEST_F(DictionaryFamiliesTest, TheFirstInvalidValueEndsTheBatchInEveryFamily) {
    for (const uint8_t datatypeID : {PLAIN_ID, COUNTED_ID})
        for (const size_t place : {0, 1, 2, 500, 2999}) {
            std::vector<ResourceValue> values;
            for (size_t number = 0; number < 3000; ++number)
                values.push_back(makeAnyValue(number));
            values[place].setBinaryValue(datatypeID, uint8_t(1));
            Dictionary single(makeOptions());
            Dictionary batched(makeOptions());
            Transaction singleTransaction(single);
            Transaction transaction(batched);
            const SingleResults expected = resolveSingly(singleTransaction, values);
            std::vector<uint64_t> resourceIDs(values.size(), 999);
            EXPECT_EQ(expected.m_error, "letters:2: wrong size");
            EXPECT_EQ(describeError([&] { transaction.resolve(values, resourceIDs.data()); }), expected.m_error);
            resourceIDs.resize(place);
            EXPECT_EQ(resourceIDs, expected.m_resourceIDs);
            EXPECT_EQ(batched.countResourcesByDatatypeID(), single.countResourcesByDatatypeID());
        }
}

TEST_F(DictionaryFamiliesTest, LiteralsOfAllFamiliesHaveTheOutcomesOfOneAtATime) {
    std::vector<LiteralText> literals;
    for (size_t number = 0; number < 9000; ++number)
        literals.push_back(
            number % 50 == 7   ? makeInvalidLiteral(number / 50)
            : number % 50 == 8 ? LiteralText{"w", getDatatypeID(number)}
                               : makeAnyLiteral(number));
    Dictionary single(makeOptions());
    Dictionary batched(makeOptions());
    Transaction singleTransaction(single);
    Transaction transaction(batched);
    const std::vector<Outcome> expected = resolveSingly(singleTransaction, literals);
    std::vector<Resolution> resolutions(literals.size());
    EXPECT_EQ(transaction.resolve(getLiterals(literals), resolutions.data()), 360u);
    EXPECT_EQ(describe(resolutions), expected);
    resolutions.assign(literals.size(), Resolution{999, nullptr});
    EXPECT_EQ(batched.tryResolve(getLiterals(literals), resolutions.data()), 360u);
    EXPECT_EQ(describe(resolutions), expected);
}

TEST(DictionaryFamilies, ADictionaryHasTheFamiliesThatThereWereWhenItWasMade) {
    Dictionary older({.maxResourceID = 1 << 16});
    const uint64_t five = older.resolve("5", D_XSD_INT);
    const LetterFactory<LetterDictionary> factory{{PLAIN_ID, "http://example.org/plain"}};
    const LetterInspector inspector;
    const DictionaryFamily family(factory, inspector);
    Dictionary newer({.maxResourceID = 1 << 16});

    EXPECT_EQ(newer.getLexicalForm(newer.resolve("v7", PLAIN_ID)), "v7");
    expectError("Engine/core/data-store/dictionary/Dictionary", 40, "No datatype has the ID 240.", [&] {
        older.resolve("v7", PLAIN_ID);
    });
    EXPECT_EQ(older.tryResolve("5", D_XSD_INT), five);
    EXPECT_EQ(findProblems(older), std::vector<std::string>());
    EXPECT_EQ(older.getTableStatistics().size(), 14u);
    MemoryOutputStream output;
    older.saveStore(output); // with the sections of its own families
    EXPECT_NE(output.getContent().find("dictionary-22"), std::string::npos);
    EXPECT_EQ(output.getContent().find("dictionary-240"), std::string::npos);
}

}

}
