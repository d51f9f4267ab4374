#pragma once

#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/data-store/dictionary/NumericImageFormat.h"
#include "core/platform/collections/ParallelHashTableImpl.h"
#include "core/platform/errors/ErrorCatalogue.h"

#include <cstdint>
#include <string_view>

// The image of the numeric dictionary: see NumericImageFormat.

namespace kavix {

static_assert(NumericImageFormat::DECIMAL_BUCKET_SIZE == sizeof(NumericDatatype<unsigned int>::DecimalPolicy::Bucket));
static_assert(NumericImageFormat::INTEGER_BUCKET_SIZE == sizeof(NumericDatatype<unsigned int>::IntegerPolicy::Bucket));
static_assert(NumericImageFormat::INTEGER_BUCKET_SIZE == sizeof(NumericDatatype<unsigned long>::IntegerPolicy::Bucket));
static_assert(
    NumericImageFormat::INTEGER_VALUE_OFFSET ==
    offsetof(NumericDatatype<unsigned int>::IntegerPolicy::Bucket, m_value));

template<typename ResourceID>
void NumericDatatype<ResourceID>::save(OutputStream& output) const {
    const uint64_t headerLength = NumericImageFormat::HEADER.size();
    output.write(&headerLength, sizeof(headerLength));
    output.write(NumericImageFormat::HEADER.data(), headerLength);
    output.write(&m_maxResourceID, sizeof(m_maxResourceID));
    output.write(&m_maxResourceIDForBlocks, sizeof(m_maxResourceIDForBlocks));
    m_decimalTable.save(output);
    for (const std::unique_ptr<IntegerTable>& table : m_integerTables)
        table->save(output);
}

template<typename ResourceID>
void NumericDatatype<ResourceID>::load(InputStream& input) {
    uint64_t headerLength;
    readExactly(input, &headerLength, sizeof(headerLength));
    if (headerLength != NumericImageFormat::HEADER.size())
        Errors::throwCannotLoadNumericDatatype();
    char header[NumericImageFormat::HEADER.size()];
    readExactly(input, header, sizeof(header));
    if (NumericImageFormat::HEADER != std::string_view(header, sizeof(header)))
        Errors::throwCannotLoadNumericDatatype();
    readExactly(input, &m_maxResourceID, sizeof(m_maxResourceID));
    readExactly(input, &m_maxResourceIDForBlocks, sizeof(m_maxResourceIDForBlocks));
    m_decimalTable.load(input);
    for (const std::unique_ptr<IntegerTable>& table : m_integerTables)
        table->load(input);
}

}
