// The header that precedes the data in each packet of a capture of Linux's usbmon.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "ByteOrder.h"
#include "Packet.h"

namespace simbus::capture {

/// Link types of capture files: usbmon's headers of 64 and of 48 bytes.
constexpr std::uint32_t kLinkUsbmon = 220;
constexpr std::uint32_t kLinkUsbmonShort = 189;

/// Reads header and data. Fills in everything but the number and the time of the packet, whose data stay
/// where the reader has them. Returns a text that says what is wrong, or null.
const char* readUsbmon(ByteReader reader, bool isShort, Packet& packet);

/// Header of 64 bytes, isochronous packets and data.
std::size_t usbmonSize(const Packet& packet);
void writeUsbmon(ByteWriter& writer, const Packet& packet);

}  // namespace simbus::capture
