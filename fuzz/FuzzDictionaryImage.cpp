// Loads the raw image of a numeric dictionary after its structure was checked: what the check accepts can be loaded,
// and verified for any content; what is consistent gives the same image again.

#include "FuzzSupport.h"
#include "Fuzzers.h"
#include "SampleDictionary.h"

#include "core/data-store/dictionary/DataPool.h"
#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/dictionary/NumericDatatypeFactory.h"
#include "core/data-store/inspection/NumericDatatypeInspector.h"
#include "core/data-store/store/StoreFormat.h"
#include "core/platform/collections/ThreadSlots.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/errors/SystemCallException.h"
#include "core/platform/stream/MemoryInputStream.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <string>

namespace kavix::fuzz {

namespace {

/// What the families of a store share, as the sample store has it.
struct Shared {

    explicit Shared(const std::string& store) :
        m_memoryManager(1 << 24),
        m_resourceData(m_memoryManager),
        m_resourceDatatypeIDs(m_memoryManager),
        m_dataPool(m_memoryManager) {
        StoreFormat::Header header;
        std::memcpy(&header, store.data(), sizeof(header));
        const auto getSection = [&store](size_t index) {
            StoreFormat::Section section;
            std::memcpy(&section, store.data() + sizeof(header) + index * sizeof(section), sizeof(section));
            return store.substr(section.m_offset, section.m_length);
        };
        const std::string datatypeIDs = getSection(1), data = getSection(2), pool = getSection(3);
        m_image = getSection(4);
        m_resourceData.initialize(4096);
        m_resourceData.ensureEndAtLeast(datatypeIDs.size());
        std::memcpy(m_resourceData.getData(), data.data(), data.size());
        m_resourceDatatypeIDs.initialize(4096);
        m_resourceDatatypeIDs.ensureEndAtLeast(datatypeIDs.size());
        std::memcpy(static_cast<void*>(m_resourceDatatypeIDs.getData()), datatypeIDs.data(), datatypeIDs.size());
        m_dataPool.initialize(1 << 20);
        m_dataPool.setEnd(DataPool::FIRST_OFFSET + pool.size());
        std::memcpy(m_dataPool.getBase() + DataPool::FIRST_OFFSET, pool.data(), pool.size());
        m_nextResourceID.store(datatypeIDs.size());
    }

    MemoryManager m_memoryManager;
    std::atomic<uint64_t> m_nextResourceID{1};
    MemoryRegion<uint64_t> m_resourceData;
    MemoryRegion<std::atomic<uint8_t>> m_resourceDatatypeIDs;
    DataPool m_dataPool;
    std::string m_image;
};

}

}

/// flags; then changes
int fuzzDictionaryImage(const uint8_t* data, size_t size) {
    using namespace kavix;
    using namespace kavix::fuzz;
    static Shared s_narrow(makeSampleStore(ResourceIDWidth::BITS_32));
    static Shared s_wide(makeSampleStore(ResourceIDWidth::BITS_64));
    ThreadSlots::ensureSlot();
    Input input(data, size);
    const bool isNarrow = (input.take<uint8_t>() & 1) == 0;
    Shared& shared = isNarrow ? s_narrow : s_wide;
    std::string image = shared.m_image;
    for (int change = 0; change < 16 && !input.isEmpty(); ++change)
        changeImage(image, input);

    bool isAccepted = true;
    const uint64_t freeBytes = shared.m_memoryManager.getFreeBytes();
    try {
        MemoryInputStream stream(image);
        s_NumericDatatypeInspector.checkImage(
            stream, ImageLimits{image.size(), 4096, freeBytes}, [&isAccepted](std::string&&) { isAccepted = false; });
    }
    catch (const KavixException&) {
        isAccepted = false;
    }
    const std::unique_ptr<DictionaryDatatype> dictionary = s_NumericDatatypeFactory.createDictionaryDatatype(
        isNarrow, shared.m_memoryManager, shared.m_nextResourceID, shared.m_resourceData, shared.m_resourceDatatypeIDs,
        shared.m_dataPool);
    try {
        MemoryInputStream stream(image);
        dictionary->load(stream);
        require(!isAccepted || stream.getRemainingBytes() == 0, "an image that is accepted is read to its end");
    }
    catch (const SystemCallException&) {
        return 0; // more address space than there is
    }
    catch (const KavixException&) {
        require(!isAccepted, "an image that is accepted is loaded");
        return 0;
    }
    if (!isAccepted)
        return 0;
    bool isConsistent = true;
    const StoreContents contents{
        isNarrow,
        shared.m_nextResourceID.load(),
        shared.m_resourceData.getData(),
        shared.m_resourceDatatypeIDs.getData(),
        shared.m_dataPool.getBase(),
        shared.m_dataPool.getEnd()};
    s_NumericDatatypeInspector.verify(*dictionary, contents, [&isConsistent](std::string&&) { isConsistent = false; });
    MemoryOutputStream saved;
    dictionary->save(saved);
    require(
        saved.getContent().size() >= image.size(),
        "an image that was loaded can be saved"); // whole pages may follow the end
    if (isConsistent)
        for (uint64_t resourceID = 1; resourceID < contents.m_nextResourceID; ++resourceID) {
            const uint8_t datatypeID = contents.m_resourceDatatypeIDs[resourceID].load();
            if (datatypeID == D_NONE)
                continue;
            ResourceValue value;
            dictionary->getResource(resourceID, datatypeID, value);
            require(
                dictionary->tryResolveResource(Dictionary::EVERYTHING.toVisibility(), value) == resourceID,
                "every resource is found by its value");
        }
    return 0;
}
