#pragma once

#include <cstddef>
#include <cstdint>

// Each takes any bytes, feeds them to one entrance of the library and aborts, with a message, if the library breaks a
// promise. Returns 0. libFuzzer drives them; the ordinary tests replay the corpus through them.

int fuzzStore(const uint8_t* data, size_t size);

int fuzzDictionaryImage(const uint8_t* data, size_t size);

int fuzzRegionImage(const uint8_t* data, size_t size);
