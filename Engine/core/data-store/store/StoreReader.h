#pragma once

#include "core/data-store/dictionary/ResourceIDWidth.h"
#include "core/data-store/store/Checksum.h"
#include "core/data-store/store/StoreFormat.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/InputStream.h"
#include "core/platform/system/Unmovable.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kavix {

/// The frame of a store that is being opened: locates the sections, reads them, verifies their checksums. Every error
/// is a KavixException that names the section and the reason. One thread at a time.
class StoreReader : private Unmovable {

public:

    /// Reads and checks the header and the section table.
    explicit StoreReader(InputStream& input);

    ResourceIDWidth getResourceIDWidth() const noexcept {
        return static_cast<ResourceIDWidth>(m_header.m_resourceIDWidth);
    }

    size_t getNumberOfSections() const noexcept { return m_sections.size(); }

    /// Throws unless the section has this length, in bytes.
    void checkLength(const std::string& name, uint64_t length) const;

    /// Reads a whole section of a known length and verifies its checksum.
    void readSection(const std::string& name, void* data, uint64_t length);

    /// Has read(input) read a whole section and verifies its checksum.
    template<typename Read>
    void readSection(const std::string& name, Read read) {
        const StoreFormat::Section& section = getSection(name);
        seek(section.m_offset);
        m_position = UNKNOWN_POSITION;
        ChecksumInputStream sectionInput(m_input, section.m_length);
        explainPrematureEnd(
            [&] { read(sectionInput); }, [&] { throwSectionTooShort(name, sectionInput.getRemainingBytes()); });
        checkSection(name, section, sectionInput);
    }

    /// Has inspect(input, length) examine a section without regard to its checksum, which readSection() verifies.
    template<typename Inspect>
    void inspectSection(const std::string& name, Inspect inspect) {
        const StoreFormat::Section& section = getSection(name);
        seek(section.m_offset);
        m_position = UNKNOWN_POSITION;
        explainPrematureEnd(
            [&] { inspect(m_input, section.m_length); }, [&] { throwSectionTooShort(name, section.m_length); });
    }

    /// Throws if there is data after the last section.
    void checkEnd();

private:

    static constexpr uint64_t UNKNOWN_POSITION = UINT64_MAX; // the next seek starts from the beginning

    /// Runs an operation; if the input ends too early, has explain() throw an error that says what that means here.
    template<typename Operation, typename Explain>
    static void explainPrematureEnd(Operation operation, Explain explain) {
        try {
            operation();
        }
        catch (const KavixException& exception) {
            if (!isPrematureEnd(exception))
                throw;
            explain();
        }
    }

    static bool isPrematureEnd(const KavixException& exception) noexcept;

    [[noreturn]] static void throwSectionTooShort(const std::string& name, uint64_t remainingBytes);

    static std::string getName(const StoreFormat::Section& section);

    const StoreFormat::Section& getSection(const std::string& name) const;

    void checkSection(
        const std::string& name, const StoreFormat::Section& section, const ChecksumInputStream& sectionInput);

    void seek(uint64_t offset);

    void readHeader();

    InputStream& m_input;
    uint64_t m_position; // of the input
    uint64_t m_end; // of the last section
    StoreFormat::Header m_header;
    std::vector<StoreFormat::Section> m_sections;
};

}
