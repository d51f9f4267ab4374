// Opens a store whose content was changed and whose checksums are right again: refused with an error, or consistent.

#include "FuzzSupport.h"
#include "Fuzzers.h"
#include "SampleDictionary.h"

#include "core/data-store/store/Checksum.h"
#include "core/data-store/store/StoreFormat.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/MemoryInputStream.h"

#include <array>
#include <cstring>
#include <memory>
#include <string>

namespace kavix::fuzz {

namespace {

constexpr size_t NUMBER_OF_SECTIONS = 5;

uint64_t getChecksum(const std::string& bytes) {
    Checksum checksum;
    checksum.update(bytes.data(), bytes.size());
    return checksum.getValue();
}

struct ChangeableStore {

    explicit ChangeableStore(const std::string& bytes) {
        std::memcpy(&m_header, bytes.data(), sizeof(m_header));
        require(m_header.m_numberOfSections == NUMBER_OF_SECTIONS, "a store has five sections");
        std::memcpy(m_entries.data(), bytes.data() + sizeof(m_header), sizeof(m_entries));
        for (size_t index = 0; index < NUMBER_OF_SECTIONS; ++index)
            m_sections[index] = bytes.substr(m_entries[index].m_offset, m_entries[index].m_length);
    }

    /// The store with places and checksums of its own, unless changed below.
    std::string toBytes(Input& frameChanges) {
        uint64_t offset = sizeof(m_header) + sizeof(m_entries) + sizeof(uint64_t);
        for (size_t index = 0; index < NUMBER_OF_SECTIONS; ++index) {
            m_entries[index].m_offset = offset;
            m_entries[index].m_length = m_sections[index].size();
            m_entries[index].m_checksum = getChecksum(m_sections[index]);
            offset += m_sections[index].size();
        }
        std::string bytes(reinterpret_cast<const char*>(&m_header), sizeof(m_header));
        bytes.append(reinterpret_cast<const char*>(m_entries.data()), sizeof(m_entries));
        for (int change = 0; change < 4 && !frameChanges.isEmpty(); ++change) {
            const uint8_t place = frameChanges.take<uint8_t>();
            overwrite(bytes, place, frameChanges.take<uint64_t>());
        }
        const uint64_t checksum = getChecksum(bytes);
        bytes.append(reinterpret_cast<const char*>(&checksum), sizeof(checksum));
        for (const std::string& section : m_sections)
            bytes += section;
        return bytes;
    }

    StoreFormat::Header m_header;
    std::array<StoreFormat::Section, NUMBER_OF_SECTIONS> m_entries;
    std::array<std::string, NUMBER_OF_SECTIONS> m_sections;
};

void requireConsistent(const Dictionary& dictionary) {
    dictionary.verify([](std::string&& problem) { fail(problem.c_str()); });
}

/// Everything that a dictionary whose every value was checked must be able to do.
void use(Dictionary& dictionary, bool isFilled) {
    requireConsistent(dictionary);
    const uint64_t end = dictionary.takeSnapshot().resourceIDEnd;
    for (uint64_t resourceID = 0; resourceID < end; ++resourceID)
        if (dictionary.tryGetResourceDatatypeID(resourceID) != D_NONE)
            require(
                dictionary.tryResolve(dictionary.getValue(resourceID)) == resourceID &&
                    !dictionary.getTurtleLiteral(resourceID).empty(),
                "every resource is found by its value");
    MemoryOutputStream saved;
    dictionary.saveStore(saved);
    MemoryInputStream input(saved.getContent());
    MemoryOutputStream savedAgain;
    Dictionary::openStore(input, Dictionary::OpenOptions())->saveStore(savedAgain);
    require(saved.getContent() == savedAgain.getContent(), "a store that was opened can be saved and opened");
    try {
        for (int i = 0; i < (isFilled ? 1200 : 3); ++i) {
            dictionary.resolve(std::to_string(i), D_XSD_INT);
            dictionary.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL);
        }
    }
    catch (const KavixException&) {
        // The IDs or the budget are exhausted.
    }
    requireConsistent(dictionary);
    dictionary.compact([](uint64_t resourceID) { return resourceID % 2 == 0; });
    requireConsistent(dictionary);
}

}

}

/// flags, number of section changes; then for each: section, change; then changes of the frame
int fuzzStore(const uint8_t* data, size_t size) {
    using namespace kavix;
    using namespace kavix::fuzz;
    static const std::string s_samples[] = {
        makeSampleStore(ResourceIDWidth::BITS_32), makeSampleStore(ResourceIDWidth::BITS_64)};
    Input input(data, size);
    const uint8_t flags = input.take<uint8_t>();
    const uint8_t numberOfChanges = input.take<uint8_t>() % 16;
    ChangeableStore store(s_samples[flags & 1]);
    for (uint8_t change = 0; change < numberOfChanges && !input.isEmpty(); ++change) {
        const uint8_t section = input.take<uint8_t>();
        if (section % 8 >= NUMBER_OF_SECTIONS - 1)
            changeImage(store.m_sections[NUMBER_OF_SECTIONS - 1], input);
        else {
            std::string& bytes = store.m_sections[section % 8];
            const uint16_t place = input.take<uint16_t>();
            const uint64_t number = input.take<uint64_t>();
            if (section < 64)
                overwrite(bytes, place, number);
            else if (section < 192)
                overwrite(bytes, place, static_cast<uint8_t>(number));
            else
                bytes.resize(number % 40'000, '\0');
        }
    }
    const std::string bytes = store.toBytes(input);
    MemoryInputStream stream(bytes);
    Dictionary::OpenOptions options;
    options.memoryBudgetBytes = (flags & 2) != 0 ? 1 << 26 : 1 << 19;
    options.checkEveryValue = (flags & 4) == 0;
    try {
        const std::unique_ptr<Dictionary> dictionary = Dictionary::openStore(stream, options);
        require(dictionary->getUsedBytes() <= options.memoryBudgetBytes, "the budget holds");
        if (options.checkEveryValue) {
            dictionary->setMemoryBudget(1 << 26);
            use(*dictionary, (flags & 8) != 0);
        }
        else
            dictionary->verify([](std::string&&) {}); // no matter what it finds, it survives
    }
    catch (const KavixException&) {
        // Refused.
    }
    return 0;
}
