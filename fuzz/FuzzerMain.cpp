// The entrance of libFuzzer, for the fuzzer that the build names.

#include "Fuzzers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return KAVIX_FUZZER(data, size);
}
