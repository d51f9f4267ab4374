#include "core/platform/system/VMPageSize.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace kavix {

TEST(VMPageSize, IsAPowerOfTwo) {
    const size_t pageSize = getVMPageSize();
    EXPECT_GE(pageSize, 4096u);
    EXPECT_EQ(pageSize & (pageSize - 1), 0u);
    EXPECT_EQ(getVMPageSize(), pageSize);
}

}
