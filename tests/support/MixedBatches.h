#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "support/MixedLiterals.h"
#include "support/MixedValues.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// Mixtures of which tests make batches, as values or as literals.

namespace kavix::test {

/// What makeValue() and makeLiteral() are asked for.
struct MixtureItem {
    uint8_t m_datatypeID;
    uint64_t m_number;
};

inline MixtureItem getMixedItem(uint64_t number) {
    return MixtureItem{
        static_cast<uint8_t>(D_XSD_DECIMAL + number % NUMBER_OF_NUMERIC_DATATYPES),
        number / NUMBER_OF_NUMERIC_DATATYPES};
}

struct Mixture {
    const char* m_name;
    MixtureItem (*m_getItem)(size_t index);
};

inline constexpr Mixture INTEGERS{"integers", [](size_t index) { return MixtureItem{D_XSD_INTEGER, index}; }};

inline constexpr Mixture DECIMALS{"decimals", [](size_t index) { return MixtureItem{D_XSD_DECIMAL, index}; }};

inline constexpr Mixture ALL_DATATYPES{
    "all datatypes", [](size_t index) { return getMixedItem(index * 7919 % 10007); }};

inline constexpr Mixture ALL_DATATYPES_MANY_TWICE{
    "all datatypes, many twice", [](size_t index) {
        return getMixedItem(index % 7 == 3 ? index - 1 : index % 5 == 4 ? index / 2 : index);
    }};

inline constexpr Mixture TWO_DATATYPES{"two datatypes in turn", [](size_t index) {
                                           return MixtureItem{index % 2 == 0 ? D_XSD_LONG : D_XSD_DECIMAL, index};
                                       }};

inline constexpr Mixture ONE_AMONG_DECIMALS{
    "one among decimals", [](size_t index) {
        return MixtureItem{index == 500 ? D_XSD_UNSIGNED_BYTE : D_XSD_DECIMAL, index};
    }};

inline constexpr Mixture ONE_VALUE{"one value", [](size_t) { return MixtureItem{D_XSD_INT, 5}; }};

inline constexpr Mixture ONE_NUMBER_TWICE{
    "one number in two datatypes", [](size_t index) {
        return MixtureItem{index % 2 == 0 ? D_XSD_INTEGER : D_XSD_LONG, index / 2};
    }};

inline constexpr Mixture MIXTURES[] = {INTEGERS,      DECIMALS,           ALL_DATATYPES, ALL_DATATYPES_MANY_TWICE,
                                       TWO_DATATYPES, ONE_AMONG_DECIMALS, ONE_VALUE,     ONE_NUMBER_TWICE};

inline std::vector<ResourceValue> makeValues(const Mixture& mixture, size_t n) {
    std::vector<ResourceValue> values;
    for (size_t index = 0; index < n; ++index) {
        const MixtureItem item = mixture.m_getItem(index);
        values.push_back(makeValue(item.m_datatypeID, item.m_number));
    }
    return values;
}

inline LiteralText makeLiteral(const Mixture& mixture, size_t index) {
    const MixtureItem item = mixture.m_getItem(index);
    return makeLiteral(item.m_datatypeID, item.m_number);
}

inline std::vector<LiteralText> makeLiterals(const Mixture& mixture, size_t n) {
    std::vector<LiteralText> literals;
    for (size_t index = 0; index < n; ++index)
        literals.push_back(makeLiteral(mixture, index));
    return literals;
}

}
