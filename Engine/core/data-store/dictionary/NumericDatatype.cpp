#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/dictionary/NumericDatatypeBatchImpl.h"
#include "core/data-store/dictionary/NumericDatatypeCompactionImpl.h"
#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/dictionary/NumericDatatypeImageImpl.h"
#include "core/data-store/dictionary/NumericDatatypeImpl.h"
#include "core/data-store/dictionary/NumericDatatypeStatisticsImpl.h"
#include "core/platform/system/StaticInitialisation.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>

namespace kavix {

// One translation unit holds these, because within one they are constructed in this order and destroyed in reverse: the
// factory must not be reachable while the tables that it reads do not exist. The priority puts them before the static
// objects of other translation units.

[[gnu::init_priority(INITIALISE_FACTORIES)]] const std::string s_xsdDecimal(XSD_DECIMAL);

[[gnu::init_priority(INITIALISE_FACTORIES)]] const std::unordered_map<std::string, uint8_t> s_datatypeIRIsToIDs{
    {XSD_DECIMAL, D_XSD_DECIMAL},
    {XSD_INTEGER, D_XSD_INTEGER},
    {XSD_NON_NEGATIVE_INTEGER, D_XSD_NON_NEGATIVE_INTEGER},
    {XSD_NON_POSITIVE_INTEGER, D_XSD_NON_POSITIVE_INTEGER},
    {XSD_NEGATIVE_INTEGER, D_XSD_NEGATIVE_INTEGER},
    {XSD_POSITIVE_INTEGER, D_XSD_POSITIVE_INTEGER},
    {XSD_LONG, D_XSD_LONG},
    {XSD_INT, D_XSD_INT},
    {XSD_SHORT, D_XSD_SHORT},
    {XSD_BYTE, D_XSD_BYTE},
    {XSD_UNSIGNED_LONG, D_XSD_UNSIGNED_LONG},
    {XSD_UNSIGNED_INT, D_XSD_UNSIGNED_INT},
    {XSD_UNSIGNED_SHORT, D_XSD_UNSIGNED_SHORT},
    {XSD_UNSIGNED_BYTE, D_XSD_UNSIGNED_BYTE},
};

[[gnu::init_priority(
    INITIALISE_FACTORIES)]] const IntegerDatatypeInfo s_integerDatatypeInfos[NUMBER_OF_INTEGER_DATATYPES] = {
    {D_XSD_INTEGER, XSD_INTEGER, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()},
    {D_XSD_NON_NEGATIVE_INTEGER, XSD_NON_NEGATIVE_INTEGER, 0, std::numeric_limits<int64_t>::max()},
    {D_XSD_NON_POSITIVE_INTEGER, XSD_NON_POSITIVE_INTEGER, std::numeric_limits<int64_t>::min(), 0},
    {D_XSD_NEGATIVE_INTEGER, XSD_NEGATIVE_INTEGER, std::numeric_limits<int64_t>::min(), -1},
    {D_XSD_POSITIVE_INTEGER, XSD_POSITIVE_INTEGER, 1, std::numeric_limits<int64_t>::max()},
    {D_XSD_LONG, XSD_LONG, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()},
    {D_XSD_INT, XSD_INT, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()},
    {D_XSD_SHORT, XSD_SHORT, std::numeric_limits<int16_t>::min(), std::numeric_limits<int16_t>::max()},
    {D_XSD_BYTE, XSD_BYTE, std::numeric_limits<int8_t>::min(), std::numeric_limits<int8_t>::max()},
    {D_XSD_UNSIGNED_LONG, XSD_UNSIGNED_LONG, 0, std::numeric_limits<int64_t>::max()},
    {D_XSD_UNSIGNED_INT, XSD_UNSIGNED_INT, 0, std::numeric_limits<uint32_t>::max()},
    {D_XSD_UNSIGNED_SHORT, XSD_UNSIGNED_SHORT, 0, std::numeric_limits<uint16_t>::max()},
    {D_XSD_UNSIGNED_BYTE, XSD_UNSIGNED_BYTE, 0, std::numeric_limits<uint8_t>::max()},
};

[[gnu::init_priority(INITIALISE_FACTORIES)]] const NumericDatatypeFactory s_NumericDatatypeFactory;

// Defined here, because linking the factory requires the dictionaries. Their alignment to a pair of cache lines comes
// from the slots of their tables; the aligned forms of new and delete follow from it.
std::unique_ptr<DictionaryDatatype> NumericDatatypeFactory::createDictionaryDatatype(
    bool use32BitResourceIDs, MemoryManager& memoryManager, std::atomic<uint64_t>& nextResourceID,
    MemoryRegion<uint64_t>& resourceData, MemoryRegion<std::atomic<uint8_t>>& resourceDatatypeIDs,
    DataPool& dataPool) const {
    static_assert(alignof(NumericDatatype<unsigned int>) >= 64 && alignof(NumericDatatype<unsigned long>) >= 64);
    if (use32BitResourceIDs)
        return std::make_unique<NumericDatatype<unsigned int>>(
            memoryManager, nextResourceID, resourceData, resourceDatatypeIDs, dataPool);
    return std::make_unique<NumericDatatype<unsigned long>>(
        memoryManager, nextResourceID, resourceData, resourceDatatypeIDs, dataPool);
}

template class NumericDatatype<unsigned int>;
template class NumericDatatype<unsigned long>;

}
