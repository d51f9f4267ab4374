#include "numdict/stores/StoreStatistics.h"

#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DecimalRecord.h"
#include "core/platform/system/HugePages.h"
#include "numdict/console/JSON.h"
#include "numdict/console/Sizes.h"
#include "numdict/console/TextTable.h"
#include "numdict/stores/Resources.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <variant>
#include <vector>

namespace kavix::numdict {

namespace {

double divide(uint64_t dividend, uint64_t divisor) {
    return divisor == 0 ? 0 : static_cast<double>(dividend) / static_cast<double>(divisor);
}

/// How many numbers are there more than once. A number is once in a datatype, so it has as many datatypes.
uint64_t countRepeated(std::vector<int64_t>& numbers) {
    std::sort(numbers.begin(), numbers.end());
    uint64_t count = 0;
    for (size_t index = 1; index < numbers.size(); ++index)
        if (numbers[index] == numbers[index - 1] && (index == 1 || numbers[index] != numbers[index - 2]))
            ++count;
    return count;
}

std::string formatNumber(const std::optional<XSDDecimal>& number) {
    return number ? number->toString(false) : std::string("-");
}

JSON toJSON(const std::optional<XSDDecimal>& number) {
    return number ? JSON(number->toString(false)) : JSON();
}

JSON toJSON(const ComponentInfo& component) {
    JSON object;
    object["name"] = component.getName();
    for (const ComponentInfo::Property& property : component.getProperties())
        std::visit([&](auto value) { object["properties"][property.m_name] = value; }, property.m_value);
    for (const std::unique_ptr<ComponentInfo>& child : component.getChildren())
        object["children"].push_back(toJSON(*child));
    return object;
}

/// Numbers with separators are for people; programs get the digits.
std::string formatCountFor(bool isForPeople, uint64_t count) {
    return isForPeople ? formatCount(count) : std::to_string(count);
}

std::string formatBytesFor(bool isForPeople, uint64_t numberOfBytes) {
    return isForPeople ? formatSize(numberOfBytes) : std::to_string(numberOfBytes);
}

std::string formatFractionDigits(const StoreStatistics& statistics, bool isForPeople) {
    constexpr uint64_t BAR_LENGTH = 40;
    const auto& counts = statistics.m_fractionDigits;
    const uint64_t largest = *std::max_element(counts.begin(), counts.end());
    if (largest == 0)
        return "";
    size_t end = counts.size();
    while (counts[end - 1] == 0)
        --end;
    std::string text = isForPeople ? "\nFraction digits of decimals\n" : "\nfraction digits\tvalues\n";
    for (size_t digits = 0; digits < end; ++digits)
        if (isForPeople) {
            // Every count that is not zero has a bar.
            const auto length =
                static_cast<size_t>(divide(counts[digits], largest) * BAR_LENGTH + (counts[digits] == 0 ? 0 : 0.999));
            text += fmt::format(
                "  {:>2}  {:<{}}  {}\n", digits, std::string(std::min<size_t>(length, BAR_LENGTH), '#'), BAR_LENGTH,
                formatCount(counts[digits]));
        }
        else
            text += fmt::format("{}\t{}\n", digits, counts[digits]);
    return text;
}

}

double DatatypeStatistics::getLoad() const noexcept {
    return divide(
        m_table.m_liveBuckets + m_table.m_deletedBuckets + m_table.m_reservedBuckets, m_table.m_numberOfBuckets);
}

double DatatypeStatistics::getMeanProbeLength() const noexcept {
    return divide(m_table.m_totalProbeLength, m_table.m_liveBuckets);
}

double DatatypeStatistics::getBytesPerValue() const noexcept {
    return divide(m_bytes, m_table.m_liveBuckets);
}

StoreStatistics collectStatistics(const Dictionary& dictionary) {
    StoreStatistics statistics;
    const uint64_t recordSize = DecimalRecord(dictionary.getResourceIDWidth()).getSize();
    for (const TableStatistics& table : dictionary.getTableStatistics()) {
        DatatypeStatistics& datatype = statistics.m_datatypes[table.m_datatypeID];
        datatype.m_table = table;
        const uint64_t bytesPerResource =
            sizeof(uint64_t) + sizeof(uint8_t) + (table.m_datatypeID == D_XSD_DECIMAL ? recordSize : 0);
        datatype.m_bytes = table.m_committedBytes + table.m_liveBuckets * bytesPerResource;
    }
    std::vector<int64_t> integralValues;
    forEachResource(dictionary, [&](uint64_t, const ResourceValue& value) {
        const bool isDecimal = value.datatypeID == D_XSD_DECIMAL;
        const XSDDecimal number =
            isDecimal ? value.getBinaryValue<XSDDecimal>() : XSDDecimal(value.getBinaryValue<int64_t>());
        DatatypeStatistics& datatype = statistics.m_datatypes[value.datatypeID];
        if (!datatype.m_minimum || number < *datatype.m_minimum)
            datatype.m_minimum = number;
        if (!datatype.m_maximum || number > *datatype.m_maximum)
            datatype.m_maximum = number;
        if (isDecimal)
            ++statistics.m_fractionDigits[number.getFractionDigits()];
        if (number.isInteger())
            integralValues.push_back(number.getUnscaledValue());
        ++statistics.m_values;
    });
    statistics.m_sharedNumbers = countRepeated(integralValues);
    statistics.m_usedBytes = dictionary.getUsedBytes();
    statistics.m_hugePageBytes = tryGetHugePageBytes();
    return statistics;
}

std::string formatStatistics(const StoreStatistics& statistics, bool isForPeople) {
    TextTable table;
    table.addRow(
        {"datatype", "live", "deleted", "reserved", "buckets", "load", "memory", "mean probe", "largest", "bytes/value",
         "minimum", "maximum"});
    TableStatistics total{};
    const auto count = [isForPeople](uint64_t value) { return formatCountFor(isForPeople, value); };
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS) {
        const DatatypeStatistics& datatype = statistics.m_datatypes[datatypeID];
        const TableStatistics& buckets = datatype.m_table;
        total.m_liveBuckets += buckets.m_liveBuckets;
        total.m_deletedBuckets += buckets.m_deletedBuckets;
        total.m_reservedBuckets += buckets.m_reservedBuckets;
        total.m_numberOfBuckets += buckets.m_numberOfBuckets;
        total.m_totalProbeLength += buckets.m_totalProbeLength;
        total.m_maxProbeLength = std::max(total.m_maxProbeLength, buckets.m_maxProbeLength);
        table.addRow(
            {getDatatypeName(datatypeID), count(buckets.m_liveBuckets), count(buckets.m_deletedBuckets),
             count(buckets.m_reservedBuckets), count(buckets.m_numberOfBuckets),
             fmt::format("{:.3f}", datatype.getLoad()), formatBytesFor(isForPeople, buckets.m_committedBytes),
             fmt::format("{:.2f}", datatype.getMeanProbeLength()), count(buckets.m_maxProbeLength),
             buckets.m_liveBuckets == 0 ? std::string("-") : fmt::format("{:.1f}", datatype.getBytesPerValue()),
             formatNumber(datatype.m_minimum), formatNumber(datatype.m_maximum)});
    }
    table.addRow(
        {"all", count(total.m_liveBuckets), count(total.m_deletedBuckets), count(total.m_reservedBuckets),
         count(total.m_numberOfBuckets),
         fmt::format(
             "{:.3f}",
             divide(total.m_liveBuckets + total.m_deletedBuckets + total.m_reservedBuckets, total.m_numberOfBuckets)),
         formatBytesFor(isForPeople, statistics.m_usedBytes),
         fmt::format("{:.2f}", divide(total.m_totalProbeLength, total.m_liveBuckets)), count(total.m_maxProbeLength),
         total.m_liveBuckets == 0 ? std::string("-")
                                  : fmt::format("{:.1f}", divide(statistics.m_usedBytes, total.m_liveBuckets)),
         "-", "-"});
    std::string text = isForPeople ? table.format() : table.formatWithTabs();
    text += formatFractionDigits(statistics, isForPeople);
    text += isForPeople ? fmt::format(
                              "\nNumbers that are values of more than one datatype: {}\n",
                              formatCount(statistics.m_sharedNumbers))
                        : fmt::format("\nnumbers of several datatypes\t{}\n", statistics.m_sharedNumbers);
    if (isForPeople)
        text += fmt::format(
            "Memory: {}, {}\n", formatSize(statistics.m_usedBytes), formatHugePages(statistics.m_hugePageBytes));
    else
        text += "bytes on huge pages\t" +
                (statistics.m_hugePageBytes ? std::to_string(*statistics.m_hugePageBytes) : std::string("-")) + '\n';
    return text;
}

