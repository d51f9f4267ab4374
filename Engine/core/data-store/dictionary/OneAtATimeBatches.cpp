#include "core/data-store/dictionary/OneAtATimeBatches.h"

namespace kavix {

void OneAtATimeBatches::resolveResources(DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) {
    for (size_t index = 0; index < values.size(); ++index)
        resourceIDs[index] = m_dictionaryDatatype.resolveResource(context, values[index]);
}

void OneAtATimeBatches::tryResolveResources(const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values, uint64_t* resourceIDs) const noexcept {
    for (size_t index = 0; index < values.size(); ++index)
        resourceIDs[index] = m_dictionaryDatatype.tryResolveResource(visibility, values[index]);
}

}
