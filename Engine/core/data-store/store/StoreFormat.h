#pragma once

#include "core/data-store/dictionary/ResourceIDWidth.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kavix {

/// The frame of a store: a header, a section table, its checksum, then the sections one after the other. All numbers
/// are in the byte order of the machine that wrote it, which the header identifies. docs/store-file.md has the details.
namespace StoreFormat {

/// Bytes that no text file begins with, and that text-mode copying would corrupt.
inline constexpr unsigned char MAGIC[8] = {0x8b, 'K', 'A', 'V', 'I', '\r', '\n', 0x1a};

inline constexpr uint32_t FORMAT_VERSION = 1;
inline constexpr uint32_t BYTE_ORDER_MARK = 0x01020304;
inline constexpr uint32_t LIBRARY_VERSION = 0x000100; // major, minor, patch: a byte each

struct Header {
    unsigned char m_magic[8];
    uint32_t m_formatVersion;
    uint32_t m_byteOrderMark;
    uint32_t m_libraryVersion;
    uint32_t m_resourceIDWidth; // in bits: 32 or 64
    uint64_t m_pageSize; // in bytes, of the machine that wrote the store
    uint64_t m_numberOfSections;
};

struct Section {
    char m_name[16]; // ASCII, padded with NULs
    uint64_t m_offset; // in bytes, from the beginning of the store
    uint64_t m_length; // in bytes
    uint64_t m_checksum; // XXH3-64 of the section's bytes
};

/// The content of section "counters".
struct Counters {
    uint64_t m_nextResourceID; // the lowest ID not yet allocated; the number of entries of each array
    uint64_t m_maxResourceID; // exclusive bound of resource IDs
    uint64_t m_dataPoolEnd; // one past the last byte of the data pool
    uint64_t m_numberOfResources; // how many IDs have a datatype
};

static_assert(sizeof(Header) == 40 && sizeof(Section) == 40 && sizeof(Counters) == 32);

inline constexpr char COUNTERS[] = "counters";
inline constexpr char DATATYPE_IDS[] = "datatypes"; // a byte for each ID from 0 on; 0 if there is no resource
inline constexpr char RESOURCE_DATA[] = "data"; // a 64-bit word for each ID from 0 on
inline constexpr char DATA_POOL[] = "pool"; // the bytes of the data pool from offset 64 on
inline constexpr char DICTIONARY_PREFIX[] = "dictionary-"; // then the smallest datatype ID of the family: its image

/// More sections than any store has.
inline constexpr uint64_t MAX_NUMBER_OF_SECTIONS = 64;

/// The header that this program writes.
Header makeHeader(ResourceIDWidth resourceIDWidth, uint64_t numberOfSections) noexcept;

/// Everything before the first section: the header, the section table and the checksum of both.
/// @throws std::bad_alloc
std::vector<uint8_t> makeFrame(const Header& header, std::span<const Section> sections);

/// The size of what makeFrame() returns, in bytes.
constexpr uint64_t getFrameLength(uint64_t numberOfSections) noexcept {
    return sizeof(Header) + numberOfSections * sizeof(Section) + sizeof(uint64_t);
}

/// The name of a section, as far as it can be read; a damaged one may have any characters.
std::string getName(const Section& section);

/// @param name  at most 16 characters
void setName(Section& section, std::string_view name) noexcept;

}

}
