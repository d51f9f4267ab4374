#include "numdict/stores/Resources.h"

#include <array>
#include <numeric>

namespace kavix::numdict {

uint64_t countResources(const Dictionary& dictionary) {
    const std::array<uint64_t, 256> counts = dictionary.countResourcesByDatatypeID();
    return std::accumulate(counts.begin(), counts.end(), uint64_t(0));
}

uint64_t getEndOfResourceIDs(const Dictionary& dictionary) {
    return dictionary.takeSnapshot().resourceIDEnd;
}

}
