#pragma once

#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "numdict/literals/Datatypes.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace kavix::numdict {

/// What there is to know about the values of one datatype, and the table they are in.
struct DatatypeStatistics {
    TableStatistics m_table{};
    std::optional<XSDDecimal> m_minimum; // absent if there are no values
    std::optional<XSDDecimal> m_maximum;
    uint64_t m_bytes = 0; // of the table, the entries of the arrays, and the records

    double getLoad() const noexcept;

    double getMeanProbeLength() const noexcept;

    double getBytesPerValue() const noexcept;
};

struct StoreStatistics {
    ByDatatype<DatatypeStatistics> m_datatypes;
    std::array<uint64_t, XSDDecimal::MAX_FRACTION_DIGITS + 1> m_fractionDigits{}; // of decimals: how many have as many
    uint64_t m_values = 0;
    uint64_t m_sharedNumbers = 0; // numbers that are values of more than one datatype
    uint64_t m_usedBytes = 0; // of the budget
    std::optional<uint64_t> m_hugePageBytes; // absent if the system does not report it
};

/// Walks over all buckets and values. Takes 8 bytes for each integral value beyond the dictionary's budget.
StoreStatistics collectStatistics(const Dictionary& dictionary);

/// For people, aligned, with bars for the fraction digits; or separated by tabs.
std::string formatStatistics(const StoreStatistics& statistics, bool isForPeople);

/// One object, with the tree of components of the dictionary.
std::string formatStatisticsAsJSON(
    const StoreStatistics& statistics, const Dictionary& dictionary, const std::string& path);

}
