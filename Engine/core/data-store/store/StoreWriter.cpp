#include "core/data-store/store/StoreWriter.h"

#include "core/data-store/store/Checksum.h"

#include <cstdint>
#include <utility>

namespace kavix {

void StoreWriter::addSection(std::string_view name, WriteSection write) {
    ChecksumOutputStream measure;
    write(measure);
    StoreFormat::Section section{};
    StoreFormat::setName(section, name);
    section.m_offset = m_sections.empty() ? 0 : m_sections.back().m_offset + m_sections.back().m_length;
    section.m_length = measure.getNumberOfBytes();
    section.m_checksum = measure.getChecksum();
    m_writers.reserve(m_sections.size() + 1); // so that both vectors keep the same size
    m_sections.push_back(section);
    m_writers.push_back(std::move(write));
}

void StoreWriter::write(OutputStream& output) const {
    std::vector<StoreFormat::Section> sections = m_sections;
    for (StoreFormat::Section& section : sections)
        section.m_offset += StoreFormat::getFrameLength(sections.size());
    const StoreFormat::Header header = StoreFormat::makeHeader(m_resourceIDWidth, sections.size());
    const std::vector<uint8_t> frame = StoreFormat::makeFrame(header, sections);
    output.write(frame.data(), frame.size());
    for (const WriteSection& writeSection : m_writers)
        writeSection(output);
    output.flush();
}

}
