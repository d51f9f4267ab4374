#include "core/data-store/inspection/NumericDatatypeInspector.h"

#include "core/data-store/dictionary/DatatypeNames.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/data-store/dictionary/NumericImageFormat.h"
#include "core/data-store/inspection/NumericDatatypeVerifier.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/collections/LinearProbing.h"
#include "core/platform/collections/ParallelHashTableImpl.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/stream/InputStream.h"
#include "core/platform/system/StaticInitialisation.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kavix {

namespace {

enum class BinaryValueStatus { VALID, NO_DATA, WRONG_SIZE, NOT_NORMALISED, OUT_OF_RANGE };

constexpr uint64_t getBinarySize(uint8_t datatypeID) noexcept {
    return datatypeID == D_XSD_DECIMAL ? sizeof(XSDDecimal) : sizeof(int64_t);
}

BinaryValueStatus classifyBinaryValue(const ResourceValue& value) noexcept {
    if (value.data == nullptr) [[unlikely]]
        return BinaryValueStatus::NO_DATA;
    if (value.dataSize != getBinarySize(value.datatypeID)) [[unlikely]]
        return BinaryValueStatus::WRONG_SIZE;
    if (value.datatypeID == D_XSD_DECIMAL) {
        const XSDDecimal decimal = value.getBinaryValue<XSDDecimal>();
        return XSDDecimal::areNormalisedFields(decimal.getUnscaledValue(), decimal.getFractionDigits())
                   ? BinaryValueStatus::VALID
                   : BinaryValueStatus::NOT_NORMALISED;
    }
    const int64_t integer = value.getBinaryValue<int64_t>();
    return getIntegerDatatypeInfo(value.datatypeID).contains(integer) ? BinaryValueStatus::VALID
                                                                      : BinaryValueStatus::OUT_OF_RANGE;
}

}

[[gnu::init_priority(INITIALISE_FACTORIES)]] const NumericDatatypeInspector s_NumericDatatypeInspector;

void NumericDatatypeInspector::checkBinaryValue(const ResourceValue& value) const {
    switch (classifyBinaryValue(value)) {
    case BinaryValueStatus::VALID:
        return;
    case BinaryValueStatus::NO_DATA:
        Errors::throwInvalidBinaryValue(value.datatypeID, "it has no data");
    case BinaryValueStatus::WRONG_SIZE:
        Errors::throwInvalidBinaryValue(
            value.datatypeID, "it has " + std::to_string(value.dataSize) + " bytes instead of " +
                                  std::to_string(getBinarySize(value.datatypeID)));
    case BinaryValueStatus::NOT_NORMALISED:
        Errors::throwInvalidBinaryValue(
            value.datatypeID, "the decimal is not normalised, or has more than 19 fraction digits");
    case BinaryValueStatus::OUT_OF_RANGE:
        Errors::throwInvalidBinaryValue(
            value.datatypeID,
            "the value " + std::to_string(value.getBinaryValue<int64_t>()) + " is not in the range of the datatype");
    }
}

size_t NumericDatatypeInspector::countValidBinaryValues(std::span<const ResourceValue> values) const noexcept {
    return static_cast<size_t>(
        std::find_if(
            values.begin(), values.end(),
            [](const ResourceValue& value) { return classifyBinaryValue(value) != BinaryValueStatus::VALID; }) -
        values.begin());
}

namespace {

/// Reads an image without loading it.
class ImageChecker {

public:

    ImageChecker(InputStream& input, const ImageLimits& limits, const ProblemReport& report) :
        m_input(input),
        m_limits(limits),
        m_report(report),
        m_remainingBytes(limits.m_length),
        m_remainingBudget(limits.m_freeBytes) { }

