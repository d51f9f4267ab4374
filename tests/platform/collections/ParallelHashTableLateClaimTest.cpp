// A thread finds a bucket empty, and another one claims it first. What comes between is brought about by a policy that
// runs a function just before the claim: the only place where a search asks for the key word of a bucket to change it.

#include "platform/collections/TableKits.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <utility>

namespace kavix {

// Named, as everything that a table's policy consists of: some functions of tables are kept for other programs.
namespace lateclaim {

/// What this thread does before its next claim, once.
inline thread_local std::function<void()> s_beforeClaim;

template<typename Entries>
class HookedEntries : public Entries {

public:

    struct Policy : Entries::Policy {

        using typename Entries::Policy::Bucket;
        using typename Entries::Policy::KeyWord;

        static std::atomic<KeyWord>& getKeyWord(Bucket& bucket) {
            if (s_beforeClaim)
                std::exchange(s_beforeClaim, nullptr)();
            return Entries::Policy::getKeyWord(bucket);
        }

        static const std::atomic<KeyWord>& getKeyWord(const Bucket& bucket) noexcept {
            return Entries::Policy::getKeyWord(bucket);
        }
    };

    Policy getPolicy() const { return Policy{Entries::getPolicy()}; }
};

template<typename R>
using HookedIntegers = test::TableKit<HookedEntries<test::IntegerEntries<R>>>;

template<typename R>
using HookedDecimals = test::TableKit<HookedEntries<test::DecimalEntries<R>>>;

using HookedKits = testing::Types<
    HookedIntegers<unsigned int>, HookedIntegers<unsigned long>, HookedDecimals<unsigned int>,
    HookedDecimals<unsigned long>>;

struct HookedKitNames {
    template<typename Kit>
    static std::string GetName(int number) {
        return std::string(Kit::BUCKET_SIZE == 16 ? "Integer" : "Decimal") + (number % 2 == 0 ? "32" : "64");
    }
};

}

using namespace lateclaim;

template<typename Kit>
class ParallelHashTableLateClaim : public test::TableTest<Kit> {

protected:

    using Entry = typename Kit::Table::Entry;

    /// This thread then holds reservations, so it looks for its keys in the short lane.
    ParallelHashTableLateClaim() { m_kit.insert(m_kit.getKeyWithHash(500), 1); }

    ~ParallelHashTableLateClaim() override { EXPECT_FALSE(s_beforeClaim); }

    /// Inserts a key; another thread does something between search and claim, and is done before the claim.
    auto insertAfter(const std::function<void()>& doBefore, uint64_t hash, uint64_t resourceID) {
        s_beforeClaim = [&doBefore] { test::runThreads(1, [&doBefore](size_t) { doBefore(); }); };
        return m_kit.insert(m_kit.getKeyWithHash(hash), resourceID);
    }

    /// Checks the counts; and that this thread has left, as a thread that makes the table grow stops its slot.
    void expectLeftConsistent(uint64_t numberOfLiveBuckets) {
        m_kit.expectConsistent();
        EXPECT_EQ(m_kit.m_numberOfLiveBuckets, numberOfLiveBuckets);
        test::runThreads(1, [this](size_t) {
            for (uint64_t id = 1000; id != 2000; ++id)
                m_kit.insert(m_kit.getKeyWithHash(id), id);
        });
        EXPECT_GE(m_kit.m_table.getNumberOfBuckets(), 2048u);
        m_kit.expectConsistent();
    }

