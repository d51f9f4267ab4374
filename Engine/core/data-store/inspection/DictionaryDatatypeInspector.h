#pragma once

#include "core/data-store/dictionary/ResourceValue.h"
#include "core/data-store/inspection/ProblemReport.h"
#include "core/data-store/inspection/TableStatistics.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kavix {

class DictionaryDatatype;
class InputStream;

/// The limits that an image must observe.
struct ImageLimits {
    uint64_t m_length; // of the image, in bytes
    uint64_t m_maxResourceID; // which the image must have as well
    uint64_t m_freeBytes; // of the budget
};

/// What the dictionaries of a store share: for reading, while no thread writes.
struct StoreContents {
    bool m_use32BitResourceIDs;
    uint64_t m_nextResourceID; // the arrays have entries up to here
    const uint64_t* m_resourceData;
    const std::atomic<uint8_t>* m_resourceDatatypeIDs;
    const uint8_t* m_dataPoolBase;
    uint64_t m_dataPoolEnd;
};

/// What a family of datatypes knows about the consistency of its data: the checks that its dictionary leaves to its
/// caller, and the statistics that require a walk over everything. One object per family, found through its factory.
/// Nothing here modifies anything. The checks of binary values are thread-safe; the rest requires that no thread writes
/// to the dictionary.
class DictionaryDatatypeInspector : private Unmovable {

public:

    DictionaryDatatypeInspector() noexcept = default;

    virtual ~DictionaryDatatypeInspector();

    /// Throws unless a value is a binary form that parsing could have produced: right size, in range, normalised.
    /// @throws KavixException  describes what is wrong
    virtual void checkBinaryValue(const ResourceValue& value) const = 0;

    /// How many values, all of datatypes of this family, precede the first that checkBinaryValue() rejects.
    virtual size_t countValidBinaryValues(std::span<const ResourceValue> values) const noexcept = 0;

    /// Reports what is wrong with the structure of an image, so that loading it is safe: loading reserves, commits or
    /// reads nothing that the image does not have and the budget does not allow. Reads headers and counts and skips the
    /// rest.
    /// @throws KavixException  the stream ends early; also whatever report throws
    virtual void checkImage(InputStream& input, const ImageLimits& limits, const ProblemReport& report) const = 0;

    /// Reports everything that is wrong with a loaded dictionary: counts, every bucket, every resource of its
    /// datatypes. Safe for any content whose structure checkImage() accepted.
    virtual void verify(
        const DictionaryDatatype& dictionary, const StoreContents& contents, const ProblemReport& report) const = 0;

    /// The state of each table of a consistent dictionary, in the order of the datatype IDs.
    virtual std::vector<TableStatistics> getTableStatistics(
        const DictionaryDatatype& dictionary, const StoreContents& contents) const = 0;
};

}