std::string formatStatisticsAsJSON(
    const StoreStatistics& statistics, const Dictionary& dictionary, const std::string& path) {
    JSON object;
    object["store"] = path;
    object["idWidth"] = static_cast<unsigned>(dictionary.getResourceIDWidth());
    object["values"] = statistics.m_values;
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS) {
        const DatatypeStatistics& datatype = statistics.m_datatypes[datatypeID];
        JSON& item = object["datatypes"][getDatatypeName(datatypeID)];
        item["live"] = datatype.m_table.m_liveBuckets;
        item["deleted"] = datatype.m_table.m_deletedBuckets;
        item["reserved"] = datatype.m_table.m_reservedBuckets;
        item["buckets"] = datatype.m_table.m_numberOfBuckets;
        item["load"] = datatype.getLoad();
        item["committedBytes"] = datatype.m_table.m_committedBytes;
        item["meanProbeLength"] = datatype.getMeanProbeLength();
        item["maxProbeLength"] = datatype.m_table.m_maxProbeLength;
        item["bytesPerValue"] = datatype.getBytesPerValue();
        item["minimum"] = toJSON(datatype.m_minimum);
        item["maximum"] = toJSON(datatype.m_maximum);
    }
    object["fractionDigits"] = statistics.m_fractionDigits;
    object["sharedNumbers"] = statistics.m_sharedNumbers;
    object["memory"]["budget"] = dictionary.getMemoryBudgetBytes();
    object["memory"]["used"] = statistics.m_usedBytes;
    object["memory"]["onHugePages"] = numdict::toJSON(statistics.m_hugePageBytes);
    object["components"] = toJSON(*dictionary.getComponentInfo());
    return formatJSON(object);
}

}
