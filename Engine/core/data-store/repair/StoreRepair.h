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

/// Gets out of a damaged store what can be relied upon. A store says everything twice: the arrays and the data pool
/// have the resources, and the tables have them again. What is saved of a resource:
///
///   arrays sound               as the arrays have it, or as sound tables have it where that is no value
///   only the tables sound      as the tables have it
///   neither sound              where both agree
///   a decimal, pool damaged    not at all, since nothing tells a record with a flipped bit from a sound one; or, where
///                              the caller takes what is unconfirmed, if its bucket is where the low bits of the hash
///                              lead
///
/// So, without unconfirmed decimals, no wrong value is saved in place of a lost one. What is not saved is reported,
/// each resource with the reason. Whatever the bytes are, nothing is read outside them. Takes about 10 bytes for each
/// resource ID beyond any budget. Immutable after construction; the store must live as long.
class StoreRepair : private Unmovable {

public:

    using ResourceConsumer = std::function<void(uint64_t resourceID, const ResourceValue& value)>;

    /// @param store                 readable
    /// @param isTakingUnconfirmed  save decimals out of a damaged data pool: most are right, some may not be
    explicit StoreRepair(const DamagedStore& store, bool isTakingUnconfirmed = false);

    /// Hands out every resource that can be saved, and reports every one that cannot, in the order of the IDs.
    void enumerate(const ResourceConsumer& consume, const ProblemReport& reportLoss) const;

    /// Makes a sound dictionary of what can be saved, under the same IDs, and reports the rest. Each loss is reported
    /// once.
    /// @param useHugePages  as in Dictionary::Options
    /// @throws KavixException  the budget is too small
    std::unique_ptr<Dictionary> rebuild(
        uint64_t memoryBudgetBytes, bool useHugePages, const ProblemReport& reportLoss) const;

private:

    /// What the arrays or the tables say of a resource.
    struct Claim {
        uint8_t m_datatypeID = 0;
        uint64_t m_data = 0; // an integer, or the offset of a record

        bool operator==(const Claim&) const = default;
    };

    void readTables();

    /// Returns the length of the table at a position in the image, or 0 if there is none.
    uint64_t readTable(uint64_t position, uint8_t datatypeID);

    void readBuckets(const uint8_t* buckets, uint64_t numberOfBuckets, uint8_t datatypeID);

    /// Whether a bucket is live, and then what it says.
    bool tryReadBucket(
        const uint8_t* bucket, uint8_t datatypeID, uint64_t& resourceID, Claim& claim, uint64_t& hash) const;

    Claim getArrayClaim(uint64_t resourceID) const;

    /// Decides about a resource that somebody claims. Returns why it cannot be saved, or an empty text.
    std::string decide(uint64_t resourceID, ResourceValue& value) const;

    /// Returns why a claim is no value of the resource, or an empty text.
    std::string decode(uint64_t resourceID, const Claim& claim, ResourceValue& value) const;

    /// What tells the state of a bucket: a resource ID or the offset of a record; 0 is empty.
    uint64_t readKeyWord(const uint8_t* bucket, uint8_t datatypeID) const;

    const DamagedStore& m_store;
    const bool m_isTakingUnconfirmed;
    const bool m_areArraysSound;
    const bool m_isPoolSound;
    const DecimalRecord m_record;

    bool m_areTablesSound;

    // By resource ID.
    std::vector<uint8_t> m_tableDatatypeIDs;
    std::vector<uint64_t> m_tableData;
    std::vector<bool> m_isReachable; // the bucket is where the hash leads
    std::vector<bool> m_isContradicted; // by another bucket
};

}
