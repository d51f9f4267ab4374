#include "core/data-store/store/StoreReader.h"

#include "core/platform/errors/ErrorCatalogue.h"

#include <cstring>

namespace kavix {

StoreReader::StoreReader(InputStream& input) :
    m_input(input),
    m_position(0),
    m_end(0),
    m_header() {
    explainPrematureEnd(
        [this] { readHeader(); },
        [] {
            Errors::throwInvalidStore(
                "header", "the file ends inside the header: it is truncated or not a Kavix store");
        });
}

void StoreReader::readHeader() {
    Checksum checksum;
    const auto read = [this, &checksum](void* data, size_t numberOfBytes) {
        readExactly(m_input, data, numberOfBytes);
        checksum.update(data, numberOfBytes);
        m_position += numberOfBytes;
    };
    read(&m_header, sizeof(m_header));
    if (std::memcmp(m_header.m_magic, StoreFormat::MAGIC, sizeof(m_header.m_magic)) != 0)
        Errors::throwInvalidStore("header", "not a Kavix store");
    if (m_header.m_byteOrderMark != StoreFormat::BYTE_ORDER_MARK)
        Errors::throwInvalidStore("header", "written on a machine with a different byte order");
    if (m_header.m_formatVersion != StoreFormat::FORMAT_VERSION)
        Errors::throwInvalidStore(
            "header", "format version " + std::to_string(m_header.m_formatVersion) +
                          " is not supported (this program reads version " +
                          std::to_string(StoreFormat::FORMAT_VERSION) +
                          "); use the program that wrote the store, or a newer one");
    if (m_header.m_resourceIDWidth != 32 && m_header.m_resourceIDWidth != 64)
        Errors::throwInvalidStore(
            "header", "unsupported resource ID width of " + std::to_string(m_header.m_resourceIDWidth) + " bits");
    if (m_header.m_numberOfSections > StoreFormat::MAX_NUMBER_OF_SECTIONS)
        Errors::throwInvalidStore(
            "header", "invalid number of sections, " + std::to_string(m_header.m_numberOfSections));
    m_sections.resize(m_header.m_numberOfSections);
    read(m_sections.data(), m_sections.size() * sizeof(StoreFormat::Section));
    const uint64_t expectedChecksum = checksum.getValue();
    uint64_t storedChecksum;
    read(&storedChecksum, sizeof(storedChecksum));
    if (storedChecksum != expectedChecksum)
        Errors::throwInvalidStore("header", "wrong checksum: the file is damaged");
    m_end = m_position;
    for (const StoreFormat::Section& section : m_sections) {
        if (section.m_offset != m_end || section.m_length > UINT64_MAX - m_end)
            Errors::throwInvalidStore(getName(section), "wrong offset in the section table");
        m_end += section.m_length;
    }
}

bool StoreReader::isPrematureEnd(const KavixException& exception) noexcept {
    return comesFrom(exception, ErrorSites::PREMATURE_END_OF_FILE);
}

void StoreReader::throwSectionTooShort(const std::string& name, uint64_t remainingBytes) {
    Errors::throwInvalidStore(
        std::string(name), remainingBytes == 0 ? "the content does not match the length of the section"
                                               : "the file ends inside the section: it is truncated");
}

std::string StoreReader::getName(const StoreFormat::Section& section) {
    std::string name = StoreFormat::getName(section);
    for (char& character : name)
        if (character < ' ' || character > '~')
            character = '?'; // names of a damaged file appear in messages
    return name;
}

const StoreFormat::Section& StoreReader::getSection(const std::string& name) const {
    for (const StoreFormat::Section& section : m_sections)
        if (getName(section) == name)
            return section;
    Errors::throwInvalidStore(std::string(name), "the section is missing");
}

void StoreReader::checkLength(const std::string& name, uint64_t length) const {
    if (getSection(name).m_length != length)
        Errors::throwInvalidStore(
            std::string(name),
            "it has " + std::to_string(getSection(name).m_length) + " bytes instead of " + std::to_string(length));
}

void StoreReader::readSection(const std::string& name, void* data, uint64_t length) {
    checkLength(name, length);
    readSection(name, [data, length](InputStream& input) { readExactly(input, data, length); });
}

void StoreReader::checkSection(
    const std::string& name, const StoreFormat::Section& section, const ChecksumInputStream& sectionInput) {
    if (sectionInput.getRemainingBytes() != 0)
        Errors::throwInvalidStore(std::string(name), "the content does not match the length of the section");
    if (sectionInput.getChecksum() != section.m_checksum)
        Errors::throwInvalidStore(std::string(name), "wrong checksum: the file is damaged");
    m_position = section.m_offset + section.m_length;
}

void StoreReader::seek(uint64_t offset) {
    if (offset < m_position) {
        m_input.rewind();
        m_position = 0;
    }
    explainPrematureEnd(
        [&] { m_input.skip(offset - m_position); },
        [] { Errors::throwInvalidStore("header", "the file is shorter than its sections: it is truncated"); });
    m_position = offset;
}

void StoreReader::checkEnd() {
    seek(m_end);
    uint8_t byte;
    if (m_input.read(&byte, 1) != 0)
        Errors::throwInvalidStore("header", "there is data after the last section");
}

}
