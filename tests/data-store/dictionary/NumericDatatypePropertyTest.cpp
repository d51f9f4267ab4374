#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DictionaryCompactionState.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kavix::test {

namespace {

/// A value as the model knows it: the fields of its binary form.
struct ModelValue {
    uint8_t m_datatypeID;
    int64_t m_number;
    uint8_t m_fractionDigits;
    auto operator<=>(const ModelValue& other) const = default;
};

struct ModelResource {
    ModelValue m_value;
    uint64_t m_offset; // of a decimal
};

/// A dictionary of maps: which ID a value has, and what is at an ID.
struct Model {
    std::map<ModelValue, uint64_t> m_resourceIDs;
    std::map<uint64_t, ModelResource> m_resources; // what the arrays hold, deleted ones included
    std::array<uint64_t, 256>
        m_everEntered{}; // since the tables were last emptied, per datatype: bounds the used buckets
};

std::string toText(const ModelValue& value) {
    std::string text = std::to_string(value.m_number);
    if (value.m_fractionDigits != 0) {
        const size_t signLength = value.m_number < 0 ? 1 : 0;
        while (text.size() - signLength <= value.m_fractionDigits)
            text.insert(signLength, "0");
        text.insert(text.size() - value.m_fractionDigits, ".");
    }
    return text;
}

ResourceValue toResourceValue(const ModelValue& value) {
    ResourceValue result;
    if (value.m_datatypeID == D_XSD_DECIMAL)
        result.setBinaryValue(D_XSD_DECIMAL, XSDDecimal::fromNormalisedFields(value.m_number, value.m_fractionDigits));
    else
        result.setBinaryValue(value.m_datatypeID, value.m_number);
    return result;
}

/// Runs random operations on a store and on the model and compares everything that can be observed.
template<typename ResourceID>
class Simulation {

public:

    explicit Simulation(uint64_t seed) :
        m_random(seed) {
        m_store.initialize(BOUND);
        m_contexts.resize(3);
    }

    void run(size_t numberOfSteps) {
        for (size_t step = 0; step < numberOfSteps; ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            doStep();
            compareSome();
            if (step % 200 == 199)
                compareAll();
            if (::testing::Test::HasFailure())
                return;
        }
        compareAll();
    }

private:

    using Store = NumericStore<ResourceID>;

    static constexpr uint64_t BOUND = 200000;

    uint64_t below(uint64_t bound) { return m_random() % bound; }

    ModelValue makeValue() {
        static constexpr uint8_t DATATYPES[] = {D_XSD_DECIMAL, D_XSD_DECIMAL,       D_XSD_INTEGER,
                                                D_XSD_INT,     D_XSD_UNSIGNED_BYTE, D_XSD_NEGATIVE_INTEGER};
        const uint8_t datatypeID = DATATYPES[below(std::size(DATATYPES))];
        int64_t number = static_cast<int64_t>(below(m_range));
        if (below(3) == 0)
            number <<= 20; // clusters
        if (datatypeID == D_XSD_NEGATIVE_INTEGER)
            return {datatypeID, -1 - number % 2000, 0};
        if (datatypeID == D_XSD_UNSIGNED_BYTE)
            return {datatypeID, number % 256, 0};
        if (datatypeID == D_XSD_INT)
            return {datatypeID, number % 100000, 0};
        if (below(2) == 0)
            number = -number;
        if (datatypeID == D_XSD_INTEGER)
            return {datatypeID, number, 0};
        const uint8_t fractionDigits = static_cast<uint8_t>(below(4));
        if (fractionDigits != 0 && number % 10 == 0)
            ++number; // normalised
        return {datatypeID, number, fractionDigits};
    }

    std::optional<uint64_t> getExpected(const ModelValue& value) const {
        const auto iterator = m_model.m_resourceIDs.find(value);
        return iterator == m_model.m_resourceIDs.end() ? std::nullopt : std::optional<uint64_t>(iterator->second);
    }

    void doStep() {
        const uint64_t choice = below(1000);
        if (choice < 950)
            resolve(1 + below(20));
        else if (choice < 970)
            deleteSome();
        else if (choice < 985)
            restoreSome();
        else if (choice < 992)
            saveAndLoad();
        else if (choice < 996)
            compact();
        else if (choice < 997)
            initialize();
        else
            m_range = 10 + below(6000);
    }

