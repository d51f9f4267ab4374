#pragma once

#include <cstdint>

namespace kavix {

/// How wide a dictionary stores resource IDs. 32 bits save memory for decimals and allow 2^32 - 2 IDs.
enum class ResourceIDWidth : uint8_t { BITS_32 = 32, BITS_64 = 64 };

/// The width of the type in which a dictionary stores resource IDs.
template<typename ResourceID>
inline constexpr ResourceIDWidth RESOURCE_ID_WIDTH = sizeof(ResourceID) == sizeof(uint32_t) ? ResourceIDWidth::BITS_32
                                                                                            : ResourceIDWidth::BITS_64;

}
