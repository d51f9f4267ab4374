#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/errors/KavixException.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// Values of all numeric datatypes, and what becomes of them one at a time, for tests of batches.

namespace kavix::test {

inline constexpr unsigned NUMBER_OF_NUMERIC_DATATYPES = 14;

/// A value of a datatype: distinct for distinct numbers up to 2^32, as far as the datatype has as many.
inline ResourceValue makeValue(uint8_t datatypeID, uint64_t number) {
    ResourceValue value;
    if (datatypeID == D_XSD_DECIMAL) {
        value.setBinaryValue(
            datatypeID, XSDDecimal::fromNormalisedFields(
                            static_cast<int64_t>(number * 10 + 5), static_cast<uint8_t>(1 + number % 19)));
        return value;
    }
    const IntegerDatatypeInfo& info = getIntegerDatatypeInfo(datatypeID);
    const uint64_t largestOffset = static_cast<uint64_t>(info.maximum) - static_cast<uint64_t>(info.minimum);
    const uint64_t offset = largestOffset <= UINT32_MAX ? number % (largestOffset + 1) : number * 67;
    value.setBinaryValue(datatypeID, static_cast<uint64_t>(info.minimum) + offset);
    return value;
}

inline ResourceValue makeMixedValue(uint64_t number) {
    return makeValue(
        static_cast<uint8_t>(D_XSD_DECIMAL + number % NUMBER_OF_NUMERIC_DATATYPES),
        number / NUMBER_OF_NUMERIC_DATATYPES);
}

inline bool isSameValue(const ResourceValue& first, const ResourceValue& second) {
    return first.datatypeID == second.datatypeID && first.dataSize == second.dataSize &&
           std::memcmp(first.data, second.data, first.dataSize) == 0;
}

/// The text and the place of an error, for comparison; empty if the action throws nothing.
template<typename Action>
std::string describeError(Action action) {
    try {
        action();
        return std::string();
    }
    catch (const KavixException& exception) {
        return exception.getSourceFile() + ":" + std::to_string(exception.getLine()) + ": " + exception.what();
    }
}

/// What resolving values one at a time gives, up to the first error.
struct SingleResults {
    std::vector<uint64_t> m_resourceIDs;
    std::string m_error; // as describeError() has it
};

inline SingleResults resolveSingly(Transaction& transaction, const std::vector<ResourceValue>& values) {
    SingleResults results;
    results.m_error = describeError([&] {
        for (const ResourceValue& value : values)
            results.m_resourceIDs.push_back(transaction.resolve(value));
    });
    return results;
}

/// Two dictionaries, which no thread writes to, have the same resources under the same IDs, and gave out as many.
inline void expectSameContents(const Dictionary& first, const Dictionary& second) {
    ASSERT_EQ(first.takeSnapshot(), second.takeSnapshot());
    for (uint64_t resourceID = 0; resourceID < first.takeSnapshot().resourceIDEnd; ++resourceID) {
        ASSERT_EQ(first.tryGetResourceDatatypeID(resourceID), second.tryGetResourceDatatypeID(resourceID))
            << resourceID;
        if (first.tryGetResourceDatatypeID(resourceID) != D_NONE) {
            ASSERT_TRUE(isSameValue(first.getValue(resourceID), second.getValue(resourceID))) << resourceID;
        }
    }
}

/// Fails the test for each problem of the dictionary, which no thread writes to.
inline void expectConsistent(const Dictionary& dictionary) {
    dictionary.verify([](std::string&& problem) { ADD_FAILURE() << problem; });
}

}
