#include "core/data-store/repair/StoreRepair.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeNames.h"
#include "core/data-store/dictionary/IntegerDatatypeInfo.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "core/data-store/dictionary/NumericImageFormat.h"
#include "core/data-store/embedding/Restoration.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "core/platform/collections/LinearProbing.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/errors/SystemCallException.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace kavix {

namespace {

template<typename T>
T readNumber(const uint8_t* bytes) {
    T number;
    std::memcpy(&number, bytes, sizeof(number));
    return number;
}

// The hashes do not depend on the width.
using IntegerPolicy = NumericDatatype<unsigned int>::IntegerPolicy;
using DecimalPolicy = NumericDatatype<unsigned int>::DecimalPolicy;

}

StoreRepair::StoreRepair(const DamagedStore& store, bool includeUnverified) :
    m_store(store),
    m_includeUnverified(includeUnverified),
    m_areArraysIntact(
        store.getSection(DamagedStore::DATATYPE_IDS).m_isIntact &&
        store.getSection(DamagedStore::RESOURCE_DATA).m_isIntact),
    m_isPoolIntact(store.getSection(DamagedStore::DATA_POOL).m_isIntact),
    m_record(store.getResourceIDWidth()),
    m_areTablesIntact(store.getSection(DamagedStore::DICTIONARY).m_isIntact),
    m_tableDatatypeIDs(store.getNextResourceID(), D_NONE),
    m_tableData(store.getNextResourceID(), 0),
    m_isReachable(store.getNextResourceID(), false),
    m_isContradicted(store.getNextResourceID(), false) {
    readTables();
}

uint64_t StoreRepair::readKeyWord(const uint8_t* bucket, uint8_t datatypeID) const {
    if (datatypeID == D_XSD_DECIMAL || m_store.getResourceIDWidth() == ResourceIDWidth::BITS_64)
        return readNumber<uint64_t>(bucket);
    return readNumber<uint32_t>(bucket);
}

void StoreRepair::readTables() {
    uint64_t position = NumericImageFormat::TABLES_OFFSET;
    for (uint8_t datatypeID = D_XSD_DECIMAL; datatypeID <= D_XSD_UNSIGNED_BYTE; ++datatypeID) {
        const uint64_t length = readTable(position, datatypeID);
        if (length == 0) {
            m_areTablesIntact = false; // whatever the checksum: the start of the next one is unknown too
            return;
        }
        position += length;
    }
}

uint64_t StoreRepair::readTable(uint64_t position, uint8_t datatypeID) {
    using namespace TableImageFormat;
    const uint64_t bucketSize = NumericImageFormat::getBucketSize(datatypeID);
    const DamagedStore::Section& image = m_store.getSection(DamagedStore::DICTIONARY);
    if (image.m_length < BUCKETS_OFFSET || position > image.m_length - BUCKETS_OFFSET)
        return 0;
    const uint8_t* const table = image.m_data + position;
    if (readNumber<uint64_t>(table) != HEADER.size() ||
        std::memcmp(table + sizeof(uint64_t), HEADER.data(), HEADER.size()) != 0)
        return 0;
    const uint64_t numberOfBuckets = readNumber<uint64_t>(table + NUMBER_OF_BUCKETS_OFFSET);
    const uint64_t end = readNumber<uint64_t>(table + END_OFFSET);
    if (end > (image.m_length - position - BUCKETS_OFFSET) / bucketSize)
        return 0;
    if (std::has_single_bit(numberOfBuckets) && numberOfBuckets <= end)
        readBuckets(table + BUCKETS_OFFSET, numberOfBuckets, datatypeID);
    return BUCKETS_OFFSET + end * bucketSize;
}

