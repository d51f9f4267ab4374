#include "core/data-store/store/StoreFormat.h"

#include "core/data-store/store/Checksum.h"
#include "core/platform/system/VMPageSize.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace kavix::StoreFormat {

Header makeHeader(ResourceIDWidth resourceIDWidth, uint64_t numberOfSections) noexcept {
    Header header{};
    std::memcpy(header.m_magic, MAGIC, sizeof(header.m_magic));
    header.m_formatVersion = FORMAT_VERSION;
    header.m_byteOrderMark = BYTE_ORDER_MARK;
    header.m_libraryVersion = LIBRARY_VERSION;
    header.m_resourceIDWidth = static_cast<uint32_t>(resourceIDWidth);
    header.m_pageSize = getVMPageSize();
    header.m_numberOfSections = numberOfSections;
    return header;
}

std::vector<uint8_t> makeFrame(const Header& header, std::span<const Section> sections) {
    std::vector<uint8_t> frame(getFrameLength(sections.size()));
    std::memcpy(frame.data(), &header, sizeof(header));
    std::memcpy(frame.data() + sizeof(header), sections.data(), sections.size_bytes());
    const uint64_t checksum = getChecksum(frame.data(), frame.size() - sizeof(checksum));
    std::memcpy(frame.data() + frame.size() - sizeof(checksum), &checksum, sizeof(checksum));
    return frame;
}

std::string getName(const Section& section) {
    return std::string(section.m_name, ::strnlen(section.m_name, sizeof(section.m_name)));
}

void setName(Section& section, std::string_view name) noexcept {
    assert(name.size() <= sizeof(section.m_name));
    std::memcpy(section.m_name, name.data(), std::min(name.size(), sizeof(section.m_name)));
}

}
