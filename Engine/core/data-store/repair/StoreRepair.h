#pragma once

#include "core/data-store/dictionary/DecimalRecord.h"
#include "core/data-store/dictionary/ResourceValue.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/inspection/ProblemReport.h"
#include "core/data-store/repair/DamagedStore.h"
#include "core/platform/system/Unmovable.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kavix {

/// Recovers what is reliable from a damaged store. A store holds everything twice: the arrays and the data pool have
/// the resources, and the tables have them again. What is recovered of a resource:
///
///   arrays intact              as in the arrays, or as in intact tables if the arrays have an invalid value
///   only the tables intact     as in the tables
///   neither intact             if both agree
///   a decimal, pool damaged    not recovered, since a record with a flipped bit cannot be told from an intact one;
///                              if the caller includes unverified decimals, recovered if its bucket is where the low
///                              bits of the hash lead
///
/// So, without unverified decimals, a wrong value is never recovered in place of a lost one. What is not recovered is
/// reported, each resource with the reason. Whatever the bytes are, nothing is read outside them. Uses about 10 bytes
/// for each resource ID, outside any budget. Immutable after construction; the store must outlive it.
class StoreRepair : private Unmovable {

public:

    using ResourceConsumer = std::function<void(uint64_t resourceID, const ResourceValue& value)>;

    /// @param store              readable
    /// @param includeUnverified  also recover decimals from a damaged data pool: most are right, some may not be
    explicit StoreRepair(const DamagedStore& store, bool includeUnverified = false);

    /// Passes every recoverable resource to consume and reports every other one, in the order of the IDs.
    void enumerate(const ResourceConsumer& consume, const ProblemReport& reportLoss) const;

    /// Makes a consistent dictionary of what can be recovered, under the same IDs, and reports the rest. Each loss is
    /// reported once.
    /// @param useHugePages  as in Dictionary::Options
    /// @throws KavixException  the budget is too small
    std::unique_ptr<Dictionary> rebuild(
        uint64_t memoryBudgetBytes, bool useHugePages, const ProblemReport& reportLoss) const;

private:

    /// What the arrays or the tables say about a resource.
    struct Claim {
        uint8_t m_datatypeID = 0;
        uint64_t m_data = 0; // an integer, or the offset of a record

        bool operator==(const Claim&) const = default;
    };

    void readTables();

    /// Returns the length of the table at a position in the image, or 0 if there is none.
    uint64_t readTable(uint64_t position, uint8_t datatypeID);

    void readBuckets(const uint8_t* buckets, uint64_t numberOfBuckets, uint8_t datatypeID);

    /// Whether a bucket is live; if so, also returns what it says.
    bool tryReadBucket(
        const uint8_t* bucket, uint8_t datatypeID, uint64_t& resourceID, Claim& claim, uint64_t& hash) const;

    Claim getArrayClaim(uint64_t resourceID) const;

    /// Decides about a resource that the arrays or the tables have. Returns why it cannot be recovered, or an empty
    /// text.
    std::string decide(uint64_t resourceID, ResourceValue& value) const;

    /// Returns why a claim is not a valid value of the resource, or an empty text.
    std::string decode(uint64_t resourceID, const Claim& claim, ResourceValue& value) const;

    /// The word that determines the state of a bucket: a resource ID or the offset of a record; 0 is empty.
    uint64_t readKeyWord(const uint8_t* bucket, uint8_t datatypeID) const;

    const DamagedStore& m_store;
    const bool m_includeUnverified;
    const bool m_areArraysIntact;
    const bool m_isPoolIntact;
    const DecimalRecord m_record;

    bool m_areTablesIntact;

    // By resource ID.
    std::vector<uint8_t> m_tableDatatypeIDs;
    std::vector<uint64_t> m_tableData;
    std::vector<bool> m_isReachable; // the bucket is where the hash leads
    std::vector<bool> m_isContradicted; // by another bucket
};

}
