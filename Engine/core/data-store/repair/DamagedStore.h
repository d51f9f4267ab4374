#pragma once

#include "core/data-store/dictionary/DecimalRecord.h"
#include "core/data-store/dictionary/ResourceIDWidth.h"
#include "core/data-store/store/StoreFormat.h"
#include "core/platform/system/Unmovable.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kavix {

/// The sections of a store in any state: locates them as far as possible and reports what is wrong, where StoreReader
/// would refuse. Nothing is read outside the given bytes, whatever they are.
///
/// The sections are located by the section table or, if that is inconsistent, by the counters, since the order of the
/// sections is fixed. A section is intact if it is complete and has the checksum that the table gives; a checksum does
/// not match by accident, so this holds even if the header's own checksum is wrong. Immutable after construction. It
/// keeps pointers to the bytes, which must outlive it.
class DamagedStore : private Unmovable {

public:

    enum SectionIndex : size_t { COUNTERS, DATATYPE_IDS, RESOURCE_DATA, DATA_POOL, DICTIONARY, NUMBER_OF_SECTIONS };

    struct Section {
        const uint8_t* m_data = nullptr;
        uint64_t m_length = 0; // as much as is present
        bool m_isIntact = false;
    };

    /// Where the first section begins, in bytes.
    static constexpr uint64_t FRAME_LENGTH = StoreFormat::getFrameLength(NUMBER_OF_SECTIONS);

    static const std::array<std::string, NUMBER_OF_SECTIONS> SECTION_NAMES;

    DamagedStore(const uint8_t* data, uint64_t length);

    /// Whether the sections were found; if not, only the problems are meaningful.
    bool isReadable() const noexcept { return m_isReadable; }

    /// What is wrong with the header and the sections themselves; empty if all checksums are correct.
    const std::vector<std::string>& getProblems() const noexcept { return m_problems; }

    const Section& getSection(SectionIndex index) const noexcept { return m_sections[index]; }

    /// From the header or, if that is damaged, inferred from the records of decimals, which is usually right.
    ResourceIDWidth getResourceIDWidth() const noexcept { return m_resourceIDWidth; }

    /// The record at an offset in the data pool, or null if the offset is outside the pool.
    const uint8_t* tryGetRecord(const DecimalRecord& record, uint64_t offset) const;

    /// Every resource ID is below this: the number of entries that both arrays have.
    uint64_t getNextResourceID() const noexcept { return m_nextResourceID; }

    /// The maximum resource ID that the counters give, or the default of the width if that one is invalid.
    uint64_t getMaxResourceID() const noexcept { return m_maxResourceID; }

    /// The number of resources that the counters give.
    uint64_t getNumberOfResources() const noexcept { return m_numberOfResources; }

    /// The header, section table and counters that match the sections as they are: FRAME_LENGTH bytes and those of the
    /// counters. With these in place of its own the store passes its checksums.
    std::vector<uint8_t> makeIntactFrame() const;

private:

    bool findSections();

    bool tryFindByTable();

    bool tryFindByCounters();

    void setSections(const std::array<uint64_t, NUMBER_OF_SECTIONS>& lengths);

    void checkHeader();

    void checkSections();

    void readCounters();

    ResourceIDWidth guessResourceIDWidth() const;

    /// How many decimals have a record with their own ID if records have this width.
    uint64_t countRecords(ResourceIDWidth width) const;

    const uint8_t* const m_data;
    const uint64_t m_length;
    bool m_isReadable;
    bool m_isHeaderIntact;
    std::vector<std::string> m_problems;
    StoreFormat::Header m_header;
    std::array<StoreFormat::Section, NUMBER_OF_SECTIONS> m_table;
    uint64_t m_headerChecksum;
    std::array<Section, NUMBER_OF_SECTIONS> m_sections;
    std::array<uint64_t, NUMBER_OF_SECTIONS> m_lengths; // the expected ones
    StoreFormat::Counters m_counters;
    ResourceIDWidth m_resourceIDWidth;
    uint64_t m_nextResourceID;
    uint64_t m_maxResourceID;
    uint64_t m_numberOfResources;
};

}