    Kit m_kit;
};

TYPED_TEST_SUITE(ParallelHashTableLateClaim, HookedKits, HookedKitNames);

TYPED_TEST(ParallelHashTableLateClaim, TheSameKeyIsFound) {
    TypeParam& kit = this->m_kit;
    const auto insertion = this->insertAfter([&] { kit.insert(kit.getKeyWithHash(77), 5); }, 77, 6);
    EXPECT_EQ(insertion.m_resourceID, 5u);
    EXPECT_EQ(insertion.m_keyWord, 0u); // no second entry was created
    EXPECT_EQ(kit.find(kit.getKeyWithHash(77)), 5u);
    this->expectLeftConsistent(2);
}

TYPED_TEST(ParallelHashTableLateClaim, BehindAnotherKeyTheNextBucketIsTaken) {
    TypeParam& kit = this->m_kit;
    EXPECT_EQ(this->insertAfter([&] { kit.insert(kit.getKeyWithHash(77), 5); }, 77 + 1024, 6).m_resourceID, 6u);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(77)), 5u);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(77 + 1024)), 6u);
    EXPECT_NE(kit.getKeyWordAt(78), 0u);
    this->expectLeftConsistent(3);
}

TYPED_TEST(ParallelHashTableLateClaim, TheBucketBehindTheLastIsTheFirst) {
    TypeParam& kit = this->m_kit;
    EXPECT_EQ(this->insertAfter([&] { kit.insert(kit.getKeyWithHash(1023), 5); }, 2047, 6).m_resourceID, 6u);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(1023)), 5u);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(2047)), 6u);
    EXPECT_NE(kit.getKeyWordAt(0), 0u);
    this->expectLeftConsistent(3);
}

TYPED_TEST(ParallelHashTableLateClaim, SeveralKeysInARowArePassed) {
    TypeParam& kit = this->m_kit;
    const auto insertFour = [&] {
        for (uint64_t index = 0; index != 4; ++index)
            kit.insert(kit.getKeyWithHash(77 + 1024 * index), 5 + index);
    };
    EXPECT_EQ(this->insertAfter(insertFour, 77 + 1024 * 3, 20).m_resourceID, 8u); // the fourth of them
    this->expectLeftConsistent(5);
}

TYPED_TEST(ParallelHashTableLateClaim, ABucketThatIsGivenUpIsTaken) {
    TypeParam& kit = this->m_kit;
    std::atomic<bool> isClaimed{false};
    std::thread other;
    s_beforeClaim = [&] {
        other = std::thread([&] {
            ThreadSlots::ensureSlot();
            EXPECT_THROW(
                kit.m_table.findOrInsert(
                    kit.getKeyWithHash(77),
                    [&](const auto&) -> typename TypeParam::Table::Entry {
                        isClaimed = true;
                        test::letOthersRun(); // this bucket is waited for
                        throw std::bad_alloc();
                    }),
                std::bad_alloc);
        });
        test::waitUntil([&] { return isClaimed.load(); });
    };
    EXPECT_EQ(kit.insert(kit.getKeyWithHash(77), 6).m_resourceID, 6u);
    other.join();
    EXPECT_EQ(kit.find(kit.getKeyWithHash(77)), 6u);
    EXPECT_EQ(kit.getKeyWordAt(78), 0u);
    this->expectLeftConsistent(2);
}

TYPED_TEST(ParallelHashTableLateClaim, AResizeThatIsBeingPreparedWaits) {
    TypeParam& kit = this->m_kit;
    std::atomic<bool> isGrown{false};
    std::thread leader;
    s_beforeClaim = [&] {
        std::thread([&] {
            ThreadSlots::ensureSlot();
            kit.insert(kit.getKeyWithHash(77), 5);
        }).join();
        leader = std::thread([&] {
            ThreadSlots::ensureSlot();
            for (uint64_t id = 3000; id != 3800; ++id)
                kit.insert(kit.getKeyWithHash(id), id);
            isGrown = true;
        });
        test::letOthersRun();
        EXPECT_FALSE(isGrown); // it waits for our slot
    };
    EXPECT_EQ(kit.insert(kit.getKeyWithHash(77 + 1024), 6).m_resourceID, 6u);
    leader.join();
    EXPECT_EQ(kit.find(kit.getKeyWithHash(77)), 5u);
    EXPECT_EQ(kit.find(kit.getKeyWithHash(77 + 1024)), 6u);
    EXPECT_GE(kit.m_table.getNumberOfBuckets(), 2048u);
    kit.expectConsistent();
    EXPECT_EQ(kit.m_numberOfLiveBuckets, 1u + 2u + 800u);
}

}