    void resolve(uint64_t count) {
        const uint64_t contextIndex = below(m_contexts.size() + 1);
        for (uint64_t i = 0; i < count; ++i) {
            const ModelValue value = makeValue();
            DictionaryUsageContext* const context =
                contextIndex == m_contexts.size() ? nullptr : &m_contexts[contextIndex];
            // The ID and the offset that a new value must get.
            const bool takesBlock =
                context != nullptr && context->m_resourceIDBlockNext == context->m_resourceIDBlockEnd;
            const uint64_t counter = m_store.m_nextResourceID.load();
            const uint64_t newID = context == nullptr || takesBlock ? counter : context->m_resourceIDBlockNext;
            const uint64_t poolEnd = m_store.m_dataPool.getEnd();
            const bool takesChunk =
                context != nullptr && context->m_dataPoolChunkNext + Store::RECORD_SIZE > context->m_dataPoolChunkEnd;
            const uint64_t newOffset = context == nullptr || takesChunk ? poolEnd : context->m_dataPoolChunkNext;

            const uint64_t resourceID = below(2) == 0 ? m_store.resolve(toText(value), value.m_datatypeID, context)
                                                      : m_store.resolve(toResourceValue(value), context);

            if (const std::optional<uint64_t> expected = getExpected(value)) {
                ASSERT_EQ(resourceID, *expected);
                ASSERT_EQ(m_store.m_nextResourceID.load(), counter);
                ASSERT_EQ(m_store.m_dataPool.getEnd(), poolEnd);
                continue;
            }
            ASSERT_EQ(resourceID, newID);
            ASSERT_EQ(
                m_store.m_nextResourceID.load(), context == nullptr ? counter + 1
                                                 : takesBlock       ? counter + 1024
                                                                    : counter);
            if (value.m_datatypeID == D_XSD_DECIMAL) {
                ASSERT_EQ(
                    m_store.m_dataPool.getEnd(), context == nullptr ? poolEnd + Store::RECORD_SIZE
                                                 : takesChunk       ? poolEnd + 65536 + Store::RECORD_SIZE
                                                                    : poolEnd);
            }
            enter(value, resourceID, newOffset);
        }
    }

    void enter(const ModelValue& value, uint64_t resourceID, uint64_t offset) {
        m_model.m_resourceIDs[value] = resourceID;
        m_model.m_resources[resourceID] = ModelResource{value, value.m_datatypeID == D_XSD_DECIMAL ? offset : 0};
        ++m_model.m_everEntered[value.m_datatypeID];
    }

    void deleteSome() {
        for (uint64_t i = below(60); i != 0 && !m_model.m_resources.empty(); --i) {
            // Any ID that ever was used, also one whose resource was deleted before.
            const uint64_t resourceID =
                std::next(m_model.m_resources.begin(), static_cast<std::ptrdiff_t>(below(m_model.m_resources.size())))
                    ->first;
            const ModelValue value = m_model.m_resources.at(resourceID).m_value;
            m_store.m_dictionary->deleteUncommittedResourceID(Visibility(0, 0), resourceID, value.m_datatypeID);
            if (getExpected(value) == resourceID)
                m_model.m_resourceIDs.erase(value);
        }
    }

    void restoreSome() {
        for (uint64_t i = below(10); i != 0; --i) {
            const ModelValue value = makeValue();
            const uint64_t resourceID = m_store.m_nextResourceID.load() + below(50);
            const uint64_t newOffset = m_store.m_dataPool.getEnd();
            m_store.m_dictionary->restoreResource(nullptr, resourceID, toResourceValue(value));
            if (!getExpected(value)) {
                enter(value, resourceID, newOffset);
                m_store.m_nextResourceID = resourceID + 1; // the caller's duty
            }
        }
    }

    void saveAndLoad() {
        const std::string bytes = saveToBytes(*m_store.m_dictionary);
        m_store.m_dictionary = m_store.makeDictionary();
        loadFromBytes(*m_store.m_dictionary, bytes);
        ASSERT_EQ(saveToBytes(*m_store.m_dictionary), bytes);
    }

    void compact() {
        DictionaryCompactionState state(m_store.m_memoryManager, m_model.m_resourceIDs.size());
        Model compacted;
        uint64_t newID = 1;
        std::vector<uint64_t> liveIDs;
        for (const auto& [value, resourceID] : m_model.m_resourceIDs)
            liveIDs.push_back(resourceID);
        std::sort(liveIDs.begin(), liveIDs.end());
        std::vector<std::pair<uint64_t, ModelResource>> kept;
        for (const uint64_t resourceID : liveIDs)
            if (below(8) != 0) {
                m_store.m_dictionary->prepareCompact(resourceID, newID, state);
                kept.emplace_back(newID++, m_model.m_resources.at(resourceID));
            }
        std::stable_sort(state.begin(), state.end(), [](const CompactionEntry& first, const CompactionEntry& second) {
            return first.datatypeID < second.datatypeID;
        });
        m_store.m_dictionary->finishCompact(state);
        for (const auto& [resourceID, resource] : kept) {
            compacted.m_resourceIDs[resource.m_value] = resourceID;
            compacted.m_resources[resourceID] = resource;
            ++compacted.m_everEntered[resource.m_value.m_datatypeID];
        }
        m_model = std::move(compacted);
        m_store.m_nextResourceID = newID;
        m_contexts.assign(m_contexts.size(), DictionaryUsageContext());
    }

