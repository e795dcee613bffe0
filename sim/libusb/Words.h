// Numbers in the bytes of descriptors, which have the least significant byte first.
#pragma once

#include <cstdint>

namespace sim {

inline std::uint16_t wordAt(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8U);
}

inline std::uint32_t longAt(const std::uint8_t* bytes) {
    return wordAt(bytes) | static_cast<std::uint32_t>(wordAt(bytes + 2)) << 16U;
}

}  // namespace sim
