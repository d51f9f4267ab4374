#include "core/data-store/embedding/DictionaryState.h"

#include "core/data-store/dictionary/DictionaryDatatypeBatches.h"
#include "core/data-store/inspection/DictionaryDatatypeInspector.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/system/Prefetch.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>

namespace kavix {

/// Calls operation(family, first, sizeOfRun) for one run of elements after the other. A run is as long as possible, but
/// has one family and fits a batch. The family is null if no family has the datatypes.
template<typename GetDatatypeID, typename Operation>
void DictionaryState::forEachRun(size_t size, GetDatatypeID getDatatypeIDOf, Operation operation) const {
    for (size_t first = 0, end; first < size; first = end) {
        const Family* const family = m_familiesByID[getDatatypeIDOf(first)];
        const size_t limit = first + std::min(size - first, DictionaryDatatypeBatches::MAX_BATCH_SIZE);
        end = first + 1;
        while (end < limit && m_familiesByID[getDatatypeIDOf(end)] == family)
            ++end;
        operation(family, first, end - first);
    }
}

/// Calls operation(batches, first, run) for one run of valid values after the other. Throws the error of the first
/// invalid value, once the operation has returned for all values before it.
template<typename Operation>
void DictionaryState::forEachValidRun(std::span<const ResourceValue> values, Operation operation) const {
    forEachRun(
        values.size(), [values](size_t index) { return values[index].datatypeID; },
        [values, operation](const Family* family, size_t first, size_t sizeOfRun) {
            const std::span<const ResourceValue> run = values.subspan(first, sizeOfRun);
            if (family == nullptr)
                Errors::throwUnknownDatatypeID(run.front().datatypeID);
            const size_t numberOfValid = family->m_inspector.countValidBinaryValues(run);
            if (numberOfValid != 0) {
                ThreadSlots::ensureSlot();
                operation(family->m_batches, first, run.first(numberOfValid));
            }
            if (numberOfValid != run.size())
                family->m_inspector.checkBinaryValue(run[numberOfValid]);
        });
}

void DictionaryState::doResolve(
    DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) {
    forEachValidRun(values, [=](DictionaryDatatypeBatches& batches, size_t first, std::span<const ResourceValue> run) {
        batches.resolveResources(context, run, resourceIDs + first);
    });
}

void Dictionary::tryResolve(
    std::span<const ResourceValue> values, uint64_t* resourceIDs, const Snapshot& snapshot) const {
    m_state->forEachValidRun(
        values, [visibility = snapshot.toVisibility(), resourceIDs](
                    const DictionaryDatatypeBatches& batches, size_t first, std::span<const ResourceValue> run) {
            batches.tryResolveResources(visibility, run, resourceIDs + first);
        });
}

/// Calls operation(batches, run, resolutions of the run), which returns a number of failures, for one run after the
/// other of literals with known datatypes; the other literals fail. Returns how many failed.
template<typename Operation>
size_t DictionaryState::resolveRuns(
    std::span<const Literal> literals, Resolution* resolutions, Operation operation) const noexcept {
    size_t numberOfFailures = 0;
    forEachRun(
        literals.size(), [literals](size_t index) { return literals[index].datatypeID; },
        [&](const Family* family, size_t first, size_t sizeOfRun) {
            if (family != nullptr)
                try {
                    ThreadSlots::ensureSlot();
                    numberOfFailures +=
                        operation(family->m_batches, literals.subspan(first, sizeOfRun), resolutions + first);
                }
                catch (...) { // there is no slot
                    std::fill_n(resolutions + first, sizeOfRun, Resolution{0, std::current_exception()});
                    numberOfFailures += sizeOfRun;
                }
            else
                for (size_t index = first; index < first + sizeOfRun; ++index)
                    numberOfFailures += !resolutions[index].trySet(
                        [&]() -> uint64_t { Errors::throwUnknownDatatypeID(literals[index].datatypeID); });
        });
    return numberOfFailures;
}

size_t DictionaryState::doResolve(
    DictionaryUsageContext* context, std::span<const Literal> literals, Resolution* resolutions) noexcept {
    return resolveRuns(
        literals, resolutions,
        [context](DictionaryDatatypeBatches& batches, std::span<const Literal> run, Resolution* resolutionsOfRun) {
            return batches.resolveResources(context, run, resolutionsOfRun);
        });
}

size_t Dictionary::tryResolve(
    std::span<const Literal> literals, Resolution* resolutions, const Snapshot& snapshot) const noexcept {
    return m_state->resolveRuns(
        literals, resolutions,
        [visibility = snapshot.toVisibility()](
            const DictionaryDatatypeBatches& batches, std::span<const Literal> run, Resolution* resolutionsOfRun) {
            return batches.tryResolveResources(visibility, run, resolutionsOfRun);
        });
}

void Dictionary::getValues(std::span<const uint64_t> resourceIDs, ResourceValue* values) const {
    constexpr size_t DISTANCE = 32; // how far ahead datatype IDs are prefetched
    uint8_t datatypeIDs[DictionaryDatatypeBatches::MAX_BATCH_SIZE];
    while (!resourceIDs.empty()) {
        const std::span<const uint64_t> batch =
            resourceIDs.first(std::min(resourceIDs.size(), DictionaryDatatypeBatches::MAX_BATCH_SIZE));
        for (size_t step = 0; step < batch.size() + DISTANCE; ++step) {
            if (step < batch.size() && batch[step] < m_state->m_resourceDatatypeIDs.getEnd())
                fetchAhead(&m_state->m_resourceDatatypeIDs[batch[step]]);
            if (const size_t index = step - DISTANCE; index < batch.size()) // wraps at first
                datatypeIDs[index] = m_state->tryGetResourceDatatypeID(batch[index]);
        }
        m_state->forEachRun(
            batch.size(), [&datatypeIDs](size_t index) { return datatypeIDs[index]; },
            [&](const DictionaryState::Family* family, size_t first, size_t sizeOfRun) {
                if (family != nullptr)
                    family->m_batches.getResources(
                        batch.subspan(first, sizeOfRun), datatypeIDs + first, values + first);
                else // D_NONE; no resource has a datatype without a family
                    std::fill_n(values + first, sizeOfRun, ResourceValue());
            });
        resourceIDs = resourceIDs.subspan(batch.size());
        values += batch.size();
    }
}

}
