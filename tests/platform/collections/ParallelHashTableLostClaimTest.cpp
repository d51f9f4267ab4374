// A thread finds a bucket empty and loses the claim race for it. The schedule is forced by a policy that runs a
// function just before the claim: the only place where a search asks for the key word of a bucket to change it.

#include "platform/collections/TableFixtures.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <new>
#include <thread>
#include <utility>

namespace kavix {

// Named, as everything that a table's policy consists of: some functions of tables are kept for other programs.
namespace lostclaim {

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

using HookedFixtures = testing::Types<
    test::TableFixture<HookedEntries<test::EntriesInBuckets<unsigned int>>>,
    test::TableFixture<HookedEntries<test::EntriesInBuckets<unsigned long>>>,
    test::TableFixture<HookedEntries<test::EntriesInRecords>>>;

}

using namespace lostclaim;

template<typename Fixture>
class ParallelHashTableLostClaimTest : public test::TableTest<Fixture> {

protected:

    using Entry = typename Fixture::Table::Entry;

    /// This thread then holds reservations, so it looks for its keys on the fast path.
    ParallelHashTableLostClaimTest() { m_fixture.insert(m_fixture.getKeyWithHash(500), 1); }

    ~ParallelHashTableLostClaimTest() override { EXPECT_FALSE(s_beforeClaim); }

    /// Inserts a key; another thread does something between search and claim, and is done before the claim.
    auto insertAfter(const std::function<void()>& doBefore, uint64_t hash, uint64_t resourceID) {
        s_beforeClaim = [&doBefore] { test::runThreads(1, [&doBefore](size_t) { doBefore(); }); };
        return m_fixture.insert(m_fixture.getKeyWithHash(hash), resourceID);
    }

    /// Checks the counts; and that this thread has left, as a thread that makes the table grow stops its slot.
    void expectLeftConsistent(uint64_t numberOfLiveBuckets) {
        m_fixture.expectConsistent();
        EXPECT_EQ(m_fixture.m_numberOfLiveBuckets, numberOfLiveBuckets);
        test::runThreads(1, [this](size_t) {
            for (uint64_t id = 1000; id != 2000; ++id)
                m_fixture.insert(m_fixture.getKeyWithHash(id), id);
        });
        EXPECT_GE(m_fixture.m_table.getNumberOfBuckets(), 2048u);
        m_fixture.expectConsistent();
    }

    Fixture m_fixture;
};

TYPED_TEST_SUITE(ParallelHashTableLostClaimTest, HookedFixtures, test::TableFixtureNames);

TYPED_TEST(ParallelHashTableLostClaimTest, TheSameKeyIsFound) {
    TypeParam& fixture = this->m_fixture;
    const auto insertion = this->insertAfter([&] { fixture.insert(fixture.getKeyWithHash(77), 5); }, 77, 6);
    EXPECT_EQ(insertion.m_resourceID, 5u);
    EXPECT_EQ(insertion.m_keyWord, 0u); // no second entry was created
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(77)), 5u);
    this->expectLeftConsistent(2);
}

TYPED_TEST(ParallelHashTableLostClaimTest, AfterAnotherKeyTheNextBucketIsTaken) {
    TypeParam& fixture = this->m_fixture;
    EXPECT_EQ(this->insertAfter([&] { fixture.insert(fixture.getKeyWithHash(77), 5); }, 77 + 1024, 6).m_resourceID, 6u);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(77)), 5u);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(77 + 1024)), 6u);
    EXPECT_NE(fixture.getKeyWordAt(78), 0u);
    this->expectLeftConsistent(3);
}

TYPED_TEST(ParallelHashTableLostClaimTest, TheBucketAfterTheLastIsTheFirst) {
    TypeParam& fixture = this->m_fixture;
    EXPECT_EQ(this->insertAfter([&] { fixture.insert(fixture.getKeyWithHash(1023), 5); }, 2047, 6).m_resourceID, 6u);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(1023)), 5u);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(2047)), 6u);
    EXPECT_NE(fixture.getKeyWordAt(0), 0u);
    this->expectLeftConsistent(3);
}

TYPED_TEST(ParallelHashTableLostClaimTest, SeveralKeysInARowArePassed) {
    TypeParam& fixture = this->m_fixture;
    const auto insertFour = [&] {
        for (uint64_t index = 0; index != 4; ++index)
            fixture.insert(fixture.getKeyWithHash(77 + 1024 * index), 5 + index);
    };
    EXPECT_EQ(this->insertAfter(insertFour, 77 + 1024 * 3, 20).m_resourceID, 8u); // the fourth of them
    this->expectLeftConsistent(5);
}

TYPED_TEST(ParallelHashTableLostClaimTest, ABucketThatIsGivenUpIsTaken) {
    TypeParam& fixture = this->m_fixture;
    std::atomic<bool> isClaimed{false};
    std::thread other;
    s_beforeClaim = [&] {
        other = std::thread([&] {
            ThreadSlots::ensureSlot();
            EXPECT_THROW(
                fixture.m_table.findOrInsert(
                    fixture.getKeyWithHash(77),
                    [&](const auto&) -> typename TypeParam::Table::Entry {
                        isClaimed = true;
                        test::letOthersRun(); // this bucket is waited for
                        throw std::bad_alloc();
                    }),
                std::bad_alloc);
        });
        test::waitUntil([&] { return isClaimed.load(); });
    };
    EXPECT_EQ(fixture.insert(fixture.getKeyWithHash(77), 6).m_resourceID, 6u);
    other.join();
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(77)), 6u);
    EXPECT_EQ(fixture.getKeyWordAt(78), 0u);
    this->expectLeftConsistent(2);
}

TYPED_TEST(ParallelHashTableLostClaimTest, AResizeThatIsBeingPreparedWaits) {
    TypeParam& fixture = this->m_fixture;
    std::atomic<bool> isGrown{false};
    std::thread leader;
    s_beforeClaim = [&] {
        std::thread([&] {
            ThreadSlots::ensureSlot();
            fixture.insert(fixture.getKeyWithHash(77), 5);
        }).join();
        leader = std::thread([&] {
            ThreadSlots::ensureSlot();
            for (uint64_t id = 3000; id != 3800; ++id)
                fixture.insert(fixture.getKeyWithHash(id), id);
            isGrown = true;
        });
        test::letOthersRun();
        EXPECT_FALSE(isGrown); // it waits for our slot
    };
    EXPECT_EQ(fixture.insert(fixture.getKeyWithHash(77 + 1024), 6).m_resourceID, 6u);
    leader.join();
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(77)), 5u);
    EXPECT_EQ(fixture.find(fixture.getKeyWithHash(77 + 1024)), 6u);
    EXPECT_GE(fixture.m_table.getNumberOfBuckets(), 2048u);
    fixture.expectConsistent();
    EXPECT_EQ(fixture.m_numberOfLiveBuckets, 1u + 2u + 800u);
}

}
