#pragma once

#include "core/data-store/dictionary/ResourceValue.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace kavix {

class Dictionary;
class DictionaryState;
struct UsageContexts;

/// Rebuilds a dictionary from a record of earlier resolutions: each value gets its earlier resource ID. It behaves like
/// a transaction: no other thread writes while it runs, and unless it is finished everything is rolled back.
/// Threads   restore: any number at once; if several restore one ID, one succeeds. The rest: one thread, while no
///           thread restores.
class Restoration : private Unmovable {

public:

    /// Begins to restore an empty dictionary.
    /// @param countsByDatatypeID  how many resources of each datatype to expect, by datatype ID; sizes the tables, and
    ///                            need not be exact; fewer than 256 counts are padded with zeroes
    /// @throws KavixException  the dictionary is not empty, a transaction is running, or the budget is too small: the
    ///                         dictionary is empty
    Restoration(Dictionary& dictionary, std::vector<uint64_t> countsByDatatypeID);

    /// Rolls everything back unless finished. The thread must have a thread slot or be able to get one (the one that
    /// began the restoration has one); otherwise the process terminates.
    ~Restoration();

    /// Enters a literal under an ID.
    /// @throws KavixException  the ID is out of range or already has a value; the value already has an ID; the literal
    ///                         is invalid; the budget or the thread slots are exhausted: nothing was entered
    void restore(uint64_t resourceID, std::string_view lexicalForm, uint8_t datatypeID);
    void restore(uint64_t resourceID, const ResourceValue& value);

    /// Commits: new IDs will follow the highest one restored.
    /// @throws KavixException  the restoration has ended
    void finish();

private:

    class EndOfTransaction;
    class ClaimedID;

    DictionaryState& m_dictionary;
    const std::unique_ptr<UsageContexts> m_contexts; // before the transaction begins: allocating them may fail
    bool m_isRunning;
    std::atomic<uint64_t> m_endOfResourceIDs; // one past the highest ID restored
};

}
