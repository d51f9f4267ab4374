#include "core/data-store/embedding/Dictionary.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/platform/errors/SystemCallException.h"
#include "support/FaultInjection.h"
#include "support/MixedBatches.h"
#include "support/MixedLiterals.h"
#include "support/MixedValues.h"
#include "support/ResourceIDWidths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

namespace kavix::test {

namespace {

constexpr Mixture CYCLE{"all datatypes in turn", [](size_t index) { return getMixedItem(index); }};

TEST(DictionaryBatch, WhatSucceedsAllocatesNothing) {
    const std::vector<ResourceValue> values = makeValues(CYCLE, 3000);
    const std::vector<LiteralText> texts = makeLiterals(CYCLE, 4000);
    const std::vector<Literal> literals = getLiterals(texts);
    std::vector<uint64_t> resourceIDs(values.size());
    std::vector<Resolution> resolutions(literals.size());
    std::vector<ResourceValue> found(values.size());
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    {
        const Fault fault(Call::ALLOCATION, 1);
        transaction.resolve(values, resourceIDs.data());
        dictionary.tryResolve(values, resourceIDs.data());
        EXPECT_EQ(transaction.resolve(literals, resolutions.data()), 0u);
        EXPECT_EQ(dictionary.tryResolve(literals, resolutions.data()), 0u);
        dictionary.getValues(resourceIDs, found.data());
        EXPECT_FALSE(fault.wasHit());
    }
    EXPECT_EQ(resolutions[2999].resourceID, resourceIDs[2999]);
}

TEST(DictionaryBatch, AnErrorThatCannotBeComposedIsTheErrorOfItsLiteralAlone) {
    std::vector<LiteralText> texts = makeLiterals(CYCLE, 30);
    for (size_t i = 0; i < 12; ++i)
        texts[i * 2] = makeInvalidLiteral(i);
    const std::vector<Literal> literals = getLiterals(texts);
    Dictionary dictionary(makeOptions());
    Transaction transaction(dictionary);
    const std::vector<Outcome> expected = resolveSingly(transaction, texts);
    failEach(Call::ALLOCATION, [&](FaultPoint& point) {
        std::vector<Resolution> resolutions(literals.size());
        size_t numberOfErrors;
        {
            const Fault fault(point);
            numberOfErrors = point.getNumber() % 2 == 0 ? transaction.resolve(literals, resolutions.data())
                                                        : dictionary.tryResolve(literals, resolutions.data());
        }
        EXPECT_EQ(numberOfErrors, 12u);
        size_t numberOfOthers = 0;
        for (size_t i = 0; i < literals.size(); ++i)
            try {
                EXPECT_EQ(resolutions[i].resourceID, expected[i].m_resourceID);
                EXPECT_EQ(resolutions[i].error != nullptr, !expected[i].m_error.empty());
                if (resolutions[i].error != nullptr)
                    std::rethrow_exception(resolutions[i].error);
            }
            catch (const KavixException& exception) {
                EXPECT_NE(expected[i].m_error.find(exception.what()), std::string::npos);
            }
            catch (const std::bad_alloc&) {
                ++numberOfOthers;
            }
        EXPECT_EQ(numberOfOthers, point.wasHit() ? 1u : 0u);
    });
}

/// Each literal has its ID but the first that was not entered, which has the error.
void expectOneError(const std::vector<Resolution>& resolutions, const std::vector<uint64_t>& found, size_t entered) {
    for (size_t i = 0; i < found.size(); ++i) {
        ASSERT_EQ(resolutions[i].resourceID, resolutions[i].error == nullptr ? found[i] : 0) << i;
        ASSERT_EQ(resolutions[i].error != nullptr, i == entered) << i;
    }
}

/// The values before the failure have their IDs; those after it are absent unless they are before it too.
void expectPrefix(const std::vector<uint64_t>& resourceIDs, const std::vector<uint64_t>& found, size_t entered) {
    const auto end = found.begin() + static_cast<ptrdiff_t>(entered);
    for (size_t i = 0; i < found.size(); ++i) {
        if (i < entered) {
            ASSERT_EQ(resourceIDs[i], found[i]) << i;
        }
        else if (found[i] != 0) {
            ASSERT_NE(std::find(found.begin(), end, found[i]), end) << i;
        }
    }
}

TEST(DictionaryBatch, TheNthSystemCallFailsInTheMiddleOfABatch) {
    const std::vector<ResourceValue> values = makeValues(CYCLE, 20000);
    const std::vector<LiteralText> texts = makeLiterals(CYCLE, 20000);
    const std::vector<Literal> literals = getLiterals(texts);
    for (const Call call : {Call::MMAP, Call::MPROTECT})
        for (const bool isOfLiterals : {false, true}) {
            SCOPED_TRACE(isOfLiterals ? "literals" : "values");
            const uint64_t failures = failEach(call, [&](FaultPoint& point) {
                Dictionary dictionary(makeOptions());
                Transaction transaction(dictionary);
                std::vector<uint64_t> resourceIDs(values.size(), 0);
                std::vector<Resolution> resolutions(values.size());
                size_t numberOfErrors = 0;
                {
                    const Fault fault(point);
                    try {
                        if (isOfLiterals)
                            numberOfErrors = transaction.resolve(literals, resolutions.data());
                        else
                            transaction.resolve(values, resourceIDs.data());
                    }
                    catch (const SystemCallException& exception) {
                        numberOfErrors = 1;
                        EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
                    }
                }
                ASSERT_EQ(numberOfErrors, point.wasHit() ? 1u : 0u); // no failure is swallowed, and it is one literal's
                std::vector<uint64_t> found(values.size());
                dictionary.tryResolve(values, found.data());
                size_t entered = 0;
                while (entered < found.size() && found[entered] != 0)
                    ++entered;
                isOfLiterals ? expectOneError(resolutions, found, entered) : expectPrefix(resourceIDs, found, entered);
                transaction.resolve(values, resourceIDs.data()); // succeeds now
                dictionary.tryResolve(values, found.data());
                ASSERT_EQ(found, resourceIDs);
                transaction.commit();
                expectConsistent(dictionary);
            });
            EXPECT_GE(failures, 4u); // the work really needed the call
        }
}

}

}
