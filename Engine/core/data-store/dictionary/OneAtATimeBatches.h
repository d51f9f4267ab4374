#pragma once

#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/dictionary/DictionaryDatatypeBatches.h"

namespace kavix {

/// The batches of a family that has none of its own: one single operation for each element. The dictionary of the
/// family outlives it.
class OneAtATimeBatches final : public DictionaryDatatypeBatches {

public:

    explicit OneAtATimeBatches(DictionaryDatatype& dictionaryDatatype) noexcept :
        m_dictionaryDatatype(dictionaryDatatype) { }

    void resolveResources(
        DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) override;

    void tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values,
        uint64_t* resourceIDs) const noexcept override;

    size_t resolveResources(
        DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept override;

    size_t tryResolveResources(
        const std::pair<uint64_t, uint64_t>& visibility, std::span<const Literal> literals,
        Resolution* resolutions) const noexcept override;

    void getResources(
        std::span<const uint64_t> resourceIDs, const uint8_t* datatypeIDs, ResourceValue* values) const override;

private:

    DictionaryDatatype& m_dictionaryDatatype;
};

}
