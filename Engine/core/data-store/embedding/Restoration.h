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

/// Rebuilds a dictionary from a record of earlier resolutions: each value gets the resource ID that it had.
/// It acts like a transaction: nobody else writes meanwhile, and unless it is finished everything is taken back.
/// Threads   restore: any number at once; of several that restore one ID, one succeeds. The rest: one thread, while
///           nobody restores.
class Restoration : private Unmovable {

public:

    /// Begins to restore an empty dictionary.
    /// @param countsByDatatypeID  how many resources of each datatype will come, by datatype ID; sizes the tables, and
    ///                            may be wrong; fewer than 256 counts are filled up with zeroes
    /// @throws KavixException  the dictionary is not empty, a transaction runs, or the budget is short: the dictionary
    ///                         is empty
    Restoration(Dictionary& dictionary, std::vector<uint64_t> countsByDatatypeID);

    /// Takes everything back unless finished. The thread must have a thread slot or be able to get one, as the one that
    /// began has; otherwise the process ends.
    ~Restoration();

    /// Enters a literal under an ID.
    /// @throws KavixException  the ID is out of range or has a value already; the value has an ID already; the literal
    ///                         is invalid; the budget or the thread slots are exhausted: nothing was entered
    void restore(uint64_t resourceID, std::string_view lexicalForm, uint8_t datatypeID);
    void restore(uint64_t resourceID, const ResourceValue& value);

    /// Commits: new IDs will come after the highest one restored.
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
