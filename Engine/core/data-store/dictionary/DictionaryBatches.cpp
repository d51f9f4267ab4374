#include "core/data-store/dictionary/Dictionary.h"

#include "core/data-store/dictionary/DictionaryDatatypeBatches.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <algorithm>
#include <exception>

namespace kavix {

/// Calls operation(batches, first, run) for one run of elements after the other: as many as there are of one family, but
/// no more than fit a batch. The batches are null where no family has the datatype of the elements.
template<typename Element, typename Operation>
void Dictionary::forEachRun(std::span<const Element> elements, Operation operation) const {
    for (size_t first = 0, end; first < elements.size(); first = end) {
        DictionaryDatatypeBatches* const batches = m_batchesByID[elements[first].datatypeID];
        const size_t limit = std::min(elements.size(), first + DictionaryDatatypeBatches::MAX_BATCH_SIZE);
        end = first + 1;
        while (end < limit && m_batchesByID[elements[end].datatypeID] == batches)
            ++end;
        operation(batches, first, elements.subspan(first, end - first));
    }
}

/// Calls operation(batches, first, run) for one run of valid values after the other. Throws what is wrong with the first
/// value that is not, once the operation has returned for all before it.
template<typename Operation>
void Dictionary::forEachValidRun(std::span<const ResourceValue> values, Operation operation) const {
    forEachRun(values, [operation](DictionaryDatatypeBatches* batches, size_t first, std::span<const ResourceValue> run) {
        size_t numberOfValid = 0;
        std::exception_ptr error;
        try {
            if (batches == nullptr)
                Errors::throwUnknownDatatypeID(run.front().datatypeID);
            for (; numberOfValid < run.size(); ++numberOfValid)
                getInspector(run[numberOfValid].datatypeID).checkBinaryValue(run[numberOfValid]);
        }
        catch (...) {
            error = std::current_exception();
        }
        if (numberOfValid != 0) {
            ThreadSlots::ensureSlot();
            operation(*batches, first, run.first(numberOfValid));
        }
        if (error)
            std::rethrow_exception(error);
    });
}

void Dictionary::doResolve(DictionaryUsageContext* context, std::span<const ResourceValue> values, uint64_t* resourceIDs) {
    forEachValidRun(values, [=](DictionaryDatatypeBatches& batches, size_t first, std::span<const ResourceValue> run) {
        batches.resolveResources(context, run, resourceIDs + first);
    });
}

void Dictionary::tryResolve(std::span<const ResourceValue> values, uint64_t* resourceIDs, const Snapshot& snapshot) const {
    forEachValidRun(values, [&snapshot, resourceIDs](const DictionaryDatatypeBatches& batches, size_t first, std::span<const ResourceValue> run) {
        batches.tryResolveResources(snapshot, run, resourceIDs + first);
    });
}

}
