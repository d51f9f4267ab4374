#pragma once

#include "core/data-store/embedding/Dictionary.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

// Tests that run with both widths of resource IDs.

namespace kavix::test {

inline constexpr ResourceIDWidth BOTH_WIDTHS[] = {ResourceIDWidth::BITS_32, ResourceIDWidth::BITS_64};

inline Dictionary::Options makeOptions(
    ResourceIDWidth width = ResourceIDWidth::BITS_32, uint64_t maxResourceID = 1 << 20, bool useHugePages = false) {
    Dictionary::Options options;
    options.resourceIDWidth = width;
    options.maxResourceID = maxResourceID;
    options.useHugePages = useHugePages;
    return options;
}

/// The width is the parameter. A suite that derives from this is instantiated for BOTH_WIDTHS, and named by
/// getWidthName().
class ResourceIDWidthTest : public ::testing::TestWithParam<ResourceIDWidth> {

protected:

    static Dictionary::Options makeOptions(uint64_t maxResourceID = 1 << 20, bool useHugePages = false) {
        return test::makeOptions(GetParam(), maxResourceID, useHugePages);
    }
};

inline std::string getWidthName(const ::testing::TestParamInfo<ResourceIDWidth>& parameter) {
    return parameter.param == ResourceIDWidth::BITS_32 ? "Bits32" : "Bits64";
}

}
