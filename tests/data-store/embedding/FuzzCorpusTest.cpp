// Mirrors fuzz/corpus, and is in this room because the fuzzers open stores.
//
// The inputs that the fuzzers began with and those that once broke something, replayed. A fuzzer aborts where a promise
// is broken; here it is enough that it returns.

#include "Fuzzers.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

/// Returns how many inputs there are.
size_t replay(const std::string& folder, int (*fuzz)(const uint8_t*, size_t)) {
    size_t numberOfInputs = 0;
    for (const std::filesystem::directory_entry& entry :
         std::filesystem::directory_iterator(KAVIX_FUZZ_CORPUS "/" + folder)) {
        SCOPED_TRACE(entry.path().string());
        std::ifstream input(entry.path(), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
        EXPECT_EQ(fuzz(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
        ++numberOfInputs;
    }
    return numberOfInputs;
}

}

TEST(FuzzCorpus, StoresAreRefusedOrConsistent) {
    EXPECT_GE(replay("store", fuzzStore), 50u);
}

TEST(FuzzCorpus, DictionaryImagesThatAreAcceptedAreLoaded) {
    EXPECT_GE(replay("dictionary-image", fuzzDictionaryImage), 20u);
}

TEST(FuzzCorpus, RegionImagesAreLoadedOrRefused) {
    EXPECT_GE(replay("region-image", fuzzRegionImage), 10u);
}

TEST(FuzzCorpus, NoInputIsAnInput) {
    for (const auto fuzz : {fuzzStore, fuzzDictionaryImage, fuzzRegionImage})
        EXPECT_EQ(fuzz(nullptr, 0), 0);
}
