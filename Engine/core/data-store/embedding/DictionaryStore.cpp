#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/DictionaryFamilies.h"
#include "core/data-store/inspection/DictionaryDatatypeInspector.h"
#include "core/data-store/store/Checksum.h"
#include "core/data-store/store/StoreFormat.h"
#include "core/data-store/store/StoreReader.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/SystemCallException.h"
#include "core/platform/system/VMPageSize.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

// A dictionary as one stream of bytes. Nothing that is read is trusted before it was checked.

namespace kavix {

namespace {

std::string getDictionarySectionName(const DictionaryDatatypeFactory& factory) {
    return StoreFormat::DICTIONARY_PREFIX + std::to_string(factory.getDatatypeIDsAndIRIs().front().first);
}

/// A section to be written.
struct OutgoingSection {
    StoreFormat::Section m_entry;
    std::function<void(OutputStream&)> m_write;
};

OutgoingSection makeSection(const std::string& name, std::function<void(OutputStream&)> write) {
    OutgoingSection section{};
    std::memcpy(section.m_entry.m_name, name.data(), std::min(name.size(), sizeof(section.m_entry.m_name)));
    ChecksumOutputStream measure;
    write(measure);
    section.m_entry.m_length = measure.getNumberOfBytes();
    section.m_entry.m_checksum = measure.getChecksum();
    section.m_write = std::move(write);
    return section;
}

/// Makes the empty dictionary for a store. The caller did not choose the bound of IDs, so its name is in the error.
std::unique_ptr<Dictionary> makeEmptyDictionary(const Dictionary::Options& options) {
    try {
        return std::make_unique<Dictionary>(options);
    }
    catch (const SystemCallException& exception) {
        if (!comesFrom(exception, ErrorSites::CANNOT_RESERVE_ADDRESS_SPACE))
            throw;
        Errors::throwStoreNeedsAddressSpace(exception.getErrorNumber(), options.maxResourceID);
    }
}

}

void Dictionary::saveStore(OutputStream& output) const {
    const Snapshot counters = getCounters();
    const std::array<uint64_t, 256> counts = countResourcesByDatatypeID();
    StoreFormat::Counters counterSection{counters.first, m_maxResourceID, counters.second, 0};
    for (const uint64_t count : counts)
        counterSection.m_numberOfResources += count;
    // The first IDs may not have been given out, and then their entries are not there either.
    const uint64_t usableEntries =
        std::min<uint64_t>({counters.first, m_resourceData.getEnd(), m_resourceDatatypeIDs.getEnd()});
    const auto writeArray = [usableEntries, &counters](OutputStream& destination, const auto& array) {
        using Item = std::remove_cvref_t<decltype(array[0])>;
        destination.write(array.getData(), usableEntries * sizeof(Item));
        const uint8_t zero[sizeof(Item)] = {};
        for (uint64_t resourceID = usableEntries; resourceID < counters.first; ++resourceID)
            destination.write(zero, sizeof(zero));
    };

    std::vector<OutgoingSection> sections;
    sections.push_back(makeSection(StoreFormat::COUNTERS, [&](OutputStream& destination) {
        destination.write(&counterSection, sizeof(counterSection));
    }));
    sections.push_back(makeSection(
        StoreFormat::DATATYPE_IDS, [&](OutputStream& destination) { writeArray(destination, m_resourceDatatypeIDs); }));
    sections.push_back(makeSection(
        StoreFormat::RESOURCE_DATA, [&](OutputStream& destination) { writeArray(destination, m_resourceData); }));
    sections.push_back(makeSection(StoreFormat::DATA_POOL, [&](OutputStream& destination) {
        if (counters.second != DataPool::FIRST_OFFSET)
            destination.write(m_dataPool.getBase() + DataPool::FIRST_OFFSET, counters.second - DataPool::FIRST_OFFSET);
    }));
    const std::vector<const DictionaryDatatypeFactory*> factories = DictionaryDatatypeFactory::getFactories();
    for (size_t index = 0; index < factories.size(); ++index)
        sections.push_back(
            makeSection(getDictionarySectionName(*factories[index]), [this, index](OutputStream& destination) {
                m_dictionaryDatatypes[index]->save(destination);
            }));

    StoreFormat::Header header{};
    std::memcpy(header.m_magic, StoreFormat::MAGIC, sizeof(header.m_magic));
    header.m_formatVersion = StoreFormat::FORMAT_VERSION;
    header.m_byteOrderMark = StoreFormat::BYTE_ORDER_MARK;
    header.m_libraryVersion = StoreFormat::LIBRARY_VERSION;
    header.m_resourceIDWidth = static_cast<uint32_t>(m_resourceIDWidth);
    header.m_pageSize = getVMPageSize();
    header.m_numberOfSections = sections.size();
    Checksum checksum;
    const auto write = [&output, &checksum](const void* data, size_t numberOfBytes) {
        checksum.update(data, numberOfBytes);
        output.write(data, numberOfBytes);
    };
    write(&header, sizeof(header));
    uint64_t offset = sizeof(header) + sections.size() * sizeof(StoreFormat::Section) + sizeof(uint64_t);
    for (OutgoingSection& section : sections) {
        section.m_entry.m_offset = offset;
        offset += section.m_entry.m_length;
        write(&section.m_entry, sizeof(section.m_entry));
    }
    const uint64_t headerChecksum = checksum.getValue();
    output.write(&headerChecksum, sizeof(headerChecksum));
    for (const OutgoingSection& section : sections)
        section.m_write(output);
    output.flush();
}

std::unique_ptr<Dictionary> Dictionary::openStore(InputStream& input, const OpenOptions& options) {
    registerBuiltInDatatypeFamilies();
    StoreReader reader(input);
    if (options.resourceIDWidth.has_value() && *options.resourceIDWidth != reader.getResourceIDWidth())
        Errors::throwInvalidStore(
            "header", "its resource IDs have " + std::to_string(static_cast<unsigned>(reader.getResourceIDWidth())) +
                          " bits, not " + std::to_string(static_cast<unsigned>(*options.resourceIDWidth)));

    StoreFormat::Counters counters;
    reader.readSection(StoreFormat::COUNTERS, &counters, sizeof(counters));
    const uint64_t largestMaxResourceID =
        reader.getResourceIDWidth() == ResourceIDWidth::BITS_32 ? MAX_RESOURCE_ID_32 : MAX_RESOURCE_ID_64;
    if (counters.m_maxResourceID < MIN_MAX_RESOURCE_ID || counters.m_maxResourceID > largestMaxResourceID)
        Errors::throwInvalidStore(
            StoreFormat::COUNTERS,
            "its bound of resource IDs, " + std::to_string(counters.m_maxResourceID) + ", is not possible");
    if (counters.m_nextResourceID < FIRST_RESOURCE_ID || counters.m_nextResourceID > counters.m_maxResourceID)
        Errors::throwInvalidStore(
            StoreFormat::COUNTERS,
            "the next resource ID, " + std::to_string(counters.m_nextResourceID) + ", is not possible");
    if (counters.m_dataPoolEnd < DataPool::FIRST_OFFSET ||
        counters.m_dataPoolEnd > getMaximumDataPoolSize(counters.m_maxResourceID))
        Errors::throwInvalidStore(
            StoreFormat::COUNTERS,
            "the end of the data pool, " + std::to_string(counters.m_dataPoolEnd) + ", is not possible");

    Options dictionaryOptions;
    dictionaryOptions.memoryBudgetBytes = options.memoryBudgetBytes;
    dictionaryOptions.resourceIDWidth = reader.getResourceIDWidth();
    dictionaryOptions.maxResourceID = counters.m_maxResourceID;
    dictionaryOptions.useHugePages = options.useHugePages;
    std::unique_ptr<Dictionary> dictionary = makeEmptyDictionary(dictionaryOptions);
    dictionary->loadSections(reader, counters);
    if (options.checkEveryValue) {
        dictionary->verify([](std::string&& problem) { Errors::throwInvalidStore("content", std::move(problem)); });
        const std::array<uint64_t, 256> counts = dictionary->countResourcesByDatatypeID();
        const uint64_t numberOfResources = std::accumulate(counts.begin(), counts.end(), uint64_t(0));
        if (numberOfResources != counters.m_numberOfResources)
            Errors::throwInvalidStore(
                StoreFormat::COUNTERS, "it counts " + std::to_string(counters.m_numberOfResources) +
                                           " resources, and there are " + std::to_string(numberOfResources));
    }
    return dictionary;
}

void Dictionary::loadSections(StoreReader& reader, const StoreFormat::Counters& counters) {
    constexpr size_t NUMBER_OF_SHARED_SECTIONS = 4;
    const std::vector<const DictionaryDatatypeFactory*> factories = DictionaryDatatypeFactory::getFactories();
    if (reader.getNumberOfSections() != NUMBER_OF_SHARED_SECTIONS + factories.size())
        Errors::throwInvalidStore(
            "header", "it has " + std::to_string(reader.getNumberOfSections()) + " sections instead of " +
                          std::to_string(NUMBER_OF_SHARED_SECTIONS + factories.size()));
    // The empty tables give their memory back as the image replaces them.
    const uint64_t bytesOfEmptyTables = getUsedBytes();
    const uint64_t numberOfIDs = counters.m_nextResourceID;
    // Lengths are compared before memory is committed, so a wrong count costs nothing.
    reader.checkLength(StoreFormat::DATATYPE_IDS, numberOfIDs);
    reader.checkLength(StoreFormat::RESOURCE_DATA, numberOfIDs * sizeof(uint64_t));
    reader.checkLength(StoreFormat::DATA_POOL, counters.m_dataPoolEnd - DataPool::FIRST_OFFSET);
    m_resourceDatatypeIDs.ensureEndAtLeast(numberOfIDs);
    m_resourceData.ensureEndAtLeast(numberOfIDs);
    const bool hasRecords = counters.m_dataPoolEnd != DataPool::FIRST_OFFSET;
    if (hasRecords)
        m_dataPool.setEnd(counters.m_dataPoolEnd);
    reader.readSection(StoreFormat::DATATYPE_IDS, m_resourceDatatypeIDs.getData(), numberOfIDs);
    reader.readSection(StoreFormat::RESOURCE_DATA, m_resourceData.getData(), numberOfIDs * sizeof(uint64_t));
    if (hasRecords)
        reader.readSection(
            StoreFormat::DATA_POOL, m_dataPool.getBase() + DataPool::FIRST_OFFSET,
            counters.m_dataPoolEnd - DataPool::FIRST_OFFSET);
    // Relaxed: nobody else is inside.
    m_nextResourceID.store(numberOfIDs, std::memory_order_relaxed);
    for (size_t index = 0; index < factories.size(); ++index) {
        const std::string name = getDictionarySectionName(*factories[index]);
        const DictionaryDatatypeInspector& inspector =
            getInspector(factories[index]->getDatatypeIDsAndIRIs().front().first);
        reader.inspectSection(name, [&](InputStream& input, uint64_t length) {
            inspector.checkImage(
                input,
                ImageLimits{length, counters.m_maxResourceID, m_memoryManager.getFreeBytes() + bytesOfEmptyTables},
                [&name](std::string&& problem) { Errors::throwInvalidStore(std::string(name), std::move(problem)); });
        });
        reader.readSection(name, [this, index](InputStream& input) { m_dictionaryDatatypes[index]->load(input); });
    }
    reader.checkEnd();
}

void Dictionary::verify(const ProblemReport& report) const {
    const StoreContents contents = getContents();
    const uint64_t end = contents.m_nextResourceID;
    // Relaxed: nobody writes meanwhile.
    if (end != 0 && m_resourceDatatypeIDs[0].load(std::memory_order_relaxed) != D_NONE)
        report("resource ID 0, which means none, has a datatype");
    for (uint64_t resourceID = FIRST_RESOURCE_ID; resourceID < end; ++resourceID) {
        const uint8_t datatypeID = m_resourceDatatypeIDs[resourceID].load(std::memory_order_relaxed);
        if (datatypeID != D_NONE && m_dictionaryDatatypesByID[datatypeID] == nullptr)
            report(
                "resource " + std::to_string(resourceID) + " has the unknown datatype ID " +
                std::to_string(datatypeID));
    }
    const std::vector<const DictionaryDatatypeFactory*> factories = DictionaryDatatypeFactory::getFactories();
    for (size_t index = 0; index < factories.size(); ++index)
        getInspector(factories[index]->getDatatypeIDsAndIRIs().front().first)
            .verify(*m_dictionaryDatatypes[index], contents, report);
}

}
