#pragma once

#include "core/data-store/dictionary/Literal.h"
#include "core/data-store/dictionary/Prefixes.h"
#include "core/data-store/dictionary/ResourceIDWidth.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/data-store/embedding/Snapshot.h"
#include "core/data-store/inspection/ProblemReport.h"
#include "core/data-store/inspection/TableStatistics.h"
#include "core/platform/system/Unmovable.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kavix {

class ComponentInfo;
class DictionaryState;
class InputStream;
class OutputStream;

/// A dictionary that stands alone: gives every literal a resource ID, finds the ID of a literal, returns the value of
/// an ID. Whatever is passed in, the result is an answer or an error.
///
/// Threads   Any number at once, at most 256 alive that have ever touched a dictionary, may resolve, look up and read;
///           each takes a thread slot by itself on first use. Construction and destruction need the dictionary to
///           oneself.
/// Failures  Every failure is a KavixException; the dictionary goes on as before the call.
class Dictionary : private Unmovable {

public:

    using Snapshot = kavix::Snapshot;

    /// A snapshot that sees everything.
    static constexpr Snapshot EVERYTHING{UINT64_MAX, UINT64_MAX};

    /// The smallest and, by width, the largest maxResourceID.
    static constexpr uint64_t MIN_MAX_RESOURCE_ID = 2048;
    static constexpr uint64_t MAX_RESOURCE_ID_32 = 0xfffffffeULL;
    static constexpr uint64_t MAX_RESOURCE_ID_64 = 1ULL << 40;
    static constexpr uint64_t DEFAULT_MAX_RESOURCE_ID_64 = 1ULL << 33;

    struct Options {

        /// How many bytes the dictionary may commit; an empty dictionary takes about 220 KB.
        uint64_t memoryBudgetBytes = 1ULL << 30;

        ResourceIDWidth resourceIDWidth = ResourceIDWidth::BITS_32;

        /// Resource IDs stay below this bound; 0 means 2^32 - 2 or 2^33, by width. It also sets how much address space
        /// (not memory) is reserved: about 49 bytes an ID.
        uint64_t maxResourceID = 0;

        /// Ask the system for huge pages; see MemoryRegion.
        bool useHugePages = true;
    };

    struct OpenOptions {

        /// How many bytes the dictionary may commit.
        uint64_t memoryBudgetBytes = 1ULL << 30;

        /// Refuse a store of another width.
        std::optional<ResourceIDWidth> resourceIDWidth;

        /// Verify every bucket and every resource, so that content made to do harm is refused too; otherwise only the
        /// structure and the checksums, which is enough for a store that this system wrote.
        bool checkEveryValue = true;

        /// As in Options.
        bool useHugePages = true;
    };

    /// @throws KavixException       an option is out of its range, or the budget does not hold an empty dictionary
    /// @throws SystemCallException  the address space cannot be reserved
    explicit Dictionary(const Options& options);

    ~Dictionary();

    /// Returns the resource ID of a literal and enters the literal under a new one if it is new. Commits by itself, and
    /// takes one ID; threads that enter many values do so in a Transaction.
    /// @param datatypeID  see getDatatypeID(); datatypes can also be given by IRI
    /// @throws KavixException  the datatype is unknown; the lexical form is invalid; a transaction runs; the IDs, the
    ///                         budget or the thread slots are exhausted: nothing was entered
    uint64_t resolve(std::string_view lexicalForm, uint8_t datatypeID);
    uint64_t resolve(std::string_view lexicalForm, std::string_view datatypeIRI) {
        return resolve(lexicalForm, getDatatypeID(datatypeIRI));
    }

    /// The same for a value in binary form, which is checked as a lexical form would be.
    uint64_t resolve(const ResourceValue& value);

    /// Returns the resource ID of a literal, or 0 if the literal is absent or not visible in the snapshot. Without a
    /// snapshot also what a running transaction has entered is found, which may be rolled back later.
    /// @throws KavixException  the datatype is unknown, the lexical form is invalid, the thread slots are exhausted
    uint64_t tryResolve(std::string_view lexicalForm, uint8_t datatypeID, const Snapshot& snapshot = EVERYTHING) const;
    uint64_t tryResolve(
        std::string_view lexicalForm, std::string_view datatypeIRI, const Snapshot& snapshot = EVERYTHING) const {
        return tryResolve(lexicalForm, getDatatypeID(datatypeIRI), snapshot);
    }
    uint64_t tryResolve(const ResourceValue& value, const Snapshot& snapshot = EVERYTHING) const;

