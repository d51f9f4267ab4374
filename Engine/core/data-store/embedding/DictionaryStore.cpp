#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"
#include "core/data-store/embedding/DictionaryState.h"
#include "core/data-store/inspection/DictionaryDatatypeInspector.h"
#include "core/data-store/store/StoreFormat.h"
#include "core/data-store/store/StoreReader.h"
#include "core/data-store/store/StoreWriter.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/SystemCallException.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <type_traits>
#include <utility>

// A dictionary as one stream of bytes. No input is trusted before it is checked.

namespace kavix {

namespace {

std::string getDictionarySectionName(const DictionaryDatatypeFactory& factory) {
    return StoreFormat::DICTIONARY_PREFIX + std::to_string(factory.getDatatypeIDsAndIRIs().front().first);
}

/// Makes the empty dictionary for a store. The caller did not choose the maximum resource ID, so the error names it.
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

/// Throws unless the counters of a store are possible.
void checkCounters(const StoreFormat::Counters& counters, ResourceIDWidth width) {
    const uint64_t largestMaxResourceID =
        width == ResourceIDWidth::BITS_32 ? Dictionary::MAX_RESOURCE_ID_32 : Dictionary::MAX_RESOURCE_ID_64;
    if (counters.m_maxResourceID < Dictionary::MIN_MAX_RESOURCE_ID || counters.m_maxResourceID > largestMaxResourceID)
        Errors::throwInvalidStore(
            StoreFormat::COUNTERS, "invalid maximum resource ID " + std::to_string(counters.m_maxResourceID));
    if (counters.m_nextResourceID < DictionaryState::FIRST_RESOURCE_ID ||
        counters.m_nextResourceID > counters.m_maxResourceID)
        Errors::throwInvalidStore(
            StoreFormat::COUNTERS, "invalid next resource ID " + std::to_string(counters.m_nextResourceID));
    if (counters.m_dataPoolEnd < DataPool::FIRST_OFFSET ||
        counters.m_dataPoolEnd > DictionaryState::getMaximumDataPoolSize(counters.m_maxResourceID))
        Errors::throwInvalidStore(
            StoreFormat::COUNTERS, "invalid end of the data pool, " + std::to_string(counters.m_dataPoolEnd));
}

/// Throws unless the dictionary is consistent and has as many resources as its store counts.
void checkContent(const Dictionary& dictionary, const StoreFormat::Counters& counters) {
    dictionary.verify([](std::string&& problem) { Errors::throwInvalidStore("content", std::move(problem)); });
    const std::array<uint64_t, 256> counts = dictionary.countResourcesByDatatypeID();
    const uint64_t numberOfResources = std::accumulate(counts.begin(), counts.end(), uint64_t(0));
    if (numberOfResources != counters.m_numberOfResources)
        Errors::throwInvalidStore(
            StoreFormat::COUNTERS, "it counts " + std::to_string(counters.m_numberOfResources) +
                                       " resources, but there are " + std::to_string(numberOfResources));
}

}

void Dictionary::saveStore(OutputStream& output) const {
    const Snapshot counters = m_state->getCounters();
    const std::array<uint64_t, 256> counts = countResourcesByDatatypeID();
    StoreFormat::Counters counterSection{counters.resourceIDEnd, m_state->m_maxResourceID, counters.dataPoolEnd, 0};
    for (const uint64_t count : counts)
        counterSection.m_numberOfResources += count;
    // The first IDs may not have been allocated, and then their entries do not exist either.
    const uint64_t usableEntries = std::min<uint64_t>(
        {counters.resourceIDEnd, m_state->m_resourceData.getEnd(), m_state->m_resourceDatatypeIDs.getEnd()});
    const auto writeArray = [usableEntries, &counters](OutputStream& destination, const auto& array) {
        using Item = std::remove_cvref_t<decltype(array[0])>;
        destination.write(array.getData(), usableEntries * sizeof(Item));
        const uint8_t zero[sizeof(Item)] = {};
        for (uint64_t resourceID = usableEntries; resourceID < counters.resourceIDEnd; ++resourceID)
            destination.write(zero, sizeof(zero));
    };

    StoreWriter writer(m_state->m_resourceIDWidth);
    writer.addSection(StoreFormat::COUNTERS, [&counterSection](OutputStream& destination) {
        destination.write(&counterSection, sizeof(counterSection));
    });
    writer.addSection(StoreFormat::DATATYPE_IDS, [&](OutputStream& destination) {
        writeArray(destination, m_state->m_resourceDatatypeIDs);
    });
    writer.addSection(StoreFormat::RESOURCE_DATA, [&](OutputStream& destination) {
        writeArray(destination, m_state->m_resourceData);
    });
    writer.addSection(StoreFormat::DATA_POOL, [this, &counters](OutputStream& destination) {
        if (counters.dataPoolEnd != DataPool::FIRST_OFFSET)
            destination.write(
                m_state->m_dataPool.getBase() + DataPool::FIRST_OFFSET, counters.dataPoolEnd - DataPool::FIRST_OFFSET);
    });
    for (const DictionaryState::Family& family : m_state->m_families)
        writer.addSection(getDictionarySectionName(family.m_factory), [&family](OutputStream& destination) {
            family.m_dictionary->save(destination);
        });
    writer.write(output);
}

std::unique_ptr<Dictionary> Dictionary::openStore(InputStream& input, const OpenOptions& options) {
    StoreReader reader(input);
    if (options.resourceIDWidth.has_value() && *options.resourceIDWidth != reader.getResourceIDWidth())
        Errors::throwInvalidStore(
            "header", "its resource IDs have " + std::to_string(static_cast<unsigned>(reader.getResourceIDWidth())) +
                          " bits, not " + std::to_string(static_cast<unsigned>(*options.resourceIDWidth)));

    StoreFormat::Counters counters;
    reader.readSection(StoreFormat::COUNTERS, &counters, sizeof(counters));
    checkCounters(counters, reader.getResourceIDWidth());

    Options dictionaryOptions;
    dictionaryOptions.memoryBudgetBytes = options.memoryBudgetBytes;
    dictionaryOptions.resourceIDWidth = reader.getResourceIDWidth();
    dictionaryOptions.maxResourceID = counters.m_maxResourceID;
    dictionaryOptions.useHugePages = options.useHugePages;
    std::unique_ptr<Dictionary> dictionary = makeEmptyDictionary(dictionaryOptions);
    dictionary->m_state->loadSections(reader, counters);
    if (options.checkEveryValue)
        checkContent(*dictionary, counters);
    return dictionary;
}

void DictionaryState::loadSections(StoreReader& reader, const StoreFormat::Counters& counters) {
    constexpr size_t NUMBER_OF_SHARED_SECTIONS = 4;
    if (reader.getNumberOfSections() != NUMBER_OF_SHARED_SECTIONS + m_families.size())
        Errors::throwInvalidStore(
            "header", "it has " + std::to_string(reader.getNumberOfSections()) + " sections instead of " +
                          std::to_string(NUMBER_OF_SHARED_SECTIONS + m_families.size()));
    // The empty tables return their memory as the image replaces them.
    const uint64_t bytesOfEmptyTables = m_memoryManager.getChargedBytes();
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
    // Relaxed: no other thread is inside.
    m_nextResourceID.store(numberOfIDs, std::memory_order_relaxed);
    for (const Family& family : m_families) {
        const std::string name = getDictionarySectionName(family.m_factory);
        reader.inspectSection(name, [&](InputStream& input, uint64_t length) {
            family.m_inspector.checkImage(
                input,
                ImageLimits{length, counters.m_maxResourceID, m_memoryManager.getFreeBytes() + bytesOfEmptyTables},
                [&name](std::string&& problem) { Errors::throwInvalidStore(std::string(name), std::move(problem)); });
        });
        reader.readSection(name, [&family](InputStream& input) { family.m_dictionary->load(input); });
    }
    reader.checkEnd();
}

void Dictionary::verify(const ProblemReport& report) const {
    const StoreContents contents = m_state->getContents();
    const uint64_t end = contents.m_nextResourceID;
    // Relaxed: no thread writes during the call.
    if (end != 0 && m_state->m_resourceDatatypeIDs[0].load(std::memory_order_relaxed) != D_NONE)
        report("resource ID 0, which is reserved, has a datatype");
    for (uint64_t resourceID = DictionaryState::FIRST_RESOURCE_ID; resourceID < end; ++resourceID) {
        const uint8_t datatypeID = m_state->m_resourceDatatypeIDs[resourceID].load(std::memory_order_relaxed);
        if (datatypeID != D_NONE && m_state->m_familiesByID[datatypeID] == nullptr)
            report(
                "resource " + std::to_string(resourceID) + " has the unknown datatype ID " +
                std::to_string(datatypeID));
    }
    for (const DictionaryState::Family& family : m_state->m_families)
        family.m_inspector.verify(*family.m_dictionary, contents, report);
}

}
