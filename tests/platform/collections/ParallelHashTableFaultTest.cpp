#include "core/platform/errors/SystemCallException.h"
#include "platform/collections/TableFixtures.h"
#include "support/FaultInjection.h"
#include "support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

namespace kavix {

using test::AllTableFixtures;
using test::Call;
using test::CallHook;
using test::Fault;
using test::FaultPoint;
using test::TableFixtureNames;

template<typename Fixture>
class ParallelHashTableTest : public test::TableTest<Fixture> { };

TYPED_TEST_SUITE(ParallelHashTableTest, AllTableFixtures, TableFixtureNames);

TYPED_TEST(ParallelHashTableTest, EveryCallThatGrowthMakesMayFailAndTheNextInsertionSucceeds) {
    for (const Call call : {Call::MMAP, Call::MPROTECT}) {
        const uint64_t calls = test::failEach(call, [&](FaultPoint& point) {
            TypeParam fixture;
            uint64_t failures = 0;
            const Fault fault(point);
            for (uint64_t id = 1; id <= 3000; ++id) {
                const auto key = fixture.getKeyWithHash(id * 0x123456789abcdef);
                const size_t numberOfBuckets = fixture.m_table.getNumberOfBuckets();
                try {
                    fixture.insert(key, id);
                }
                catch (const SystemCallException&) {
                    ++failures;
                    EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), numberOfBuckets);
                    fixture.expectConsistent();
                    EXPECT_EQ(fixture.m_numberOfLiveBuckets, id - 1);
                    EXPECT_EQ(fixture.find(key), 0u);
                    ASSERT_EQ(fixture.insert(key, id).m_resourceID, id);
                    if (TypeParam::BUCKET_SIZE == 16) { // else the call may have been one for a record
                        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 2 * numberOfBuckets);
                    }
                }
            }
            EXPECT_LE(failures, 1u);
            fixture.expectConsistent();
            for (uint64_t id = 1; id <= 3000; ++id)
                ASSERT_EQ(fixture.find(fixture.getKeyWithHash(id * 0x123456789abcdef)), id);
        });
        EXPECT_GE(calls, 3u); // three doublings, at least a call each (those of records come on top)
    }
}

TYPED_TEST(ParallelHashTableTest, AThreadThatEntersWhileTheLeaderAllocatesWaitsAndFindsTheLargerTable) {
    for (const bool allocationFails : {false, true}) {
        SCOPED_TRACE(allocationFails);
        TypeParam fixture;
        for (uint64_t id = 1; id <= 700; ++id)
            fixture.insert(fixture.getKeyWithHash(id), id);
        const auto newKey = fixture.getKeyWithHash(800);
        const auto record = fixture.createKeyWord(newKey, 800); // beforehand: its pages are none of the calls below
        const auto createEntry = [&](const auto&) { return typename TypeParam::Table::Entry{record, 800}; };
        std::atomic<uint64_t> idFound{0};
        std::thread reader;
        {
            const test::Watchdog watchdog("a lookup during an allocation");
            const CallHook hook({Call::MPROTECT}, [&] {
                std::atomic<bool> isStarted{false};
                reader = std::thread([&fixture, &idFound, &isStarted] {
                    ThreadSlots::ensureSlot();
                    const auto key = fixture.getKeyWithHash(5);
                    isStarted = true;
                    idFound = fixture.find(key);
                });
                test::waitUntil([&] { return isStarted.load(); });
                test::letOthersRun();
                EXPECT_EQ(idFound, 0u); // its slot is stopped
                EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), 1024u);
            });
            if (allocationFails) {
                const Fault fault(Call::MPROTECT, 1);
                EXPECT_THROW(fixture.m_table.findOrInsert(newKey, createEntry), SystemCallException);
            }
            else
                EXPECT_EQ(fixture.m_table.findOrInsert(newKey, createEntry), 800u);
            ASSERT_TRUE(reader.joinable());
            reader.join();
        }
        EXPECT_EQ(idFound, 5u);
        EXPECT_EQ(fixture.m_table.getNumberOfBuckets(), allocationFails ? 1024u : 2048u);
        EXPECT_EQ(fixture.find(newKey), allocationFails ? 0u : 800u);
        fixture.expectConsistent();
    }
}

TYPED_TEST(ParallelHashTableTest, OthersJoinTheResizeOfALeaderAndOneRetriesWhereItFailed) {
    for (uint64_t failingCall = 1; failingCall <= 3; ++failingCall) {
        SCOPED_TRACE(failingCall);
        TypeParam fixture;
        const Fault fault(Call::MPROTECT, failingCall);
        std::atomic<uint64_t> failures{0};
        constexpr uint64_t KEYS_PER_THREAD = 1500;
        test::runThreads(4, [&](size_t threadIndex) {
            for (uint64_t id = threadIndex * KEYS_PER_THREAD + 1; id <= (threadIndex + 1) * KEYS_PER_THREAD; ++id) {
                const auto key = fixture.getKeyWithHash(id * 0x123456789abcdef);
                try {
                    ASSERT_EQ(fixture.insert(key, id).m_resourceID, id);
                }
                catch (const SystemCallException&) {
                    ++failures;
                    ASSERT_EQ(fixture.insert(key, id).m_resourceID, id);
                }
            }
        });
        EXPECT_EQ(failures, fault.wasHit() ? 1u : 0u); // the thread that made the call, and no other
        EXPECT_TRUE(fault.wasHit());
        fixture.expectConsistent();
        EXPECT_EQ(fixture.m_numberOfLiveBuckets, 4 * KEYS_PER_THREAD);
        for (uint64_t id = 1; id <= 4 * KEYS_PER_THREAD; ++id)
            ASSERT_EQ(fixture.find(fixture.getKeyWithHash(id * 0x123456789abcdef)), id);
    }
}

}
