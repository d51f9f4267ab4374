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
#include <cstddef>
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

/// A self-contained dictionary: assigns a resource ID to every literal, finds the ID of a literal, returns the value of
/// an ID. Whatever is passed in, the result is an answer or an error.
///
/// Threads   Any number at once may resolve, look up and read, with at most 256 threads alive that have ever used a
///           dictionary; each takes a thread slot automatically on first use. Construction and destruction require
///           exclusive use of the dictionary.
/// Failures  Every failure is a KavixException; the dictionary remains usable as before the call.
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

        /// Resource IDs stay below this bound; 0 means 2^32 - 2 or 2^33, by width. It also determines how much address
        /// space (not memory) is reserved: about 49 bytes per ID.
        uint64_t maxResourceID = 0;

        /// Request huge pages from the system; see MemoryRegion.
        bool useHugePages = true;
    };

    struct OpenOptions {

        /// How many bytes the dictionary may commit.
        uint64_t memoryBudgetBytes = 1ULL << 30;

        /// Refuse a store of any other width.
        std::optional<ResourceIDWidth> resourceIDWidth;

        /// Verify every bucket and every resource, so that malicious content is refused too; otherwise only the
        /// structure and the checksums are verified, which is enough for a store that this system wrote.
        bool checkEveryValue = true;

        /// As in Options.
        bool useHugePages = true;
    };

    /// @throws KavixException       an option is out of range, or the budget is too small for an empty dictionary
    /// @throws SystemCallException  the address space cannot be reserved
    explicit Dictionary(const Options& options);

    ~Dictionary();

    /// Returns the resource ID of a literal; a new literal is entered under a new ID. Commits by itself and takes one
    /// ID; threads that enter many values do so in a Transaction.
    /// @param datatypeID  see getDatatypeID(); datatypes can also be given by IRI
    /// @throws KavixException  the datatype is unknown; the lexical form is invalid; a transaction is running; the IDs,
    ///                         the budget or the thread slots are exhausted: nothing was entered
    uint64_t resolve(std::string_view lexicalForm, uint8_t datatypeID);
    uint64_t resolve(std::string_view lexicalForm, std::string_view datatypeIRI) {
        return resolve(lexicalForm, getDatatypeID(datatypeIRI));
    }

    /// The same for a value in binary form, which is validated like a lexical form.
    uint64_t resolve(const ResourceValue& value);

    /// Returns the resource ID of a literal, or 0 if the literal is absent or not visible in the snapshot. Without a
    /// snapshot, values that a running transaction has entered are found too, although they may be rolled back later.
    /// @throws KavixException  the datatype is unknown, the lexical form is invalid, the thread slots are exhausted
    uint64_t tryResolve(std::string_view lexicalForm, uint8_t datatypeID, const Snapshot& snapshot = EVERYTHING) const;
    uint64_t tryResolve(
        std::string_view lexicalForm, std::string_view datatypeIRI, const Snapshot& snapshot = EVERYTHING) const {
        return tryResolve(lexicalForm, getDatatypeID(datatypeIRI), snapshot);
    }
    uint64_t tryResolve(const ResourceValue& value, const Snapshot& snapshot = EVERYTHING) const;

    /// tryResolve() for many values of any datatypes, with cache misses overlapped: resourceIDs[i] becomes what
    /// tryResolve(values[i]) returns. Uses about 50 KB of stack.
    /// @param resourceIDs  one for each value; must not overlap the values or their data
    /// @throws as tryResolve() for the first value that fails: the values before it have their IDs, and the contents of
    ///         resourceIDs from that index on are unspecified
    void tryResolve(
        std::span<const ResourceValue> values, uint64_t* resourceIDs, const Snapshot& snapshot = EVERYTHING) const;

    /// The same for literals, each with its own outcome: its ID; or 0 and no error if it is absent or not visible; or
    /// exactly the error that tryResolve() throws for it.
    /// @param resolutions  one for each literal; must not overlap the literals or their characters
    /// @return the number of literals with an error; all of them if the thread slots are exhausted
    size_t tryResolve(std::span<const Literal> literals, Resolution* resolutions, const Snapshot& snapshot = EVERYTHING)
        const noexcept;

    /// The datatype of a resource, or D_NONE if no resource has the ID. Never throws.
    uint8_t tryGetResourceDatatypeID(uint64_t resourceID) const noexcept;

    /// The value, lexical form and Turtle literal of a resource.
    /// @throws KavixException  no resource has the ID
    ResourceValue getValue(uint64_t resourceID) const;
    std::string getLexicalForm(uint64_t resourceID) const;
    std::string getTurtleLiteral(uint64_t resourceID, const Prefixes& prefixes = Prefixes::s_defaultPrefixes) const;

    /// getValue() for many resources, with cache misses overlapped. An unknown ID is not an error: its value becomes a
    /// default-constructed one, with the datatype ID D_NONE.
    /// @param values  one for each ID; their previous contents are ignored; must not overlap the IDs
    void getValues(std::span<const uint64_t> resourceIDs, ResourceValue* values) const;

    /// A snapshot of what is committed now: it sees everything committed before, and nothing that is entered afterwards
    /// or by a transaction that is now running. Waits for single values that are being entered.
    Snapshot takeSnapshot() const noexcept;

    /// The ID and the IRI of a datatype.
    /// @throws KavixException  no family has the datatype
    static uint8_t getDatatypeID(std::string_view datatypeIRI);
    static std::string_view getDatatypeIRI(uint8_t datatypeID);

    /// Changes the memory budget; takes effect immediately, while other threads work.
    /// @throws KavixException  more bytes are in use: the budget is unchanged
    void setMemoryBudget(uint64_t memoryBudgetBytes);

    uint64_t getMemoryBudgetBytes() const noexcept;

    /// The number of bytes currently committed and charged to the budget.
    uint64_t getUsedBytes() const noexcept;

    ResourceIDWidth getResourceIDWidth() const noexcept;

    /// The number of resources by datatype ID, counted in the array of datatype IDs: reads one byte for each ID ever
    /// allocated. Exact while no thread resolves.
    std::array<uint64_t, 256> countResourcesByDatatypeID() const;

    /// The statistics trees of the families, under one root.
    std::unique_ptr<ComponentInfo> getComponentInfo() const;

    /// The state of every table. No thread may write during the call.
    std::vector<TableStatistics> getTableStatistics() const;

    /// Reports everything that is wrong with the dictionary; reports nothing if it is consistent. No thread may write
    /// during the call.
    void verify(const ProblemReport& report) const;

    /// Writes the dictionary as a store. No thread may write to the dictionary during the call; what a running
    /// transaction has entered so far becomes part of the store. The stream is flushed.
    /// @throws what the stream throws
    void saveStore(OutputStream& output) const;

    /// Creates a dictionary from what saveStore() wrote. No input is trusted before it is checked.
    /// @param input  positioned at its beginning; must be able to rewind
    /// @throws KavixException  "The store cannot be opened: …" with the section and the reason; the budget is too small
    static std::unique_ptr<Dictionary> openStore(InputStream& input, const OpenOptions& options);

    /// Drops every resource except those to keep, and renumbers these densely from 1 in their old order; returns the
    /// memory of the others to the budget. Earlier snapshots become invalid. Requires exclusive use of the dictionary.
    /// @param isKept  called once for each resource, in the order of the IDs; if it throws, the compaction ends
    /// @return the new resource ID of every old one below the old counter; 0 for those that were dropped
    /// @throws KavixException  a transaction is running, or the budget is too small for the intermediate data (about 32
    ///                         bytes per kept resource and the records of the kept decimals): the dictionary is
    ///                         unchanged
    /// @throws std::bad_alloc  there is no memory for the result: the dictionary is unchanged
    std::vector<uint64_t> compact(const std::function<bool(uint64_t resourceID)>& isKept);

private:

    friend class Transaction;
    friend class Restoration;

    const std::unique_ptr<DictionaryState> m_state;
};

}
