#pragma once

#include "core/data-store/inspection/DictionaryDatatypeInspector.h"

#include <cstddef>
#include <span>
#include <vector>

namespace kavix {

/// The checks and statistics of the numeric family.
class NumericDatatypeInspector : public DictionaryDatatypeInspector {

public:

    NumericDatatypeInspector() noexcept = default;

    void checkBinaryValue(const ResourceValue& value) const override;

    size_t countValidBinaryValues(std::span<const ResourceValue> values) const noexcept override;

    void checkImage(InputStream& input, const ImageLimits& limits, const ProblemReport& report) const override;

    void verify(const DictionaryDatatype& dictionary, const StoreContents& contents, const ProblemReport& report)
        const override;

    std::vector<TableStatistics> getTableStatistics(
        const DictionaryDatatype& dictionary, const StoreContents& contents) const override;
};

extern const NumericDatatypeInspector s_NumericDatatypeInspector;

}
