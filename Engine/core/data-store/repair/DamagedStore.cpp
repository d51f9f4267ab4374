#include "core/data-store/repair/DamagedStore.h"

#include "core/data-store/dictionary/DataPool.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DecimalRecord.h"
#include "core/data-store/dictionary/NumericImageFormat.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/store/Checksum.h"
#include "core/platform/system/StaticInitialisation.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace kavix {

namespace {

/// Whether bytes begin as the image of the numeric family does.
bool isImage(const uint8_t* data, uint64_t length) {
    constexpr std::string_view HEADER = NumericImageFormat::HEADER;
    uint64_t headerLength;
    if (length < sizeof(headerLength) + HEADER.size())
        return false;
    std::memcpy(&headerLength, data, sizeof(headerLength));
    return headerLength == HEADER.size() && std::memcmp(data + sizeof(headerLength), HEADER.data(), HEADER.size()) == 0;
}

}

[[gnu::init_priority(INITIALISE_TABLES)]] const std::array<std::string, DamagedStore::NUMBER_OF_SECTIONS>
    DamagedStore::SECTION_NAMES{
        StoreFormat::COUNTERS, StoreFormat::DATATYPE_IDS, StoreFormat::RESOURCE_DATA, StoreFormat::DATA_POOL,
        StoreFormat::DICTIONARY_PREFIX + std::to_string(D_XSD_DECIMAL)};

DamagedStore::DamagedStore(const uint8_t* data, uint64_t length) :
    m_data(data),
    m_length(length),
    m_isReadable(false),
    m_isHeaderIntact(false),
    m_header(),
    m_table(),
    m_headerChecksum(0),
    m_lengths(),
    m_counters(),
    m_resourceIDWidth(ResourceIDWidth::BITS_32),
    m_nextResourceID(0),
    m_maxResourceID(0),
    m_numberOfResources(0) {
    if (m_length < FRAME_LENGTH + sizeof(StoreFormat::Counters)) {
        m_problems.push_back("header: the file ends inside the header: it is truncated or not a Kavix store");
        return;
    }
    std::memcpy(&m_header, m_data, sizeof(m_header));
    std::memcpy(m_table.data(), m_data + sizeof(m_header), sizeof(m_table));
    std::memcpy(&m_headerChecksum, m_data + FRAME_LENGTH - sizeof(m_headerChecksum), sizeof(m_headerChecksum));
    m_isReadable = findSections();
    if (m_isReadable) {
        readCounters();
        checkHeader();
        checkSections();
    }
}

bool DamagedStore::findSections() {
    const bool isMagic = std::memcmp(m_header.m_magic, StoreFormat::MAGIC, sizeof(m_header.m_magic)) == 0;
    // With a correct checksum these are not damage: the store has another format, and what is known here does not
    // apply.
    if (isMagic && m_header.m_byteOrderMark == __builtin_bswap32(StoreFormat::BYTE_ORDER_MARK)) {
        m_problems.push_back("header: written on a machine with a different byte order");
        return false;
    }
    if (isMagic && getChecksum(m_data, FRAME_LENGTH - sizeof(m_headerChecksum)) == m_headerChecksum &&
        m_header.m_formatVersion != StoreFormat::FORMAT_VERSION) {
        m_problems.push_back(
            "header: format version " + std::to_string(m_header.m_formatVersion) +
            " is not supported (this program reads version " + std::to_string(StoreFormat::FORMAT_VERSION) + ")");
        return false;
    }
    if (tryFindByTable() || tryFindByCounters())
        return true;
    m_problems.push_back(
        isMagic ? "header: the sections cannot be found: both the section table and the counters are wrong"
                : "header: not a Kavix store");
    return false;
}

bool DamagedStore::tryFindByTable() {
    uint64_t end = FRAME_LENGTH;
    std::array<uint64_t, NUMBER_OF_SECTIONS> lengths;
    for (size_t index = 0; index < NUMBER_OF_SECTIONS; ++index) {
        lengths[index] = m_table[index].m_length;
        if (m_table[index].m_offset != end || lengths[index] > UINT64_MAX - end)
            return false;
        end += lengths[index];
    }
    if (lengths[COUNTERS] != sizeof(StoreFormat::Counters) || lengths[DATATYPE_IDS] == 0 ||
        lengths[RESOURCE_DATA] % sizeof(uint64_t) != 0 ||
        lengths[RESOURCE_DATA] / sizeof(uint64_t) != lengths[DATATYPE_IDS])
        return false;
    setSections(lengths);
    return true;
}

