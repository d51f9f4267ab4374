#pragma once

#include "core/data-store/dictionary/DictionaryUsageContext.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/system/MemoryRegion.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kavix {

class ComponentInfo;
class DataPool;
class DictionaryCompactionState;
class InputStream;
class OutputStream;

/// The dictionary of one family of datatypes in one store. It shares with the dictionaries of the other families the
/// counter of resource IDs, two arrays indexed by resource ID (the data word and the datatype ID of each resource) and
/// the data pool, all owned by the store.
///
/// Publication order of a new resource: data word, then datatype ID (release), then the entry by which its value is
/// found (release). A thread that observes the datatype ID also observes the data word; a thread that finds the value
/// observes both.
///
/// Operations trust their arguments: values are in range, datatype IDs belong to the family, resource IDs were
/// allocated by it. Every calling thread has a thread slot. resolve, tryResolve, getResource, restoreResource: any
/// number of threads at once. deleteUncommittedResourceID: while no reader's snapshot covers the resource.
/// getComponentInfo: any time. The rest, and destruction: no other thread in the dictionary.
class DictionaryDatatype : private Unmovable {

public:

    /// How many resource IDs a usage context takes at a time.
    static constexpr uint64_t RESOURCE_ID_BLOCK_SIZE = 1024;

    DictionaryDatatype(
        std::atomic<uint64_t>& nextResourceID, MemoryRegion<uint64_t>& resourceData,
        MemoryRegion<std::atomic<uint8_t>>& resourceDatatypeIDs, DataPool& dataPool) noexcept;

    virtual ~DictionaryDatatype();

    /// Makes the dictionary empty and sets the exclusive upper bound of resource IDs. The second argument is unused.
    virtual void initialize(uint64_t maxResourceID, uint64_t unused) = 0;

    /// Makes an initialised dictionary empty and sizes it for the number of resources of each datatype; at least 36
    /// counts, by datatype ID.
    virtual void restoreEmpty(const std::vector<uint64_t>& countsByDatatypeID) = 0;

    virtual uint64_t getNumberOfMappableEntriesInCompaction() = 0;

    /// Adds a resource of this dictionary, which is to get a new ID, to what a compaction keeps.
    virtual void prepareCompact(uint64_t resourceID, uint64_t newResourceID, DictionaryCompactionState& state) = 0;

    /// Replaces the content by the entries of the state, which are in ascending order of datatype ID. On failure the
    /// dictionary must be discarded.
    virtual void finishCompact(const DictionaryCompactionState& state) = 0;

    /// Rolls back a resource that an abandoned transaction entered: its value is no longer found.
    virtual void deleteUncommittedResourceID(
        const std::pair<uint64_t, uint64_t>& visibility, uint64_t resourceID, uint8_t datatypeID) = 0;

    /// The value of a resource, in binary form in the buffer of value.
    virtual void getResource(uint64_t resourceID, uint8_t datatypeID, ResourceValue& value) const = 0;

    /// The lexical form of a resource; replaces text.
    virtual void getResource(uint64_t resourceID, uint8_t datatypeID, std::string& text) const = 0;

    /// The resource ID of a value in binary form; 0 if it is absent or not below the visibility bounds: resource IDs
    /// below first and pool offsets below second are visible.
    virtual uint64_t tryResolveResource(
        const std::pair<uint64_t, uint64_t>& visibility, const ResourceValue& value) const noexcept = 0;

    /// The same for a lexical form. Throws if it is invalid.
    virtual uint64_t tryResolveResource(
        const std::pair<uint64_t, uint64_t>& visibility, const char* lexicalForm, size_t length,
        uint8_t datatypeID) const = 0;

    /// The resource ID of a value in binary form, entered under a new ID if it is absent. The context may be null.
    /// Throws if IDs or memory are exhausted: the value is absent.
    virtual uint64_t resolveResource(DictionaryUsageContext* context, const ResourceValue& value) = 0;

    /// The same for a lexical form. Throws if it is invalid, before anything is touched.
    virtual uint64_t resolveResource(
        DictionaryUsageContext* context, const char* lexicalForm, size_t length, uint8_t datatypeID) = 0;

    /// Enters a value in binary form under a given ID; does nothing if the value is present under any ID. Ignores the
    /// counter of resource IDs and the bound; the ID must be below the capacity of the shared arrays.
    virtual void restoreResource(DictionaryUsageContext* context, uint64_t resourceID, const ResourceValue& value) = 0;

    /// Writes and reads the image of the dictionary, without the shared objects. After a failed load it must be
    /// discarded.
    virtual void save(OutputStream& output) const = 0;
    virtual void load(InputStream& input) = 0;

    virtual std::unique_ptr<ComponentInfo> getComponentInfo() const = 0;

protected:

    /// Allocates resource IDs for one caller: from its context's block, or one at a time without a context.
    class ResourceIDGetter {

    public:

        ResourceIDGetter(DictionaryDatatype& dictionary, DictionaryUsageContext* context) noexcept :
            m_dictionary(dictionary),
            m_context(context) { }

        /// The next resource ID; both arrays are usable at it.
        /// @throws KavixException  "The capacity of Kavix for the number of resources has been exceeded.", or as
        ///                         MemoryRegion: no ID was taken
        uint64_t operator()() const {
            if (m_context == nullptr)
                return m_dictionary.allocateResourceID();
            if (!m_context->hasResourceID()) [[unlikely]] {
                m_context->m_resourceIDBlockNext = m_dictionary.allocateResourceIDBlock();
                m_context->m_resourceIDBlockEnd = m_context->m_resourceIDBlockNext + RESOURCE_ID_BLOCK_SIZE;
            }
            return m_context->takeResourceID();
        }

    private:

        DictionaryDatatype& m_dictionary;
        DictionaryUsageContext* const m_context;
    };

    ResourceIDGetter nextResourceIDGetter(DictionaryUsageContext* context) noexcept {
        return ResourceIDGetter(*this, context);
    }

    /// Publishes the array entries of a resource.
    void setResource(uint64_t resourceID, uint64_t data, uint8_t datatypeID) noexcept {
        m_resourceData[resourceID] = data;
        // Release. Pairs with the acquire loads of datatype IDs: a thread that observes the datatype ID also observes
        // the data word.
        m_resourceDatatypeIDs[resourceID].store(datatypeID, std::memory_order_release);
    }

    uint64_t m_maxResourceID; // exclusive bound of IDs allocated one at a time
    uint64_t m_maxResourceIDForBlocks; // exclusive bound of the first ID of a block: always 1024 less
    std::atomic<uint64_t>& m_nextResourceID;
    MemoryRegion<uint64_t>& m_resourceData;
    MemoryRegion<std::atomic<uint8_t>>& m_resourceDatatypeIDs;
    DataPool& m_dataPool;

private:

    uint64_t allocateResourceID();

    uint64_t allocateResourceIDBlock();

    /// Takes size consecutive IDs if the first is below the bound; otherwise throws the error of the site.
    uint64_t takeResourceIDs(uint64_t size, uint64_t bound, const ErrorSite& errorSite);
};

}
