#pragma once

#include "core/data-store/dictionary/DataPool.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/dictionary/DictionaryUsageContext.h"
#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/system/MemoryManager.h"
#include "core/platform/system/MemoryRegion.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace kavix::test {

/// Both widths in which a dictionary stores resource IDs, for typed tests.
using ResourceIDTypes = ::testing::Types<unsigned int, unsigned long>;

inline constexpr uint8_t FIRST_NUMERIC_DATATYPE = D_XSD_DECIMAL;
inline constexpr uint8_t LAST_NUMERIC_DATATYPE = D_XSD_UNSIGNED_BYTE;

using Visibility = std::pair<uint64_t, uint64_t>;

inline constexpr Visibility ALL_VISIBLE{UINT64_MAX, UINT64_MAX};

inline ResourceValue makeInteger(uint8_t datatypeID, int64_t integer) {
    ResourceValue value;
    value.setBinaryValue(datatypeID, integer);
    return value;
}

inline ResourceValue makeDecimal(const std::string& text) {
    ResourceValue value;
    value.setBinaryValue(D_XSD_DECIMAL, XSDDecimal(text.data(), text.size()));
    return value;
}

/// What a store owns and shares among its dictionaries, with one numeric dictionary made by the factory. Address space
/// for 8M resources, 1 GB of pool; the calling thread gets a slot.
template<typename ResourceID>
struct NumericStore {

    static constexpr bool IS_NARROW = sizeof(ResourceID) == 4;
    static constexpr uint64_t RECORD_SIZE = IS_NARROW ? 13 : 17;
    static constexpr uint64_t CAPACITY = uint64_t(1) << 23;

    explicit NumericStore(uint64_t budget = uint64_t(1) << 32) :
        m_memoryManager(budget),
        m_nextResourceID(1),
        m_resourceData(m_memoryManager),
        m_resourceDatatypeIDs(m_memoryManager),
        m_dataPool(m_memoryManager) {
        ThreadSlots::ensureSlot();
        m_resourceData.initialize(CAPACITY);
        m_resourceDatatypeIDs.initialize(CAPACITY);
        m_dataPool.initialize(uint64_t(1) << 30);
        m_dictionary = makeDictionary();
    }

    /// A second dictionary against the same shared objects: what a store has after its image was loaded.
    std::unique_ptr<DictionaryDatatype> makeDictionary() {
        return s_NumericDatatypeFactory.createDictionaryDatatype(
            IS_NARROW, m_memoryManager, m_nextResourceID, m_resourceData, m_resourceDatatypeIDs, m_dataPool);
    }

    NumericStore& initialize(uint64_t maxResourceID = CAPACITY) {
        m_dictionary->initialize(maxResourceID, 0);
        return *this;
    }

    uint64_t resolve(const std::string& text, uint8_t datatypeID, DictionaryUsageContext* context = nullptr) {
        return m_dictionary->resolveResource(context, text.data(), text.size(), datatypeID);
    }

    uint64_t resolve(const ResourceValue& value, DictionaryUsageContext* context = nullptr) {
        return m_dictionary->resolveResource(context, value);
    }

    uint64_t tryResolve(const std::string& text, uint8_t datatypeID, const Visibility& visibility = ALL_VISIBLE) const {
        return std::as_const(*m_dictionary).tryResolveResource(visibility, text.data(), text.size(), datatypeID);
    }

    uint64_t tryResolve(const ResourceValue& value, const Visibility& visibility = ALL_VISIBLE) const {
        return std::as_const(*m_dictionary).tryResolveResource(visibility, value);
    }

    std::string getText(uint64_t resourceID, uint8_t datatypeID) const {
        std::string text("left over");
        std::as_const(*m_dictionary).getResource(resourceID, datatypeID, text);
        return text;
    }

    uint8_t getDatatypeID(uint64_t resourceID) const {
        return m_resourceDatatypeIDs[resourceID].load(std::memory_order_acquire);
    }

    /// The bytes of a record, for comparison with what they should be.
    std::string getRecordBytes(uint64_t offset) const {
        return std::string(reinterpret_cast<const char*>(m_dataPool.getBase() + offset), RECORD_SIZE);
    }

    /// The bytes that the record of a decimal consists of, written field by field.
    static std::string makeRecordBytes(uint64_t resourceID, int64_t unscaledValue, uint8_t fractionDigits) {
        std::string bytes(RECORD_SIZE, '\0');
        std::memcpy(bytes.data(), &resourceID, sizeof(ResourceID)); // the low bytes come first
        std::memcpy(bytes.data() + sizeof(ResourceID), &unscaledValue, 8);
        bytes[sizeof(ResourceID) + 8] = static_cast<char>(fractionDigits);
        return bytes;
    }

    MemoryManager m_memoryManager;
    std::atomic<uint64_t> m_nextResourceID;
    MemoryRegion<uint64_t> m_resourceData;
    MemoryRegion<std::atomic<uint8_t>> m_resourceDatatypeIDs;
    DataPool m_dataPool;
    std::unique_ptr<DictionaryDatatype> m_dictionary;
};

}