bool DamagedStore::tryFindByCounters() {
    StoreFormat::Counters counters;
    std::memcpy(&counters, m_data + FRAME_LENGTH, sizeof(counters));
    const uint64_t available = m_length - FRAME_LENGTH - sizeof(counters);
    if (counters.m_nextResourceID == 0 || counters.m_nextResourceID > available / (1 + sizeof(uint64_t)) ||
        counters.m_dataPoolEnd < DataPool::FIRST_OFFSET)
        return false;
    const uint64_t arraysLength = counters.m_nextResourceID * (1 + sizeof(uint64_t));
    const uint64_t poolLength = counters.m_dataPoolEnd - DataPool::FIRST_OFFSET;
    if (poolLength > available - arraysLength)
        return false;
    const uint64_t imageLength = available - arraysLength - poolLength;
    if (!isImage(m_data + m_length - imageLength, imageLength))
        return false;
    setSections(
        {sizeof(counters), counters.m_nextResourceID, counters.m_nextResourceID * sizeof(uint64_t), poolLength,
         imageLength});
    m_problems.push_back("header: the section table is wrong; the sections were found using the counters");
    return true;
}

void DamagedStore::setSections(const std::array<uint64_t, NUMBER_OF_SECTIONS>& lengths) {
    m_lengths = lengths;
    uint64_t position = FRAME_LENGTH;
    for (size_t index = 0; index < NUMBER_OF_SECTIONS; ++index) {
        Section& section = m_sections[index];
        const uint64_t begin = std::min(position, m_length);
        section.m_data = m_data + begin;
        section.m_length = std::min(lengths[index], m_length - begin);
        section.m_isIntact = section.m_length == lengths[index] &&
                             getChecksum(section.m_data, section.m_length) == m_table[index].m_checksum;
        position += lengths[index];
    }
    m_nextResourceID =
        std::min(m_sections[DATATYPE_IDS].m_length, m_sections[RESOURCE_DATA].m_length / sizeof(uint64_t));
}

void DamagedStore::readCounters() {
    std::memcpy(&m_counters, m_sections[COUNTERS].m_data, sizeof(m_counters));
    m_isHeaderIntact = getChecksum(m_data, FRAME_LENGTH - sizeof(m_headerChecksum)) == m_headerChecksum;
    const bool isPossibleWidth = m_header.m_resourceIDWidth == 32 || m_header.m_resourceIDWidth == 64;
    m_resourceIDWidth = m_isHeaderIntact && isPossibleWidth ? static_cast<ResourceIDWidth>(m_header.m_resourceIDWidth)
                                                            : guessResourceIDWidth();
    const bool isNarrow = m_resourceIDWidth == ResourceIDWidth::BITS_32;
    const uint64_t maximum = isNarrow ? Dictionary::MAX_RESOURCE_ID_32 : Dictionary::MAX_RESOURCE_ID_64;
    const bool isPossible = m_counters.m_maxResourceID >= std::max(Dictionary::MIN_MAX_RESOURCE_ID, m_nextResourceID) &&
                            m_counters.m_maxResourceID <= maximum;
    m_maxResourceID = isPossible ? m_counters.m_maxResourceID
                      : isNarrow ? maximum
                                 : std::max(Dictionary::DEFAULT_MAX_RESOURCE_ID_64, m_nextResourceID);
    m_numberOfResources = m_counters.m_numberOfResources;
}

ResourceIDWidth DamagedStore::guessResourceIDWidth() const {
    // The layout of decimal records depends on the width; a record begins with the ID of its resource. A wide record
    // also looks like a narrow one of the same ID; a narrow one looks wide only if the low half of its value is zero.
    const uint64_t narrowRecords = countRecords(ResourceIDWidth::BITS_32);
    const uint64_t wideRecords = countRecords(ResourceIDWidth::BITS_64);
    if (narrowRecords > wideRecords)
        return ResourceIDWidth::BITS_32;
    if (wideRecords != 0 || m_header.m_resourceIDWidth == 64)
        return ResourceIDWidth::BITS_64;
    return m_header.m_resourceIDWidth != 32 && m_counters.m_maxResourceID > Dictionary::MAX_RESOURCE_ID_32
               ? ResourceIDWidth::BITS_64
               : ResourceIDWidth::BITS_32;
}

const uint8_t* DamagedStore::tryGetRecord(const DecimalRecord& record, uint64_t offset) const {
    const Section& pool = m_sections[DATA_POOL];
    if (offset < DataPool::FIRST_OFFSET || pool.m_length < record.getSize() ||
        offset - DataPool::FIRST_OFFSET > pool.m_length - record.getSize())
        return nullptr;
    return pool.m_data + (offset - DataPool::FIRST_OFFSET);
}

uint64_t DamagedStore::countRecords(ResourceIDWidth width) const {
    const DecimalRecord record(width);
    uint64_t numberOfRecords = 0;
    for (uint64_t resourceID = 1; resourceID < m_nextResourceID; ++resourceID)
        if (m_sections[DATATYPE_IDS].m_data[resourceID] == D_XSD_DECIMAL) {
            uint64_t offset;
            std::memcpy(&offset, m_sections[RESOURCE_DATA].m_data + resourceID * sizeof(offset), sizeof(offset));
            const uint8_t* const bytes = tryGetRecord(record, offset);
            numberOfRecords += bytes != nullptr && record.readResourceID(bytes) == resourceID ? 1 : 0;
        }
    return numberOfRecords;
}

