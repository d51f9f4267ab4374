#pragma once

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/platform/collections/TableImageFormat.h"

#include <cstdint>
#include <string_view>

namespace kavix {

/// The image of a saved numeric dictionary. All numbers are in the byte order of the machine, nothing is padded:
///
///   offset  bytes           field
///        0  8               the length of the header, 15
///        8  15              the header, "NumericDatatype"
///       23  8               the exclusive bound of resource IDs that are taken one at a time
///       31  8               the exclusive bound of the first ID of a block: 1024 less
///       39  fourteen tables in the order of the datatype IDs, 22 to 35, each as TableImageFormat says; their buckets:
///
///   table           bytes   bucket
///   xsd:decimal     8       the offset of the record in the data pool (64 bits)
///   integers        16      the resource ID (in the width of the dictionary, padded to 8 bytes with zeros), then the
///                           value (signed 64 bits)
///
/// The first number of a bucket determines its state: 0 is empty, all bits set busy (never saved), all but the lowest
/// deleted; the bits are those of the width in which the number is stored. The image does not contain the width of
/// resource IDs; the container of the image does. Records of decimals: see DecimalRecord.
namespace NumericImageFormat {

inline constexpr std::string_view HEADER = "NumericDatatype";

inline constexpr uint64_t BOUNDS_OFFSET = sizeof(uint64_t) + HEADER.size();
inline constexpr uint64_t TABLES_OFFSET = BOUNDS_OFFSET + 2 * sizeof(uint64_t);

static_assert(BOUNDS_OFFSET == 23 && TABLES_OFFSET == 39);

inline constexpr uint64_t DECIMAL_BUCKET_SIZE = 8;
inline constexpr uint64_t INTEGER_BUCKET_SIZE = 16;

/// The offset of the value in the bucket of an integer table.
inline constexpr uint64_t INTEGER_VALUE_OFFSET = 8;

/// More buckets than any table has; below this bound, sizes in bytes do not overflow.
inline constexpr uint64_t MAX_NUMBER_OF_BUCKETS = uint64_t(1) << 40;

/// The size of a bucket in the table of a numeric datatype (22 to 35), in bytes.
constexpr uint64_t getBucketSize(uint8_t datatypeID) noexcept {
    return datatypeID == D_XSD_DECIMAL ? DECIMAL_BUCKET_SIZE : INTEGER_BUCKET_SIZE;
}

}

}