bool StoreRepair::tryReadBucket(
    const uint8_t* bucket, uint8_t datatypeID, uint64_t& resourceID, Claim& claim, uint64_t& hash) const {
    const uint64_t keyWord = readKeyWord(bucket, datatypeID);
    if (datatypeID == D_XSD_DECIMAL) {
        const uint8_t* const record = m_store.tryGetRecord(m_record, keyWord); // markers are not offsets
        if (record == nullptr)
            return false;
        resourceID = m_record.readResourceID(record);
        claim = Claim{datatypeID, keyWord};
        hash = DecimalPolicy::getHash(m_record.readValue(record));
    }
    else {
        resourceID = keyWord;
        const int64_t value = readNumber<int64_t>(bucket + NumericImageFormat::INTEGER_VALUE_OFFSET);
        claim = Claim{datatypeID, static_cast<uint64_t>(value)};
        hash = IntegerPolicy::getHash(value);
    }
    return resourceID != 0 && resourceID < m_store.getNextResourceID(); // markers are not below
}

void StoreRepair::readBuckets(const uint8_t* buckets, uint64_t numberOfBuckets, uint8_t datatypeID) {
    const uint64_t size = NumericImageFormat::getBucketSize(datatypeID);
    const uint64_t mask = numberOfBuckets - 1;
    const auto isEmpty = [&](uint64_t index) { return readKeyWord(buckets + index * size, datatypeID) == 0; };
    // Starting after an empty bucket, so that the distance to the last empty one is known at every bucket.
    uint64_t begin = 0;
    while (begin < numberOfBuckets && !isEmpty(begin))
        ++begin;
    const bool hasEmptyBucket = begin < numberOfBuckets;
    uint64_t distance = 0;
    for (uint64_t step = 1; step <= numberOfBuckets; ++step) {
        const uint64_t index = (begin + step) & mask;
        const uint8_t* const bucket = buckets + index * size;
        distance = isEmpty(index) ? 0 : distance + 1;
        uint64_t resourceID;
        uint64_t hash;
        Claim claim;
        if (distance == 0 || !tryReadBucket(bucket, datatypeID, resourceID, claim, hash))
            continue;
        if (m_tableDatatypeIDs[resourceID] != D_NONE) {
            m_isContradicted[resourceID] = true;
            continue;
        }
        m_tableDatatypeIDs[resourceID] = claim.m_datatypeID;
        m_tableData[resourceID] = claim.m_data;
        m_isReachable[resourceID] = hasEmptyBucket && LinearProbing::getDistance(hash, index, mask) < distance;
    }
}

StoreRepair::Claim StoreRepair::getArrayClaim(uint64_t resourceID) const {
    return Claim{
        m_store.getSection(DamagedStore::DATATYPE_IDS).m_data[resourceID],
        readNumber<uint64_t>(m_store.getSection(DamagedStore::RESOURCE_DATA).m_data + resourceID * sizeof(uint64_t))};
}

std::string StoreRepair::decode(uint64_t resourceID, const Claim& claim, ResourceValue& value) const {
    if (claim.m_datatypeID == D_XSD_DECIMAL) {
        const uint8_t* const record = m_store.tryGetRecord(m_record, claim.m_data);
        if (record == nullptr)
            return "its record at offset " + std::to_string(claim.m_data) + " is outside the data pool";
        if (m_record.readResourceID(record) != resourceID)
            return "its record belongs to resource " + std::to_string(m_record.readResourceID(record));
        const XSDDecimal decimal = m_record.readValue(record);
        if (!XSDDecimal::areNormalisedFields(decimal.getUnscaledValue(), decimal.getFractionDigits()))
            return "its decimal is not normalised, or has more than 19 fraction digits";
        value.setBinaryValue(D_XSD_DECIMAL, decimal);
        return "";
    }
    if (!isIntegerDatatype(claim.m_datatypeID))
        return "unknown datatype";
    const int64_t integer = static_cast<int64_t>(claim.m_data);
    if (!getIntegerDatatypeInfo(claim.m_datatypeID).contains(integer))
        return "its value " + std::to_string(integer) + " is not in the range of the datatype";
    value.setBinaryValue(claim.m_datatypeID, integer);
    return "";
}