    void check() {
        if (!checkHeader(NumericImageFormat::HEADER))
            return;
        const uint64_t maxResourceID = readNumber<uint64_t>();
        const uint64_t maxResourceIDForBlocks = readNumber<uint64_t>();
        if (maxResourceID != m_limits.m_maxResourceID ||
            maxResourceIDForBlocks != maxResourceID - DictionaryDatatype::RESOURCE_ID_BLOCK_SIZE)
            m_report(
                "the image's maximum resource IDs, " + std::to_string(maxResourceID) + " and " +
                std::to_string(maxResourceIDForBlocks) + ", do not match the store's, " +
                std::to_string(m_limits.m_maxResourceID));
        bool isTableFound = true;
        for (uint8_t datatypeID = D_XSD_DECIMAL; isTableFound && datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
            isTableFound = checkTable(datatypeID);
        if (isTableFound && m_remainingBytes != 0)
            m_report("the image is longer than its tables");
    }

private:

    void read(void* data, uint64_t numberOfBytes) {
        if (numberOfBytes > m_remainingBytes) {
            m_report("the image is shorter than its tables");
            Errors::throwPrematureEndOfFile();
        }
        readExactly(m_input, data, numberOfBytes);
        m_remainingBytes -= numberOfBytes;
    }

    template<typename T>
    T readNumber() {
        T number;
        read(&number, sizeof(number));
        return number;
    }

    bool checkHeader(std::string_view header) {
        std::string found;
        if (readNumber<uint64_t>() == header.size()) {
            found.resize(header.size());
            read(found.data(), found.size());
        }
        if (found != header)
            m_report("the image has no '" + std::string(header) + "' header where one is expected");
        return found == header;
    }

    /// What the image of a table says about its buckets.
    struct TableCounts {
        uint64_t m_numberOfBuckets;
        uint64_t m_resizeThreshold;
        uint64_t m_used;
        uint64_t m_deleted;
        uint64_t m_freeReservations;
    };

    void reportTable(uint8_t datatypeID, const std::string& problem) {
        m_report("table of " + getDatatypeName(datatypeID) + ": " + problem);
    }

    /// Returns whether the next table can be found after this one.
    bool checkTable(uint8_t datatypeID) {
        if (!checkHeader(TableImageFormat::HEADER))
            return false;
        const TableCounts counts = readCounts();
        return checkCounts(datatypeID, counts) && skipBuckets(datatypeID, counts.m_numberOfBuckets);
    }

    TableCounts readCounts() {
        TableCounts counts;
        counts.m_numberOfBuckets = readNumber<uint64_t>();
        counts.m_resizeThreshold = readNumber<uint64_t>();
        counts.m_used = readNumber<uint64_t>();
        counts.m_deleted = readNumber<uint64_t>();
        counts.m_freeReservations = 0;
        for (size_t slot = 0; slot < NUMBER_OF_THREAD_SLOTS; ++slot)
            counts.m_freeReservations += readNumber<uint32_t>();
        return counts;
    }

    /// Returns whether the number of buckets is valid.
    bool checkCounts(uint8_t datatypeID, const TableCounts& counts) {
        if (!std::has_single_bit(counts.m_numberOfBuckets) ||
            counts.m_numberOfBuckets < TableImageFormat::MINIMUM_NUMBER_OF_BUCKETS ||
            counts.m_numberOfBuckets > NumericImageFormat::MAX_NUMBER_OF_BUCKETS) {
            reportTable(datatypeID, "invalid number of buckets, " + std::to_string(counts.m_numberOfBuckets));
            return false;
        }
        if (counts.m_resizeThreshold != TableImageFormat::getResizeThreshold(counts.m_numberOfBuckets))
            reportTable(
                datatypeID, "the resize threshold " + std::to_string(counts.m_resizeThreshold) + " does not match " +
                                std::to_string(counts.m_numberOfBuckets) + " buckets");
        // More reserved buckets than the threshold allows would let threads fill the table until no search in it ends.
        if (counts.m_used > counts.m_resizeThreshold || counts.m_deleted > counts.m_used ||
            counts.m_freeReservations > counts.m_used - counts.m_deleted)
            reportTable(
                datatypeID, "inconsistent counts of used (" + std::to_string(counts.m_used) + "), deleted (" +
                                std::to_string(counts.m_deleted) + ") and reserved buckets (" +
                                std::to_string(counts.m_freeReservations) + ")");
        return true;
    }

    /// Skips the buckets of a table; returns false, and reports why, if the image does not have them.
    /// @throws KavixException  the budget is too small
    bool skipBuckets(uint8_t datatypeID, uint64_t numberOfBuckets) {
        const uint64_t maximumNumberOfItems = readNumber<uint64_t>();
        const uint64_t end = maximumNumberOfItems == 0 ? 0 : readNumber<uint64_t>();
        if (maximumNumberOfItems > NumericImageFormat::MAX_NUMBER_OF_BUCKETS || end > maximumNumberOfItems ||
            end < numberOfBuckets) {
            reportTable(
                datatypeID, "a region of " + std::to_string(end) + " of at most " +
                                std::to_string(maximumNumberOfItems) + " buckets cannot hold " +
                                std::to_string(numberOfBuckets) + " buckets");
            return false;
        }
        const uint64_t size = end * NumericImageFormat::getBucketSize(datatypeID);
        if (size > m_remainingBytes) {
            reportTable(datatypeID, "its buckets take more bytes than the image has");
            return false;
        }
        if (size > m_remainingBudget)
            Errors::throwOutOfMemory(m_limits.m_freeBytes, m_remainingBudget, size);
        m_remainingBudget -= size;
        m_remainingBytes -= size;
        m_input.skip(size);
        return true;
    }

    InputStream& m_input;
    const ImageLimits& m_limits;
    const ProblemReport& m_report;
    uint64_t m_remainingBytes;
    uint64_t m_remainingBudget;
};

template<typename Policy>
TableStatistics collectStatistics(const ParallelHashTable<Policy>& table, const Policy& policy, uint8_t datatypeID) {
    using Table = ParallelHashTable<Policy>;
    TableStatistics statistics{};
    statistics.m_datatypeID = datatypeID;
    statistics.m_numberOfBuckets = table.getNumberOfBuckets();
    statistics.m_deletedBuckets = table.getDeletedCount();
    statistics.m_reservedBuckets = table.getNumberOfReservedBuckets();
    statistics.m_committedBytes = table.getCommittedBytes();
    const size_t mask = statistics.m_numberOfBuckets - 1;
    for (size_t index = 0; index < statistics.m_numberOfBuckets; ++index) {
        const typename Policy::Bucket& bucket = table.getBuckets()[index];
        const typename Policy::KeyWord keyWord =
            Policy::getKeyWord(bucket).load(std::memory_order_relaxed); // no thread writes
        if (keyWord == Table::EMPTY || keyWord >= Table::DELETED)
            continue;
        const uint64_t probeLength = LinearProbing::getDistance(policy.getEntryHash(bucket, keyWord), index, mask) + 1;
        ++statistics.m_liveBuckets;
        statistics.m_totalProbeLength += probeLength;
        statistics.m_maxProbeLength = std::max(statistics.m_maxProbeLength, probeLength);
    }
    return statistics;
}

template<typename ResourceID>
std::vector<TableStatistics> collectStatistics(const NumericDatatype<ResourceID>& dictionary) {
    std::vector<TableStatistics> statistics;
    statistics.push_back(
        collectStatistics(dictionary.getDecimalTable(), dictionary.getDecimalTable().getPolicy(), D_XSD_DECIMAL));
    for (uint8_t datatypeID = D_XSD_INTEGER; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID)
        statistics.push_back(collectStatistics(
            dictionary.getIntegerTable(datatypeID), dictionary.getIntegerTable(datatypeID).getPolicy(), datatypeID));
    return statistics;
}

}

void NumericDatatypeInspector::checkImage(
    InputStream& input, const ImageLimits& limits, const ProblemReport& report) const {
    ImageChecker(input, limits, report).check();
}

void NumericDatatypeInspector::verify(
    const DictionaryDatatype& dictionary, const StoreContents& contents, const ProblemReport& report) const {
    if (contents.m_use32BitResourceIDs)
        NumericDatatypeVerifier<unsigned int>(
            static_cast<const NumericDatatype<unsigned int>&>(dictionary), contents, report)
            .verify();
    else
        NumericDatatypeVerifier<unsigned long>(
            static_cast<const NumericDatatype<unsigned long>&>(dictionary), contents, report)
            .verify();
}

std::vector<TableStatistics> NumericDatatypeInspector::getTableStatistics(
    const DictionaryDatatype& dictionary, const StoreContents& contents) const {
    if (contents.m_use32BitResourceIDs)
        return collectStatistics(static_cast<const NumericDatatype<unsigned int>&>(dictionary));
    return collectStatistics(static_cast<const NumericDatatype<unsigned long>&>(dictionary));
}

}
