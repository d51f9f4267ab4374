#include "core/data-store/embedding/DictionaryFamily.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/embedding/Dictionary.h"
#include "support/NamesOnlyFamily.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

namespace kavix {

TEST(DictionaryFamily, LookUpsBesideFamiliesThatComeAndGoFindThemWholeOrNotAtAll) {
    const uint8_t numericID = Dictionary::getDatatypeID("http://www.w3.org/2001/XMLSchema#int");
    std::atomic<bool> isOver{false};
    std::atomic<uint64_t> numberOfLookUps{0};
    std::thread reader([&] {
        while (!isOver.load()) {
            const uint8_t datatypeID = DictionaryFamily::tryGetDatatypeID("http://example.org/visitor");
            EXPECT_TRUE(datatypeID == D_NONE || datatypeID == 240) << unsigned(datatypeID);
            EXPECT_EQ(DictionaryFamily::tryGetDatatypeID("http://www.w3.org/2001/XMLSchema#int"), numericID);
            EXPECT_GE(DictionaryFamily::getFamilies().size(), 1u);
            numberOfLookUps.fetch_add(1);
        }
    });
    for (int round = 0; round < 300 || numberOfLookUps.load() < 300; ++round)
        const test::NamesOnlyFamily family{{240, "http://example.org/visitor"}, {241, "http://example.org/another"}};
    isOver.store(true);
    reader.join();
    EXPECT_EQ(DictionaryFamily::tryGetDatatypeID("http://example.org/visitor"), D_NONE);
}

}
