#pragma once

#include "support/Bytes.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// The frame of a store, written and read from its description, without the code that saves and opens it.

namespace kavix::test {

inline uint64_t getXXH3(const std::string& bytes) {
    return XXH3_64bits(bytes.data(), bytes.size());
}

/// A section. Its place and checksum are computed unless a test sets them to something else.
struct StoreSection {
    std::string m_name;
    std::string m_bytes;
    std::optional<uint64_t> m_offset{};
    std::optional<uint64_t> m_length{};
    std::optional<uint64_t> m_checksum{};
};

struct StoreImage {

    static constexpr size_t HEADER_SIZE = 40;
    static constexpr size_t SECTION_ENTRY_SIZE = 40;

    std::string m_magic = std::string("\x8bKAVI\r\n\x1a", 8);
    uint32_t m_formatVersion = 1;
    uint32_t m_byteOrderMark = 0x01020304;
    uint32_t m_libraryVersion = 0x000100;
    uint32_t m_resourceIDWidth = 32;
    uint64_t m_pageSize = 4096;
    std::optional<uint64_t> m_numberOfSections;
    std::vector<StoreSection> m_sections;
    std::optional<uint64_t> m_headerChecksum;
    std::string m_tail; // what follows the last section

    StoreSection& operator[](const std::string& name) {
        for (StoreSection& section : m_sections)
            if (section.m_name == name)
                return section;
        throw std::runtime_error("there is no section " + name);
    }

    std::string toBytes() const {
        ByteWriter header;
        header.putText(m_magic)
            .put(m_formatVersion)
            .put(m_byteOrderMark)
            .put(m_libraryVersion)
            .put(m_resourceIDWidth)
            .put(m_pageSize);
        header.put(m_numberOfSections.value_or(m_sections.size()));
        uint64_t offset = HEADER_SIZE + m_sections.size() * SECTION_ENTRY_SIZE + sizeof(uint64_t);
        for (const StoreSection& section : m_sections) {
            std::string name = section.m_name;
            name.resize(16, '\0');
            header.putText(name)
                .put(section.m_offset.value_or(offset))
                .put(section.m_length.value_or(section.m_bytes.size()))
                .put(section.m_checksum.value_or(getXXH3(section.m_bytes)));
            offset += section.m_bytes.size();
        }
        std::string bytes = header.getBytes();
        ByteWriter checksum;
        checksum.put(m_headerChecksum.value_or(getXXH3(bytes)));
        bytes += checksum.getBytes();
        for (const StoreSection& section : m_sections)
            bytes += section.m_bytes;
        return bytes + m_tail;
    }

    static StoreImage fromBytes(const std::string& bytes) {
        StoreImage image;
        size_t position = 0;
        const auto takeText = [&](size_t length) {
            if (bytes.size() - position < length)
                throw std::runtime_error("the store is too short");
            return bytes.substr(std::exchange(position, position + length), length);
        };
        const auto take = [&](auto& number) { std::memcpy(&number, takeText(sizeof(number)).data(), sizeof(number)); };
        image.m_magic = takeText(8);
        take(image.m_formatVersion);
        take(image.m_byteOrderMark);
        take(image.m_libraryVersion);
        take(image.m_resourceIDWidth);
        take(image.m_pageSize);
        uint64_t numberOfSections;
        take(numberOfSections);
        for (uint64_t index = 0; index < numberOfSections; ++index) {
            const std::string name = takeText(16);
            uint64_t offset, length, checksum;
            take(offset);
            take(length);
            take(checksum);
            image.m_sections.push_back({name.substr(0, name.find('\0')), bytes.substr(offset, length)});
            if (getXXH3(image.m_sections.back().m_bytes) != checksum)
                throw std::runtime_error("the checksum of section " + name + " is wrong");
        }
        const uint64_t expected = getXXH3(bytes.substr(0, position));
        uint64_t checksum;
        take(checksum);
        if (checksum != expected)
            throw std::runtime_error("the checksum of the header is wrong");
        return image;
    }
};

}
