#pragma once

#include "core/data-store/dictionary/NumericDatatype.h"
#include "support/Inverse.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// Integers and decimals in both widths with one interface, for tests of batches that hold for all four.

namespace kavix::test {

template<typename R, typename V>
struct BatchFixture {

    using ResourceID = R;
    using Value = V;
    using Store = NumericStore<R>;

    static constexpr bool IS_DECIMAL = std::is_same_v<V, XSDDecimal>;
    static constexpr uint8_t DATATYPE_ID = IS_DECIMAL ? D_XSD_DECIMAL : D_XSD_INTEGER;

    /// Distinct values for distinct numbers up to 2^32.
    static V makeValue(uint64_t number) {
        if constexpr (IS_DECIMAL)
            return XSDDecimal::fromNormalisedFields(static_cast<int64_t>(number * 10 + 5), 1);
        else
            return static_cast<int64_t>(number * 64) - 1000; // in clusters
    }

    /// The value whose search begins at a bucket, for every size of the table above the hash.
    static V makeValueWithHash(uint64_t hash) {
        if constexpr (IS_DECIMAL) {
            constexpr uint64_t INVERSE = getInverse(0x100000001b3);
            return XSDDecimal::fromNormalisedFields(
                static_cast<int64_t>((hash * INVERSE * INVERSE) ^ 0xcbf29ce484222325), 0);
        }
        else
            return static_cast<int64_t>(hash * getInverse(0x9e3779b1));
    }

    static std::vector<V> makeValues(const std::vector<uint64_t>& numbers) {
        std::vector<V> values;
        for (const uint64_t number : numbers)
            values.push_back(makeValue(number));
        return values;
    }

    static ResourceValue toResourceValue(const V& value) {
        ResourceValue result;
        result.setBinaryValue(DATATYPE_ID, value);
        return result;
    }

    static NumericDatatype<R>& getDictionary(const Store& store) {
        return dynamic_cast<NumericDatatype<R>&>(*store.m_dictionary);
    }

    static void resolveAll(
        Store& store, DictionaryUsageContext* context, std::span<const V> values, uint64_t* resourceIDs) {
        if constexpr (IS_DECIMAL)
            getDictionary(store).resolveResources(context, values, resourceIDs);
        else
            getDictionary(store).resolveResources(context, DATATYPE_ID, values, resourceIDs);
    }

    static void tryResolveAll(
        const Store& store, const Visibility& visibility, std::span<const V> values, uint64_t* resourceIDs) {
        if constexpr (IS_DECIMAL)
            std::as_const(getDictionary(store)).tryResolveResources(visibility, values, resourceIDs);
        else
            std::as_const(getDictionary(store)).tryResolveResources(visibility, DATATYPE_ID, values, resourceIDs);
    }

    static std::vector<uint64_t> resolveAll(
        Store& store, DictionaryUsageContext* context, const std::vector<V>& values) {
        std::vector<uint64_t> resourceIDs(values.size(), 999);
        resolveAll(store, context, values, resourceIDs.data());
        return resourceIDs;
    }

    static std::vector<uint64_t> tryResolveAll(
        const Store& store, const std::vector<V>& values, const Visibility& visibility = ALL_VISIBLE) {
        std::vector<uint64_t> resourceIDs(values.size(), 999);
        tryResolveAll(store, visibility, values, resourceIDs.data());
        return resourceIDs;
    }

    static std::vector<uint64_t> resolveSingly(
        Store& store, DictionaryUsageContext* context, const std::vector<V>& values) {
        std::vector<uint64_t> resourceIDs;
        for (const V& value : values)
            resourceIDs.push_back(store.resolve(toResourceValue(value), context));
        return resourceIDs;
    }

    static std::vector<uint64_t> tryResolveSingly(
        const Store& store, const std::vector<V>& values, const Visibility& visibility = ALL_VISIBLE) {
        std::vector<uint64_t> resourceIDs;
        for (const V& value : values)
            resourceIDs.push_back(store.tryResolve(toResourceValue(value), visibility));
        return resourceIDs;
    }

    /// A resource has its datatype, its data word and, if it is a decimal, its record.
    static void expectPublished(const Store& store, uint64_t resourceID, const V& value) {
        ASSERT_EQ(store.getDatatypeID(resourceID), DATATYPE_ID);
        if constexpr (IS_DECIMAL)
            ASSERT_EQ(
                store.getRecordBytes(store.m_resourceData[resourceID]),
                Store::makeRecordBytes(resourceID, value.getUnscaledValue(), value.getFractionDigits()));
        else
            ASSERT_EQ(store.m_resourceData[resourceID], static_cast<uint64_t>(value));
    }

    /// Two stores gave the same IDs, data words and records to the same resources.
    static void expectSameResources(const Store& first, const Store& second) {
        const uint64_t end = first.m_nextResourceID.load();
        ASSERT_EQ(second.m_nextResourceID.load(), end);
        ASSERT_EQ(second.m_dataPool.getEnd(), first.m_dataPool.getEnd());
        ASSERT_EQ(second.m_resourceData.getEnd(), first.m_resourceData.getEnd());
        ASSERT_EQ(second.m_resourceDatatypeIDs.getEnd(), first.m_resourceDatatypeIDs.getEnd());
        for (uint64_t resourceID = 1; resourceID < end; ++resourceID) {
            ASSERT_EQ(second.getDatatypeID(resourceID), first.getDatatypeID(resourceID)) << resourceID;
            ASSERT_EQ(second.m_resourceData[resourceID], first.m_resourceData[resourceID]) << resourceID;
        }
        if (first.m_dataPool.getEnd() > DataPool::FIRST_OFFSET) {
            ASSERT_EQ(
                std::memcmp(second.m_dataPool.getBase(), first.m_dataPool.getBase(), first.m_dataPool.getEnd()), 0);
        }
    }
};

using AllBatchFixtures = ::testing::Types<
    BatchFixture<unsigned int, int64_t>, BatchFixture<unsigned long, int64_t>, BatchFixture<unsigned int, XSDDecimal>,
    BatchFixture<unsigned long, XSDDecimal>>;

struct BatchFixtureNames {
    template<typename Fixture>
    static std::string GetName(int) {
        return std::string(Fixture::IS_DECIMAL ? "Decimal" : "Integer") +
               (sizeof(typename Fixture::ResourceID) == 4 ? "32" : "64");
    }
};

}
