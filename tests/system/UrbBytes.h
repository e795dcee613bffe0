// Messages of USB/IP as tests write and read them, laid out here once more: a mistake in the server's own
// layout would otherwise cancel out.
#pragma once

#include <endian.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "bus/Bus.h"

namespace usbiptest {

using simbus::Bytes;

constexpr std::uint32_t kSubmit = 1;
constexpr std::uint32_t kUnlink = 2;
constexpr std::uint32_t kSubmitAnswer = 3;
constexpr std::uint32_t kUnlinkAnswer = 4;
constexpr std::size_t kHeaderBytes = 48;

/// A message: up to ten big-endian words, the rest of them 0, then 8 bytes of setup packet, then the data.
inline Bytes message(std::vector<std::uint32_t> words, const Bytes& setup = Bytes(8),
                     const Bytes& data = {}) {
    words.resize(10);
    Bytes all;
    for (const std::uint32_t word : words) {
        const std::uint32_t big = htobe32(word);
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(&big);
        all.insert(all.end(), bytes, bytes + sizeof big);
    }
    all.insert(all.end(), setup.begin(), setup.end());
    all.insert(all.end(), data.begin(), data.end());
    return all;
}

/// `length` bytes from the endpoint, which is given without its direction bit.
inline Bytes submitIn(std::uint32_t number, std::uint32_t endpoint, std::uint32_t length,
                      const Bytes& setup = Bytes(8)) {
    return message({kSubmit, number, 0, 1, endpoint, 0, length}, setup);
}

inline Bytes submitOut(std::uint32_t number, std::uint32_t endpoint, const Bytes& data,
                       const Bytes& setup = Bytes(8)) {
    return message({kSubmit, number, 0, 0, endpoint, 0, static_cast<std::uint32_t>(data.size())}, setup,
                   data);
}

inline Bytes unlink(std::uint32_t number, std::uint32_t unlinked) {
    return message({kUnlink, number, 0, 0, 0, unlinked});
}

/// A word of a message, at an offset in bytes.
inline std::uint32_t wordAt(const Bytes& bytes, std::size_t at) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return be32toh(value);
}

}  // namespace usbiptest
