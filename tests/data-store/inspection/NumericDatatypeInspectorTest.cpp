#include "core/data-store/inspection/NumericDatatypeInspector.h"

#include "core/platform/stream/MemoryInputStream.h"
#include "support/ExpectError.h"
#include "support/NumericImage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace kavix::test {

namespace {

TEST(NumericDatatypeInspector, AnImageIsComparedWithTheBudgetAsAWhole) {
    NumericImage image;
    image.m_maxResourceID = 4096;
    image.m_maxResourceIDForBlocks = 4096 - 1024;
    const std::string bytes = image.toBytes();
    const auto check = [&](uint64_t freeBytes) {
        MemoryInputStream input(bytes);
        s_NumericDatatypeInspector.checkImage(
            input, ImageLimits{bytes.size(), 4096, freeBytes}, [](std::string&& problem) { ADD_FAILURE() << problem; });
    };
    const uint64_t sizeOfTables = 8 * 1024 + 13 * 16 * 1024;
    EXPECT_NO_THROW(check(sizeOfTables));
    expectOutOfMemory(sizeOfTables - 1, 16 * 1024 - 1, 16 * 1024, [&] { check(sizeOfTables - 1); });
}

}

}
