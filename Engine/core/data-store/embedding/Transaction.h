#pragma once

#include "core/data-store/dictionary/Literal.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/platform/system/Unmovable.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace kavix {

class Dictionary;
class DictionaryState;
struct DictionaryUsageContext;
struct UsageContexts;

/// A writing transaction: what it enters becomes visible to new snapshots all at once with commit(), or is rolled back.
/// A dictionary has at most one at a time; any number of threads may enter values through it, each with its own usage
/// context, which the transaction keeps.
///
///   running --commit--> committed        running --rollback, or destruction--> rolled back
///
/// Invariant: the values it entered, and no others, have the resource IDs from its first ID on. It holds because the
/// dictionary takes no other new values while it runs, and its contexts begin and end with it.
/// Threads   resolve: any number at once. The rest: one thread, while no thread resolves.
class Transaction : private Unmovable {

public:

    /// Begins a transaction.
    /// @throws KavixException  another transaction is running, or the dictionary is being restored or compacted
    /// @throws std::bad_alloc  there is no memory for the usage contexts (16 KiB, not charged to the budget)
    explicit Transaction(Dictionary& dictionary);

    /// Rolls back unless committed. The thread must have a thread slot or be able to get one (the one that began the
    /// transaction has one); otherwise the process terminates.
    ~Transaction();

    /// Returns the resource ID of a literal; a new literal is entered under a new ID. New IDs are taken in blocks of
    /// 1024 for each thread, pool space in chunks of 64 KiB.
    /// @throws KavixException  the datatype is unknown; the lexical form is invalid; the IDs, the budget or the thread
    ///                         slots are exhausted; the transaction has ended: nothing was entered
    uint64_t resolve(std::string_view lexicalForm, uint8_t datatypeID);
    uint64_t resolve(std::string_view lexicalForm, std::string_view datatypeIRI);

    /// The same for a value in binary form, which is validated like a lexical form.
    uint64_t resolve(const ResourceValue& value);

    /// resolve() for many values of any datatypes, in order, with cache misses overlapped: resourceIDs[i] becomes what
    /// resolve(values[i]) returns, and new IDs are the same as for one value after the other. Only absent values
    /// reserve room in their table, so a batch of present ones never makes a table grow. Uses about 50 KB of stack.
    /// @param resourceIDs  one for each value; must not overlap the values or their data
    /// @throws as resolve() for the first value that fails: those before it are entered and have their IDs, no value
    ///         from that index on is entered, and the contents of resourceIDs from that index on are unspecified. An
    ///         ended transaction also throws for an empty batch
    void resolve(std::span<const ResourceValue> values, uint64_t* resourceIDs);

    /// The same for literals, each with its own outcome: its ID, or exactly the error that resolve() throws for it.
    /// When one fails, later elements are still processed; once IDs or memory are exhausted, present literals still get
    /// their IDs and absent ones get the error. Never throws; does not allocate from the heap unless a literal fails.
    /// @param resolutions  one for each literal; must not overlap the literals or their characters
    /// @return the number of literals with an error; all of them if the transaction has ended or the thread slots are
    ///         exhausted
    size_t resolve(std::span<const Literal> literals, Resolution* resolutions) noexcept;

    /// Makes the values visible to later snapshots and ends the transaction.
    void commit() noexcept;

    /// Rolls back every value that the transaction entered and ends it; values that existed before stay. The IDs are
    /// not used again. Costs one lookup for each value entered.
    /// @throws KavixException  the thread slots are exhausted: the transaction is still running
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
