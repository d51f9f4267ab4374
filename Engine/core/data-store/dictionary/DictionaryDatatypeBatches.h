#pragma once

#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/dictionary/DictionaryUsageContext.h"
#include "core/data-store/dictionary/Literal.h"
#include "core/data-store/dictionary/ResourceValue.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace kavix {

/// A DictionaryDatatype with operations on many elements at once, which every family has. Batches exist only for speed:
/// what a batch returns, enters and throws is what the single operation does for one element after the other, in order.
/// Only reservations may differ: a value that is present needs none here.
///
/// The caller splits its input into batches of 1 to MAX_BATCH_SIZE elements whose datatypes all belong to the family;
/// nothing else about their order or mixture is guaranteed. Inputs and results do not overlap. Arguments are trusted,
/// and threads may call, as for the single operations.
class DictionaryDatatypeBatches : public DictionaryDatatype {

public:

    static constexpr size_t MAX_BATCH_SIZE = 1024;

    using DictionaryDatatype::DictionaryDatatype;

    /// The resource IDs of values in binary form; absent ones are entered under new IDs. The context may be null.
    /// @throws as resolveResource() at the first value that fails: those before it are entered and have their IDs, no
    ///         value from that index on is entered, and the contents of resourceIDs from that index on are unspecified
    virtual void resolveResources(
        DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) = 0;

    /// The resource IDs of values in binary form; 0 for each that is absent or not visible.
    virtual void tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values,
        uint64_t* resourceIDs) const noexcept = 0;

    /// The resource IDs of literals; absent ones are entered under new IDs. The context may be null. When a literal
    /// fails, later elements are still processed.
    /// @return how many failed
    virtual size_t resolveResources(
        DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept = 0;

    /// The resource IDs of literals; 0 without an error for each that is absent or not visible.
    /// @return how many are invalid
    virtual size_t tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const Literal> literals,
        Resolution* resolutions) const noexcept = 0;

    /// The values of resources, each in binary form in the buffer of its value.
    /// @param datatypeIDs  one for each resource
    virtual void getResources(
        std::span<const uint64_t> resourceIDs, const uint8_t* datatypeIDs, ResourceValue* values) const = 0;
};

}
