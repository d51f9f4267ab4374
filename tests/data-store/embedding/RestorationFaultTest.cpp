#include "core/data-store/embedding/Restoration.h"

#include "core/data-store/embedding/Dictionary.h"
#include "core/platform/errors/SystemCallException.h"
#include "support/FaultInjection.h"
#include "support/SampleStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

TEST(Restoration, ARestorationThatCannotBeginLeavesAnEmptyDictionary) {
    std::vector<uint64_t> counts(256, 5000);
    for (const Call call : {Call::MMAP, Call::MPROTECT})
        EXPECT_EQ(
            failEach(
                call,
                [&](FaultPoint& point) {
                    const std::unique_ptr<Dictionary> dictionary = makeFilledDictionary(ResourceIDWidth::BITS_32, 0);
                    const std::string original = saveStore(*dictionary);
                    const uint64_t usedBytes = dictionary->getUsedBytes();
                    std::unique_ptr<Restoration> restoration;
                    bool hasThrown = false;
                    {
                        const Fault fault(point);
                        try {
                            restoration = std::make_unique<Restoration>(*dictionary, counts);
                        }
                        catch (const SystemCallException&) {
                            hasThrown = true;
                        }
                    }
                    if (hasThrown) {
                        EXPECT_EQ(dictionary->getUsedBytes(), usedBytes);
                        EXPECT_EQ(saveStore(*dictionary), original);
                        EXPECT_EQ(dictionary->resolve("5", D_XSD_INT), 1u);
                    }
                    ASSERT_EQ(point.wasHit(), hasThrown);
                }),
            14u)
            << "a call for each table";
}

}

}
