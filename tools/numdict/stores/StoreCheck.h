#pragma once

#include "core/data-store/inspection/DictionaryDatatypeInspector.h"
#include "core/data-store/repair/DamagedStore.h"
#include "numdict/stores/MappedFile.h"

#include <cstdint>

namespace kavix::numdict {

/// Reports everything that is wrong with a store: header and checksums, the structure of the tables, and every bucket
/// and every resource. Content is checked even where checksums are wrong. Where the tables cannot be loaded, it is each
/// resource that cannot be relied upon that is reported.
/// @param useHugePages  as in Dictionary::Options
/// @throws KavixException  the memory budget does not hold the store
void checkStore(
    const MappedFile& file, const DamagedStore& store, uint64_t memoryBudgetBytes, bool useHugePages,
    const ProblemReport& report);

}
