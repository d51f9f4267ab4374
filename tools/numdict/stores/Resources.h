#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"

#include <cstdint>

namespace kavix::numdict {

/// How many resources a dictionary has.
uint64_t countResources(const Dictionary& dictionary);

/// One past the highest resource ID that was ever given out.
uint64_t getEndOfResourceIDs(const Dictionary& dictionary);

/// Calls function(resourceID, value) for each resource, by ascending ID.
template<typename Function>
void forEachResource(const Dictionary& dictionary, const Function& function) {
    const uint64_t end = getEndOfResourceIDs(dictionary);
    for (uint64_t resourceID = 1; resourceID < end; ++resourceID)
        if (dictionary.tryGetResourceDatatypeID(resourceID) != D_NONE)
            function(resourceID, dictionary.getValue(resourceID));
}

}
