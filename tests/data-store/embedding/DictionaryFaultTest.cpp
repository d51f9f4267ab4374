#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "core/platform/errors/KavixException.h"
#include "support/AllocationInjection.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <new>
#include <string>

namespace kavix::test {

namespace {

/// Runs an operation with its n-th allocation failing, for n = 1, 2, ... until none fails; then it has succeeded.
template<typename Operation, typename Check>
void failEachAllocation(Operation operation, Check checkAfterFailure) {
    for (uint64_t n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        ASSERT_LT(n, 1000u);
        bool hasThrown = false;
        bool wasHit;
        {
            const AllocationFault fault(n);
            try {
                operation();
            }
            catch (const std::bad_alloc&) {
                hasThrown = true;
            }
            wasHit = fault.wasHit();
        }
        ASSERT_EQ(hasThrown, wasHit);
        if (!wasHit)
            return;
        checkAfterFailure();
    }
}

TEST(DictionaryAllocationFault, ConstructionReturnsWhatItTook) {
    failEachAllocation([] { const Dictionary dictionary{Dictionary::Options()}; }, [] {});
}

TEST(DictionaryAllocationFault, StatisticsAreBuiltWholeOrNotAtAll) {
    Dictionary dictionary{Dictionary::Options()};
    std::unique_ptr<ComponentInfo> info;
    failEachAllocation([&] { info = dictionary.getComponentInfo(); }, [&] { EXPECT_EQ(info, nullptr); });
    EXPECT_EQ(info->getChildren()[0]->getChildren().size(), 14u);
}

TEST(DictionaryAllocationFault, ResolvingAllocatesNothing) {
    Dictionary dictionary{Dictionary::Options()};
    dictionary.resolve("0", D_XSD_INT); // the slot of this thread
    const AllocationFault fault(1);
    for (int i = 0; i < 5; ++i)
        dictionary.resolve(std::string_view("0.12345").substr(0, static_cast<size_t>(3 + i)), D_XSD_DECIMAL);
    for (char digit = '1'; digit <= '9'; ++digit)
        dictionary.resolve(std::string_view(&digit, 1), D_XSD_INT);
    dictionary.tryResolve("7", D_XSD_INT);
    EXPECT_FALSE(fault.wasHit());
}

TEST(DictionaryAllocationFault, AnErrorThatCannotBeComposedLeavesTheBucketEmptyAndTheTableUsable) {
    Dictionary dictionary{Dictionary::Options()};
    dictionary.resolve("0", D_XSD_INT);
    const uint64_t budget = dictionary.getMemoryBudgetBytes();
    dictionary.setMemoryBudget(dictionary.getUsedBytes()); // a decimal needs a page of the pool
    for (uint64_t n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        ASSERT_LT(n, 1000u);
        bool isComposed = false;
        {
            const AllocationFault fault(n);
            try {
                dictionary.resolve("0.5", D_XSD_DECIMAL);
                ADD_FAILURE() << "there was no memory for this";
            }
            catch (const KavixException&) {
                isComposed = true;
            }
            catch (const std::bad_alloc&) {
                EXPECT_TRUE(fault.wasHit());
            }
        }
        EXPECT_EQ(dictionary.tryResolve("0.5", D_XSD_DECIMAL), 0u); // would hang on a busy bucket
        if (isComposed)
            break;
    }
    dictionary.setMemoryBudget(budget);
    EXPECT_EQ(dictionary.getLexicalForm(dictionary.resolve("0.5", D_XSD_DECIMAL)), "0.5");
}

}

}