    void initialize() {
        m_store.m_nextResourceID = 1;
        m_contexts.assign(m_contexts.size(), DictionaryUsageContext());
        if (below(2) == 0)
            m_store.initialize(BOUND);
        else {
            std::vector<uint64_t> counts(36, 0);
            for (uint64_t& count : counts)
                count = below(3000);
            m_store.m_dictionary->restoreEmpty(counts);
        }
        m_model = Model();
    }

    void compareSome() {
        for (int i = 0; i < 5; ++i) {
            const ModelValue value = makeValue();
            const uint64_t expected = getExpected(value).value_or(0);
            ASSERT_EQ(m_store.tryResolve(toText(value), value.m_datatypeID), expected);
            const uint64_t offset = expected == 0 ? 0 : m_model.m_resources.at(expected).m_offset;
            const Visibility visibility(
                expected + below(3) - (expected == 0 ? 0 : 1), offset + below(3) - (offset == 0 ? 0 : 1));
            const bool isVisible =
                expected < visibility.first && (value.m_datatypeID != D_XSD_DECIMAL || offset < visibility.second);
            ASSERT_EQ(m_store.tryResolve(toResourceValue(value), visibility), isVisible ? expected : 0);
        }
    }

    void compareAll() {
        for (const auto& [value, resourceID] : m_model.m_resourceIDs)
            ASSERT_EQ(m_store.tryResolve(toResourceValue(value)), resourceID) << toText(value);
        for (const auto& [resourceID, resource] : m_model.m_resources) {
            const ModelValue& value = resource.m_value;
            ASSERT_EQ(m_store.getDatatypeID(resourceID), value.m_datatypeID);
            ASSERT_EQ(m_store.getText(resourceID, value.m_datatypeID), toText(value));
            if (value.m_datatypeID == D_XSD_DECIMAL) {
                ASSERT_EQ(m_store.m_resourceData[resourceID], resource.m_offset);
                ASSERT_EQ(
                    m_store.getRecordBytes(resource.m_offset),
                    Store::makeRecordBytes(resourceID, value.m_number, value.m_fractionDigits));
            }
            else {
                ASSERT_EQ(m_store.m_resourceData[resourceID], static_cast<uint64_t>(value.m_number));
            }
        }
        const NumericImage image = saveToImage(*m_store.m_dictionary);
        checkTables<ResourceID>(image);
        std::array<uint64_t, 256> liveByDatatype{};
        for (const auto& [value, resourceID] : m_model.m_resourceIDs)
            ++liveByDatatype[value.m_datatypeID];
        for (uint8_t datatypeID = FIRST_NUMERIC_DATATYPE; datatypeID <= LAST_NUMERIC_DATATYPE; ++datatypeID) {
            const ImageTable& table = image[datatypeID];
            const uint64_t used = table.m_usedCount - table.sumFreeReservations();
            ASSERT_EQ(used - table.m_deletedCount, liveByDatatype[datatypeID]);
            ASSERT_LE(used, m_model.m_everEntered[datatypeID]);
        }
        // Every committed byte is accounted for.
        ASSERT_EQ(
            m_store.m_memoryManager.getChargedBytes(),
            m_store.m_dictionary->getComponentInfo()->getNumericProperty("Aggregate size") +
                m_store.m_resourceData.getCommittedBytes() + m_store.m_resourceDatatypeIDs.getCommittedBytes() +
                m_store.m_dataPool.getCommittedBytes());
    }

    std::mt19937_64 m_random;
    Store m_store;
    Model m_model;
    std::vector<DictionaryUsageContext> m_contexts;
    uint64_t m_range = 3000;
};

template<typename ResourceID>
class NumericDatatypeTest : public ::testing::Test { };

TYPED_TEST_SUITE(NumericDatatypeTest, ResourceIDTypes);

TYPED_TEST(NumericDatatypeTest, RandomOperationsAgreeWithAModelOfMaps) {
    std::vector<uint64_t> seeds = {1, 2, 3, 20260117};
    if (const char* const seed = std::getenv("KAVIX_SEED"))
        seeds = {std::strtoull(seed, nullptr, 10)};
    for (const uint64_t seed : seeds) {
        SCOPED_TRACE("replay with KAVIX_SEED=" + std::to_string(seed));
        Simulation<TypeParam>(seed).run(2000);
        if (::testing::Test::HasFailure())
            return;
    }
}

}

}
