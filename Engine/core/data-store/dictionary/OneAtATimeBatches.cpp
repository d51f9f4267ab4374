#include "core/data-store/dictionary/OneAtATimeBatches.h"

namespace kavix {

void OneAtATimeBatches::resolveResources(
    DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) {
    for (size_t index = 0; index < values.size(); ++index)
        resourceIDs[index] = m_dictionaryDatatype.resolveResource(context, values[index]);
}

void OneAtATimeBatches::tryResolveResources(
    const std::pair<uint64_t, uint64_t>& visibility, std::span<const ResourceValue> values,
    uint64_t* resourceIDs) const noexcept {
    for (size_t index = 0; index < values.size(); ++index)
        resourceIDs[index] = m_dictionaryDatatype.tryResolveResource(visibility, values[index]);
}

size_t OneAtATimeBatches::resolveResources(
    DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept {
    size_t numberOfFailures = 0;
    for (size_t index = 0; index < literals.size(); ++index)
        numberOfFailures += !resolutions[index].trySet([&, &literal = literals[index]] {
            return m_dictionaryDatatype.resolveResource(
                context, literal.lexicalForm.data(), literal.lexicalForm.size(), literal.datatypeID);
        });
    return numberOfFailures;
}

size_t OneAtATimeBatches::tryResolveResources(
    const std::pair<uint64_t, uint64_t>& visibility, std::span<const Literal> literals,
    Resolution* resolutions) const noexcept {
    size_t numberOfFailures = 0;
    for (size_t index = 0; index < literals.size(); ++index)
        numberOfFailures += !resolutions[index].trySet([&, &literal = literals[index]] {
            return m_dictionaryDatatype.tryResolveResource(
                visibility, literal.lexicalForm.data(), literal.lexicalForm.size(), literal.datatypeID);
        });
    return numberOfFailures;
}

void OneAtATimeBatches::getResources(
    std::span<const uint64_t> resourceIDs, const uint8_t* datatypeIDs, ResourceValue* values) const {
    for (size_t index = 0; index < resourceIDs.size(); ++index)
        m_dictionaryDatatype.getResource(resourceIDs[index], datatypeIDs[index], values[index]);
}

}