std::string StoreRepair::decide(uint64_t resourceID, ResourceValue& value) const {
    const Claim arrays = getArrayClaim(resourceID);
    const Claim tables{m_tableDatatypeIDs[resourceID], m_tableData[resourceID]};
    const bool isInArrays = arrays.m_datatypeID != D_NONE;
    const bool isInTables = tables.m_datatypeID != D_NONE;
    Claim chosen = arrays;
    if (!m_areArraysIntact && !(arrays == tables)) {
        if (!m_areTablesIntact)
            return !isInTables   ? "only the damaged arrays have it"
                   : !isInArrays ? "only the damaged tables have it"
                                 : "the damaged arrays and the damaged tables disagree";
        if (!isInTables)
            return "the damaged arrays have it, but the tables do not";
        if (m_isContradicted[resourceID])
            return "two buckets of the tables have it";
        chosen = tables;
    }
    else if (!isInArrays)
        return "the tables have it, but the arrays do not";
    std::string reason = decode(resourceID, chosen, value);
    if (!reason.empty() && m_areTablesIntact && isInTables && !(chosen == tables) && !m_isContradicted[resourceID] &&
        decode(resourceID, tables, value).empty()) {
        reason.clear();
        chosen = tables;
    }
    if (reason.empty() && chosen.m_datatypeID == D_XSD_DECIMAL && !m_isPoolIntact) {
        if (!m_includeUnverified)
            return "its record is in the damaged data pool and cannot be confirmed";
        if (!(chosen == tables) || !m_isReachable[resourceID])
            return "its record in the damaged data pool does not match the tables";
    }
    return reason;
}

void StoreRepair::enumerate(const ResourceConsumer& consume, const ProblemReport& reportLoss) const {
    for (uint64_t resourceID = 1; resourceID < m_store.getNextResourceID(); ++resourceID) {
        const uint8_t arrayDatatypeID = getArrayClaim(resourceID).m_datatypeID;
        const uint8_t datatypeID = arrayDatatypeID != D_NONE ? arrayDatatypeID : m_tableDatatypeIDs[resourceID];
        // If only the arrays or only the tables are intact, a resource that they lack does not exist, and what the
        // damaged ones have there is not a loss. Tables refer to the data pool for the IDs of decimals.
        if (datatypeID == D_NONE ||
            (!m_areArraysIntact && m_areTablesIntact && m_isPoolIntact && m_tableDatatypeIDs[resourceID] == D_NONE) ||
            (m_areArraysIntact && !m_areTablesIntact && arrayDatatypeID == D_NONE))
            continue;
        ResourceValue value;
        const std::string reason = decide(resourceID, value);
        if (reason.empty())
            consume(resourceID, value);
        else
            reportLoss("resource " + std::to_string(resourceID) + " of " + getDatatypeName(datatypeID) + ": " + reason);
    }
}

std::unique_ptr<Dictionary> StoreRepair::rebuild(
    uint64_t memoryBudgetBytes, bool useHugePages, const ProblemReport& reportLoss) const {
    std::vector<uint64_t> counts(256, 0);
    enumerate([&counts](uint64_t, const ResourceValue& value) { ++counts[value.datatypeID]; }, [](std::string&&) {});
    Dictionary::Options options;
    options.memoryBudgetBytes = memoryBudgetBytes;
    options.resourceIDWidth = m_store.getResourceIDWidth();
    options.maxResourceID = m_store.getMaxResourceID();
    options.useHugePages = useHugePages;
    std::unique_ptr<Dictionary> dictionary;
    try {
        dictionary = std::make_unique<Dictionary>(options);
    }
    catch (const SystemCallException&) {
        // A corrupt maximum resource ID may ask for more address space than there is; no ID needs it.
        options.maxResourceID = std::max(m_store.getNextResourceID(), Dictionary::MIN_MAX_RESOURCE_ID);
        dictionary = std::make_unique<Dictionary>(options);
    }
    Restoration restoration(*dictionary, std::move(counts));
    const auto restore = [&](uint64_t resourceID, const ResourceValue& value) {
        try {
            restoration.restore(resourceID, value);
        }
        catch (const KavixException& exception) {
            if (!comesFrom(exception, ErrorSites::CONTRADICTING_RECORD))
                throw;
            reportLoss(
                "resource " + std::to_string(resourceID) + " of " + getDatatypeName(value.datatypeID) + ": resource " +
                std::to_string(dictionary->tryResolve(value)) + " has the same value");
        }
    };
    enumerate(restore, reportLoss);
    restoration.finish();
    return dictionary;
}

}
