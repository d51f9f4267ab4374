#include "core/data-store/embedding/Dictionary.h"

#include "core/data-store/embedding/Transaction.h"
#include "core/platform/errors/SystemCallException.h"
#include "support/FaultInjection.h"
#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

bool isKept(uint64_t resourceID) {
    return resourceID % 3 == 1;
}

/// A store, and what a compaction makes of it.
class DictionaryCompactionTest : public ResourceIDWidthTest {

protected:

    DictionaryCompactionTest() :
        m_original(saveStore(*makeFilledDictionary(GetParam(), 3000))),
        m_expected(openStore(m_original)) {
        m_expected->compact(isKept);
    }

    /// Compacts a dictionary while a call fails. Where that is reported, the dictionary is unchanged, and a second
    /// compaction succeeds.
    /// @return the dictionary if the failure was not reported; otherwise null
    template<typename Exception>
    std::unique_ptr<Dictionary> compactWithFault(FaultPoint& point) {
        std::unique_ptr<Dictionary> dictionary = openStore(m_original);
        const uint64_t usedBytes = dictionary->getUsedBytes();
        bool hasThrown = false;
        {
            const Fault fault(point);
            try {
                dictionary->compact(isKept);
            }
            catch (const Exception&) {
                hasThrown = true;
            }
        }
        if (!hasThrown)
            return dictionary;
        EXPECT_EQ(saveStore(*dictionary), m_original);
        EXPECT_EQ(dictionary->getUsedBytes(), usedBytes);
        dictionary->compact(isKept);
        expectEqual(*dictionary, *m_expected);
        return nullptr;
    }

    const std::string m_original;
    const std::unique_ptr<Dictionary> m_expected;
};

INSTANTIATE_TEST_SUITE_P(Widths, DictionaryCompactionTest, ::testing::ValuesIn(BOTH_WIDTHS), getWidthName);

TEST_P(DictionaryCompactionTest, ASystemCallThatFailsLeavesTheDictionaryUnchanged) {
    for (const Call call : {Call::MMAP, Call::MPROTECT}) {
        uint64_t thrown = 0;
        failEach(call, [&](FaultPoint& point) {
            const std::unique_ptr<Dictionary> dictionary = compactWithFault<SystemCallException>(point);
            if (dictionary == nullptr) {
                ++thrown;
                return;
            }
            expectEqual(*dictionary, *m_expected);
            // Pages that the system refused to release show nothing of what they held.
            for (int i = 0; i < 3000; ++i)
                dictionary->resolve(std::to_string(i), D_XSD_LONG);
            Transaction transaction(*dictionary);
            transaction.resolve("-1", D_XSD_LONG);
            transaction.commit();
            EXPECT_EQ(findProblems(*dictionary), std::vector<std::string>());
            EXPECT_EQ(dictionary->countResourcesByDatatypeID()[D_XSD_LONG], 3001u);
            EXPECT_EQ(
                dictionary->countResourcesByDatatypeID()[D_XSD_DECIMAL],
                m_expected->countResourcesByDatatypeID()[D_XSD_DECIMAL]);
        });
        EXPECT_GE(thrown, 2u) << "the entries and the new pool";
    }
}

TEST_P(DictionaryCompactionTest, AnAllocationThatFailsLeavesTheDictionaryUnchanged) {
    failEach(Call::ALLOCATION, [&](FaultPoint& point) {
        const bool hasThrown = compactWithFault<std::bad_alloc>(point) == nullptr;
        EXPECT_EQ(hasThrown, point.wasHit());
    });
}

}

}