void DamagedStore::checkHeader() {
    const auto report = [this](std::string&& problem) { m_problems.push_back("header: " + problem); };
    if (std::memcmp(m_header.m_magic, StoreFormat::MAGIC, sizeof(m_header.m_magic)) != 0)
        report("wrong magic number");
    if (m_header.m_byteOrderMark != StoreFormat::BYTE_ORDER_MARK)
        report("wrong byte-order mark");
    if (m_header.m_formatVersion != StoreFormat::FORMAT_VERSION)
        report(
            "format version " + std::to_string(m_header.m_formatVersion) + " instead of " +
            std::to_string(StoreFormat::FORMAT_VERSION));
    if (m_header.m_resourceIDWidth != 32 && m_header.m_resourceIDWidth != 64)
        report(
            "unsupported resource ID width of " + std::to_string(m_header.m_resourceIDWidth) +
            " bits; it appears to be " + std::to_string(static_cast<unsigned>(m_resourceIDWidth)));
    if (m_header.m_numberOfSections != NUMBER_OF_SECTIONS)
        report(
            "it has " + std::to_string(m_header.m_numberOfSections) + " sections instead of " +
            std::to_string(NUMBER_OF_SECTIONS));
    for (size_t index = 0; index < NUMBER_OF_SECTIONS; ++index)
        if (StoreFormat::getName(m_table[index]) != SECTION_NAMES[index])
            report("wrong name of section '" + SECTION_NAMES[index] + "'");
    if (!m_isHeaderIntact)
        report("wrong checksum: the file is damaged");
}

void DamagedStore::checkSections() {
    uint64_t end = FRAME_LENGTH;
    for (size_t index = 0; index < NUMBER_OF_SECTIONS; ++index) {
        end += m_lengths[index];
        if (m_sections[index].m_length != m_lengths[index])
            m_problems.push_back(
                SECTION_NAMES[index] + ": the file ends before the end of the section: it is truncated");
        else if (!m_sections[index].m_isIntact)
            m_problems.push_back(SECTION_NAMES[index] + ": wrong checksum: the file is damaged");
    }
    if (end < m_length)
        m_problems.push_back("header: there is data after the last section");
    const auto reportCounter = [this](std::string&& problem) {
        m_problems.push_back(std::string(StoreFormat::COUNTERS) + ": " + problem);
    };
    if (m_counters.m_nextResourceID != m_lengths[DATATYPE_IDS])
        reportCounter(
            "the next resource ID, " + std::to_string(m_counters.m_nextResourceID) +
            ", does not match the arrays, which have " + std::to_string(m_lengths[DATATYPE_IDS]) + " entries");
    if (m_counters.m_dataPoolEnd < DataPool::FIRST_OFFSET ||
        m_counters.m_dataPoolEnd - DataPool::FIRST_OFFSET != m_lengths[DATA_POOL])
        reportCounter(
            "the end of the data pool, " + std::to_string(m_counters.m_dataPoolEnd) +
            ", does not match the pool, which has " + std::to_string(m_lengths[DATA_POOL]) + " bytes");
    if (m_counters.m_maxResourceID != m_maxResourceID)
        reportCounter("invalid maximum resource ID " + std::to_string(m_counters.m_maxResourceID));
}

std::vector<uint8_t> DamagedStore::makeIntactFrame() const {
    StoreFormat::Header header = StoreFormat::makeHeader(m_resourceIDWidth, NUMBER_OF_SECTIONS);
    header.m_libraryVersion = m_header.m_libraryVersion;
    header.m_pageSize = m_header.m_pageSize;
    const StoreFormat::Counters counters{
        m_lengths[DATATYPE_IDS], m_maxResourceID, DataPool::FIRST_OFFSET + m_lengths[DATA_POOL], m_numberOfResources};
    std::array<StoreFormat::Section, NUMBER_OF_SECTIONS> table{};
    uint64_t offset = FRAME_LENGTH;
    for (size_t index = 0; index < NUMBER_OF_SECTIONS; ++index) {
        StoreFormat::setName(table[index], SECTION_NAMES[index]);
        table[index].m_offset = offset;
        table[index].m_length = m_lengths[index];
        table[index].m_checksum = index == COUNTERS ? getChecksum(&counters, sizeof(counters))
                                                    : getChecksum(m_sections[index].m_data, m_sections[index].m_length);
        offset += m_lengths[index];
    }
    std::vector<uint8_t> bytes = StoreFormat::makeFrame(header, table);
    const auto* const counterBytes = reinterpret_cast<const uint8_t*>(&counters);
    bytes.insert(bytes.end(), counterBytes, counterBytes + sizeof(counters));
    return bytes;
}

}
