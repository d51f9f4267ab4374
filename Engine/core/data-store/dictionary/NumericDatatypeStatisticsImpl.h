#pragma once

#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DatatypeNames.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/platform/collections/ParallelHashTableImpl.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

// The statistics tree of the numeric dictionary.

namespace kavix {

template<typename ResourceID>
std::unique_ptr<ComponentInfo> NumericDatatype<ResourceID>::getComponentInfo() const {
    auto root = std::make_unique<ComponentInfo>("NumericDatatype");
    uint64_t aggregateSize = 0;
    const auto addTable = [&root, &aggregateSize](const auto& table, const std::string& datatypeIRI) {
        auto child = std::make_unique<ComponentInfo>(getDatatypeName(datatypeIRI));
        const uint64_t size = table.getCommittedBytes();
        const uint64_t numberOfBuckets = table.getNumberOfBuckets();
        const uint64_t numberOfUsedBuckets = table.getNumberOfUsedBuckets();
        child->addNumericProperty("Size", size, 0);
        child->addNumericProperty("Total number of buckets", numberOfBuckets, 0);
        child->addNumericProperty("Number of used buckets", numberOfUsedBuckets, 0);
        if (numberOfBuckets != 0)
            child->addDoubleProperty(
                "Load factor (%)",
                static_cast<double>(numberOfUsedBuckets) * 100.0 / static_cast<double>(numberOfBuckets));
        root->getChildren().push_back(std::move(child));
        aggregateSize += size;
    };
    addTable(m_decimalTable, s_xsdDecimal);
    for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
        addTable(std::as_const(getTable(datatypeID)), getIntegerDatatypeInfo(datatypeID).datatypeIRI);
    root->addNumericProperty("Aggregate size", aggregateSize, 0);
    return root;
}

}