    /// tryResolve() for many values of any datatypes, with the waits for memory overlapping: resourceIDs[i] becomes
    /// what tryResolve(values[i]) returns. Uses about 50 KB of stack.
    /// @param resourceIDs  one for each value; overlaps neither the values nor their data
    /// @throws as tryResolve() for the first value that fails: those before it have their IDs, and what stands in
    ///         resourceIDs from it on is unspecified
    void tryResolve(
        std::span<const ResourceValue> values, uint64_t* resourceIDs, const Snapshot& snapshot = EVERYTHING) const;

    /// The same for literals, each with an outcome of its own: its ID; or 0 and no error if it is absent or not
    /// visible; or the very error that tryResolve() throws for it.
    /// @param resolutions  one for each literal; overlaps neither the literals nor their characters
    /// @return how many have an error; all of them where the thread slots are exhausted
    size_t tryResolve(std::span<const Literal> literals, Resolution* resolutions, const Snapshot& snapshot = EVERYTHING)
        const noexcept;

    /// The datatype of a resource, D_NONE where no resource has the ID. Never throws.
    uint8_t tryGetResourceDatatypeID(uint64_t resourceID) const noexcept;

    /// The value, lexical form and Turtle literal of a resource.
    /// @throws KavixException  no resource has the ID
    ResourceValue getValue(uint64_t resourceID) const;
    std::string getLexicalForm(uint64_t resourceID) const;
    std::string getTurtleLiteral(uint64_t resourceID, const Prefixes& prefixes = Prefixes::s_defaultPrefixes) const;

    /// getValue() for many resources, with the waits for memory overlapping; but that nobody has an ID is no error: its
    /// value becomes a default-constructed one, with the datatype ID D_NONE.
    /// @param values  one for each ID; what they were before does not matter; do not overlap the IDs
    void getValues(std::span<const uint64_t> resourceIDs, ResourceValue* values) const;

    /// What is committed at this moment: it sees what was committed before, and never what is entered afterwards or by
    /// a transaction that runs now. Waits for single values that are being entered.
    Snapshot takeSnapshot() const noexcept;

    /// The ID and the IRI of a datatype.
    /// @throws KavixException  no family has the datatype
    static uint8_t getDatatypeID(std::string_view datatypeIRI);
    static std::string_view getDatatypeIRI(uint8_t datatypeID);

    /// Changes the memory budget; takes effect at once, while other threads work.
    /// @throws KavixException  more than that is in use: the budget is unchanged
    void setMemoryBudget(uint64_t memoryBudgetBytes);

    uint64_t getMemoryBudgetBytes() const noexcept;

    /// The bytes committed and charged to the budget at this moment.
    uint64_t getUsedBytes() const noexcept;

    ResourceIDWidth getResourceIDWidth() const noexcept;

    /// The number of resources by datatype ID, counted in the array of datatype IDs: a byte read for each ID ever given
    /// out. Exact while nobody resolves.
    std::array<uint64_t, 256> countResourcesByDatatypeID() const;

    /// The statistics trees of the families under one root.
    std::unique_ptr<ComponentInfo> getComponentInfo() const;

    /// The state of every table. Nobody may write meanwhile.
    std::vector<TableStatistics> getTableStatistics() const;

    /// Reports everything that is wrong with the dictionary, and nothing if it is sound. Nobody may write meanwhile.
    void verify(const ProblemReport& report) const;

    /// Writes the dictionary as a store. Nobody may write to the dictionary meanwhile; what a transaction has entered
    /// so far is part of the store. The stream is flushed.
    /// @throws what the stream throws
    void saveStore(OutputStream& output) const;

    /// Makes a dictionary of what saveStore() wrote. Nothing that is read is trusted before it was checked.
    /// @param input  from its beginning; must be able to rewind
    /// @throws KavixException  "The store cannot be opened: …" with the section and the reason; the budget is too small
    static std::unique_ptr<Dictionary> openStore(InputStream& input, const OpenOptions& options);

    /// Drops every resource but the ones to keep, and numbers these densely from 1 in their old order; gives the memory
    /// of the rest back to the budget. Snapshots taken before are void. Needs the dictionary to itself.
    /// @param isKept  called once for each resource, in the order of the IDs; what it throws ends the compaction
    /// @return the new resource ID of every old one below the old counter; 0 for those that are gone
    /// @throws KavixException  a transaction runs, or the budget is short of what is needed on the way (about 32 bytes
    ///                         a kept resource and the records of the kept decimals): the dictionary is as it was
    /// @throws std::bad_alloc  there is no memory for the result: the dictionary is as it was
    std::vector<uint64_t> compact(const std::function<bool(uint64_t resourceID)>& isKept);

private:

    friend class Transaction;
    friend class Restoration;

    const std::unique_ptr<DictionaryState> m_state;
};

}
