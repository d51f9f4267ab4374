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

/// The sections of a store in whatever state it is: finds them as far as they can be found and says what is wrong,
/// where StoreReader would refuse. Nothing is read outside the given bytes, whatever they are.
///
/// The sections are found by the table of sections or, where that makes no sense, by the counters, since the order of
/// the sections is fixed. A section is sound if it is there whole and has the checksum that the table gives; a checksum
/// does not come right by accident, so this holds even where the header's own checksum is wrong. Immutable after
/// construction. It keeps pointers to the bytes, which must live as long.
class DamagedStore : private Unmovable {

public:

    enum SectionIndex : size_t { COUNTERS, DATATYPE_IDS, RESOURCE_DATA, DATA_POOL, DICTIONARY, NUMBER_OF_SECTIONS };

    struct Section {
        const uint8_t* m_data = nullptr;
        uint64_t m_length = 0; // as much as there is
        bool m_isSound = false;
    };

    /// Where the first section begins, in bytes.
    static constexpr uint64_t FRAME_LENGTH = StoreFormat::getFrameLength(NUMBER_OF_SECTIONS);

    static const std::array<std::string, NUMBER_OF_SECTIONS> SECTION_NAMES;

    DamagedStore(const uint8_t* data, uint64_t length);

    /// Whether the sections were found; otherwise nothing but the problems means anything.
    bool isReadable() const noexcept { return m_isReadable; }

    /// What is wrong with header and sections as such; empty where all checksums are right.
    const std::vector<std::string>& getProblems() const noexcept { return m_problems; }

    const Section& getSection(SectionIndex index) const noexcept { return m_sections[index]; }

    /// From the header or, if that is damaged, from the records of decimals, which is right as a rule.
    ResourceIDWidth getResourceIDWidth() const noexcept { return m_resourceIDWidth; }

    /// The record at an offset in the data pool, or null if it is outside.
    const uint8_t* tryGetRecord(const DecimalRecord& record, uint64_t offset) const;

    /// Every resource is below: as many as both arrays have.
    uint64_t getNextResourceID() const noexcept { return m_nextResourceID; }

    /// The bound of resource IDs that the counters give, or the default of the width where that is not possible.
    uint64_t getMaxResourceID() const noexcept { return m_maxResourceID; }

    /// The number of resources that the counters give.
    uint64_t getNumberOfResources() const noexcept { return m_numberOfResources; }

    /// The bytes that header, table and counters would have to be for the sections that there are: FRAME_LENGTH and
    /// those of the counters. With them in its place the store passes its checksums.
    std::vector<uint8_t> makeSoundBeginning() const;

private:

    bool findSections();

    bool tryFindByTable();

    bool tryFindByCounters();

    void setSections(const std::array<uint64_t, NUMBER_OF_SECTIONS>& lengths);

    void checkHeader();

    void checkSections();

    void readCounters();

    ResourceIDWidth guessResourceIDWidth() const;

    /// How many decimals have a record of their own ID, if records are as wide as that.
    uint64_t countRecords(ResourceIDWidth width) const;

    const uint8_t* const m_data;
    const uint64_t m_length;
    bool m_isReadable;
    bool m_isHeaderSound;
    std::vector<std::string> m_problems;
    StoreFormat::Header m_header;
    std::array<StoreFormat::Section, NUMBER_OF_SECTIONS> m_table;
    uint64_t m_headerChecksum;
    std::array<Section, NUMBER_OF_SECTIONS> m_sections;
    std::array<uint64_t, NUMBER_OF_SECTIONS> m_lengths; // as they should be
    StoreFormat::Counters m_counters;
    ResourceIDWidth m_resourceIDWidth;
    uint64_t m_nextResourceID;
    uint64_t m_maxResourceID;
    uint64_t m_numberOfResources;
};

}
