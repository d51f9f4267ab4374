#include "core/data-store/embedding/Transaction.h"

#include "core/data-store/embedding/Dictionary.h"
#include "core/platform/errors/SystemCallException.h"
#include "support/FaultInjection.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kavix::test {

namespace {

TEST(Transaction, AFailureIsRolledBackWithTheRest) {
    Dictionary dictionary{Dictionary::Options()};
    std::vector<ResourceValue> values;
    for (int i = 0; i < 1500; ++i) {
        values.push_back(makeInteger(D_XSD_INT, i));
        values.push_back(makeDecimal(std::to_string(i) + ".5"));
    }
    const uint64_t earlierID = dictionary.resolve(values[0]);
    failEach(Call::MPROTECT, [&](FaultPoint& point) {
        bool hasThrown = false;
        {
            Transaction transaction(dictionary);
            const Fault fault(point);
            for (const ResourceValue& value : values) {
                try {
                    transaction.resolve(value);
                }
                catch (const SystemCallException&) {
                    hasThrown = true;
                    break;
                }
            }
        }
        ASSERT_EQ(point.wasHit(), hasThrown);
        ASSERT_EQ(dictionary.tryResolve(values[0]), earlierID);
        for (size_t i = 1; i < values.size(); ++i)
            ASSERT_EQ(dictionary.tryResolve(values[i]), 0u);
        const auto counts = dictionary.countResourcesByDatatypeID();
        EXPECT_EQ(counts[D_XSD_INT], 1u);
        EXPECT_EQ(counts[D_XSD_DECIMAL], 0u);
    });
    Transaction transaction(dictionary);
    for (const ResourceValue& value : values)
        transaction.resolve(value);
    transaction.commit();
    for (const ResourceValue& value : values)
        ASSERT_NE(dictionary.tryResolve(value), 0u);
}

}

}
