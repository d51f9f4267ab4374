#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/errors/SystemCallException.h"
#include "support/FaultInjection.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

namespace kavix::test {

namespace {

/// Runs an operation with each of its allocations failing in turn; then it has succeeded.
template<typename Operation, typename Check>
void failEachAllocation(Operation operation, Check checkAfterFailure) {
    failEach(Call::ALLOCATION, [&](FaultPoint& point) {
        bool hasThrown = false;
        {
            const Fault fault(point);
            try {
                operation();
            }
            catch (const std::bad_alloc&) {
                hasThrown = true;
            }
        }
        ASSERT_EQ(hasThrown, point.wasHit());
        if (hasThrown)
            checkAfterFailure();
    });
}

TEST(Dictionary, TheNthSystemCallFailsDuringConstruction) {
    for (const Call call : {Call::MMAP, Call::MPROTECT}) {
        const uint64_t failures = failEach(call, [](FaultPoint& point) {
            const Fault fault(point);
            try {
                const Dictionary dictionary{Dictionary::Options()};
                ASSERT_FALSE(fault.wasHit());
            }
            catch (const SystemCallException& exception) {
                EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
            }
        });
        EXPECT_EQ(failures, call == Call::MMAP ? 3u + 14u : 14u); // shared objects reserve, tables commit
    }
}

TEST(Dictionary, ConstructionReturnsWhatItTook) {
    failEachAllocation([] { const Dictionary dictionary{Dictionary::Options()}; }, [] {});
}

TEST(Dictionary, StatisticsAreBuiltWholeOrNotAtAll) {
    Dictionary dictionary{Dictionary::Options()};
    std::unique_ptr<ComponentInfo> info;
    failEachAllocation([&] { info = dictionary.getComponentInfo(); }, [&] { EXPECT_EQ(info, nullptr); });
    EXPECT_EQ(info->getChildren()[0]->getChildren().size(), 14u);
}

TEST(Dictionary, ResolvingAllocatesNothing) {
    Dictionary dictionary{Dictionary::Options()};
    dictionary.resolve("0", D_XSD_INT); // the slot of this thread
    const Fault fault(Call::ALLOCATION, 1);
    for (int i = 0; i < 5; ++i)
        dictionary.resolve(std::string_view("0.12345").substr(0, static_cast<size_t>(3 + i)), D_XSD_DECIMAL);
    for (char digit = '1'; digit <= '9'; ++digit)
        dictionary.resolve(std::string_view(&digit, 1), D_XSD_INT);
    dictionary.tryResolve("7", D_XSD_INT);
    EXPECT_FALSE(fault.wasHit());
}

TEST(Dictionary, AnErrorThatCannotBeComposedLeavesTheBucketEmptyAndTheTableUsable) {
    Dictionary dictionary{Dictionary::Options()};
    dictionary.resolve("0", D_XSD_INT);
    const uint64_t budget = dictionary.getMemoryBudgetBytes();
    dictionary.setMemoryBudget(dictionary.getUsedBytes()); // a decimal needs a page of the pool
    failEach(Call::ALLOCATION, [&](FaultPoint& point) {
        bool isComposed = false;
        {
            const Fault fault(point);
            try {
                dictionary.resolve("0.5", D_XSD_DECIMAL);
                ADD_FAILURE() << "there was no memory for this";
            }
            catch (const KavixException&) {
                isComposed = true;
            }
            catch (const std::bad_alloc&) {
            }
        }
        EXPECT_NE(isComposed, point.wasHit());
        EXPECT_EQ(dictionary.tryResolve("0.5", D_XSD_DECIMAL), 0u); // would hang on a busy bucket
    });
    dictionary.setMemoryBudget(budget);
    EXPECT_EQ(dictionary.getLexicalForm(dictionary.resolve("0.5", D_XSD_DECIMAL)), "0.5");
}

}

}
