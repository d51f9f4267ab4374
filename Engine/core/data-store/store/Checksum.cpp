#include "core/data-store/store/Checksum.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>

namespace kavix {

struct Checksum::State {
    XXH3_state_t m_state;
};

Checksum::Checksum() :
    m_state(std::make_unique<State>()) {
    reset();
}

Checksum::~Checksum() = default;

void Checksum::update(const void* data, size_t numberOfBytes) noexcept {
    if (numberOfBytes != 0)
        XXH3_64bits_update(&m_state->m_state, data, numberOfBytes);
}

uint64_t Checksum::getValue() const noexcept {
    return XXH3_64bits_digest(&m_state->m_state);
}

void Checksum::reset() noexcept {
    XXH3_64bits_reset(&m_state->m_state);
}

uint64_t getChecksum(const void* data, size_t numberOfBytes) {
    Checksum checksum;
    checksum.update(data, numberOfBytes);
    return checksum.getValue();
}

size_t ChecksumInputStream::read(void* data, size_t numberOfBytes) {
    // In pieces that are still in the cache when they are checksummed.
    constexpr size_t MAX_PIECE = size_t(1) << 19;
    const size_t bytesRead =
        m_input.read(data, static_cast<size_t>(std::min<uint64_t>({numberOfBytes, MAX_PIECE, m_remainingBytes})));
    m_checksum.update(data, bytesRead);
    m_remainingBytes -= bytesRead;
    return bytesRead;
}

}
