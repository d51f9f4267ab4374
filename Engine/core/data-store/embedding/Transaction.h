#pragma once

#include "core/data-store/dictionary/Literal.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/platform/system/Unmovable.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace kavix {

class Dictionary;
class DictionaryState;
struct DictionaryUsageContext;
struct UsageContexts;

/// A writing transaction: what it enters becomes visible to new snapshots all at once with commit(), or is taken back.
/// One at a time for each dictionary; any number of threads may enter values through it, each with a usage context of
/// its own that the transaction keeps for it.
///
///   running --commit--> committed        running --rollback, or destruction--> rolled back
///
/// Invariant: the values it entered, and no others, have the resource IDs from its first ID on. It holds because the
/// dictionary takes no other new values while it runs, and its contexts begin and end with it.
/// Threads   resolve: any number at once. The rest: one thread, while nobody resolves.
class Transaction : private Unmovable {

public:

    /// Begins a transaction.
    /// @throws KavixException  another transaction runs, or the dictionary is being restored or compacted
    /// @throws std::bad_alloc  there is no memory for the usage contexts (16 KiB, which the budget does not count)
    explicit Transaction(Dictionary& dictionary);

    /// Rolls back unless committed. The thread must have a thread slot or be able to get one, as the one that began the
    /// transaction has; otherwise the process ends.
    ~Transaction();

    /// Returns the resource ID of a literal and enters the literal under a new one if it is new. New IDs are taken in
    /// blocks of 1024 for each thread, pool space in chunks of 64 KiB.
    /// @throws KavixException  the datatype is unknown; the lexical form is invalid; the IDs, the budget or the thread
    ///                         slots are exhausted; the transaction has ended: nothing was entered
    uint64_t resolve(std::string_view lexicalForm, uint8_t datatypeID);
    uint64_t resolve(std::string_view lexicalForm, std::string_view datatypeIRI);

    /// The same for a value in binary form, which is checked as a lexical form would be.
    uint64_t resolve(const ResourceValue& value);

    /// resolve() for many values of any datatypes, in order, with the waits for memory overlapping: resourceIDs[i]
    /// becomes what resolve(values[i]) returns, and new IDs are those of one value after the other. Absent values alone
    /// reserve room in their table, so a batch of present ones never makes a table grow. Uses about 50 KB of stack.
    /// @param resourceIDs  one for each value; overlaps neither the values nor their data
    /// @throws as resolve() for the first value that fails: those before it are entered and have their IDs, none from
    ///         it on is entered, and what stands in resourceIDs from it on is unspecified. An ended transaction throws
    ///         for no values, too
    void resolve(std::span<const ResourceValue> values, uint64_t* resourceIDs);

    /// The same for literals, each with an outcome of its own: its ID, or the very error that resolve() throws for it.
    /// One that fails stops none behind it; once IDs or memory run out, those that are present still get their IDs and
    /// those that are absent the error. Throws nothing and takes nothing from the heap where nothing fails.
    /// @param resolutions  one for each literal; overlaps neither the literals nor their characters
    /// @return how many have an error; all of them if the transaction has ended or the thread slots are exhausted
    size_t resolve(std::span<const Literal> literals, Resolution* resolutions) noexcept;

    /// Makes the values visible to snapshots taken from now on and ends the transaction.
    void commit() noexcept;

    /// Takes back every value that the transaction entered and ends it; values that existed before stay. The IDs are
    /// not used again. Costs one look-up for each value entered.
    /// @throws KavixException  the thread slots are exhausted: the transaction still runs
    void rollback();

    bool isRunning() const noexcept { return m_isRunning; }

private:

    DictionaryUsageContext& getOwnContext();

    DictionaryState& m_dictionary;
    const std::unique_ptr<UsageContexts> m_contexts; // before the transaction begins: allocating them may fail
    const uint64_t m_firstResourceID;
    bool m_isRunning;
};

}
