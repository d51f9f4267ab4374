#include "numdict/stores/StoreCheck.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/inspection/NumericDatatypeInspector.h"
#include "core/data-store/repair/StoreRepair.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/MemoryInputStream.h"
#include "numdict/stores/Resources.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kavix::numdict {

namespace {

/// A file in memory whose first bytes are replaced by others.
class CorrectedInputStream : public InputStream {

public:

    CorrectedInputStream(std::vector<uint8_t> beginning, const uint8_t* data, uint64_t length) :
        m_beginning(std::move(beginning)),
        m_data(data),
        m_length(length) { }

    void rewind() override { m_position = 0; }

    size_t read(void* data, size_t numberOfBytes) override {
        const bool isBeginning = m_position < m_beginning.size();
        const uint64_t end = isBeginning ? m_beginning.size() : m_length;
        const size_t size = std::min<uint64_t>(numberOfBytes, end - std::min(m_position, end));
        if (size != 0)
            std::memcpy(data, (isBeginning ? m_beginning.data() : m_data) + m_position, size);
        m_position += size;
        return size;
    }

    void skip(uint64_t numberOfBytes) override {
        m_position += std::min(numberOfBytes, m_length - std::min(m_position, m_length));
    }

private:

    const std::vector<uint8_t> m_beginning;
    const uint8_t* const m_data;
    const uint64_t m_length;
    uint64_t m_position = 0;
};

/// Returns whether the tables can be loaded.
bool checkImage(const DamagedStore& store, uint64_t memoryBudgetBytes, const ProblemReport& report) {
    const DamagedStore::Section& section = store.getSection(DamagedStore::DICTIONARY);
    const std::string name = DamagedStore::SECTION_NAMES[DamagedStore::DICTIONARY];
    bool isSound = true;
    MemoryInputStream input(section.m_data, section.m_length);
    try {
        s_NumericDatatypeInspector.checkImage(
            input, ImageLimits{section.m_length, store.getMaxResourceID(), memoryBudgetBytes},
            [&](std::string&& problem) {
                isSound = false;
                report(name + ": " + problem);
            });
    }
    catch (const KavixException& exception) {
        if (!comesFrom(exception, ErrorSites::PREMATURE_END_OF_FILE))
            throw;
        isSound = false; // it has been reported
    }
    return isSound;
}

void checkContent(
    const MappedFile& file, const DamagedStore& store, uint64_t memoryBudgetBytes, bool useHugePages,
    const ProblemReport& report) {
    const DamagedStore::Section& last = store.getSection(DamagedStore::DICTIONARY);
    const auto length =
        static_cast<uint64_t>(last.m_data + last.m_length - file.getData()); // what follows has been reported
    CorrectedInputStream input(store.makeIntactFrame(), file.getData(), length);
    Dictionary::OpenOptions options;
    options.memoryBudgetBytes = memoryBudgetBytes;
    options.checkEveryValue = false;
    options.useHugePages = useHugePages;
    const std::unique_ptr<Dictionary> dictionary = Dictionary::openStore(input, options);
    dictionary->verify(report);
    const uint64_t numberOfResources = countResources(*dictionary);
    if (numberOfResources != store.getNumberOfResources())
        report(
            "counters: it counts " + std::to_string(store.getNumberOfResources()) + " resources, but there are " +
            std::to_string(numberOfResources));
}

}

void checkStore(
    const MappedFile& file, const DamagedStore& store, uint64_t memoryBudgetBytes, bool useHugePages,
    const ProblemReport& report) {
    for (const std::string& problem : store.getProblems())
        report(std::string(problem));
    if (!store.isReadable())
        return;
    try {
        if (checkImage(store, memoryBudgetBytes, report)) {
            checkContent(file, store, memoryBudgetBytes, useHugePages, report);
            return;
        }
    }
    catch (const KavixException& exception) {
        const bool isBoundTooHigh = comesFrom(exception, ErrorSites::STORE_NEEDS_ADDRESS_SPACE);
        if (!isBoundTooHigh && !comesFrom(exception, ErrorSites::INVALID_STORE))
            throw;
        if (isBoundTooHigh || store.getProblems().empty())
            report(std::string(exception.getMessage())); // otherwise it is one that has been reported
    }
    StoreRepair(store).enumerate([](uint64_t, const ResourceValue&) {}, report);
}

}
