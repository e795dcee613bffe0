// Transfers, as packets of a recording.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Journal.h"
#include "capture/Packet.h"

namespace simbus::record {

using capture::Bytes;

/// Where a device is.
struct Place {
    std::uint16_t bus = 0;
    std::uint8_t device = 0;
};

/// What a transfer is to move, or has moved.
struct Move {
    Place place;
    capture::Kind kind = capture::Kind::control;
    std::uint8_t endpoint = 0;            ///< address with direction bit
    const std::uint8_t* setup = nullptr;  ///< 8 bytes, of a control transfer
    const std::uint8_t* data = nullptr;
    std::size_t length = 0;
    std::vector<capture::IsochronousPacket> isochronous;
};

/// A control request.
struct Request {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
};

/// Writes the submission, with the data for the device; returns the number that its end has to have. Data
/// that are too long for a packet go into several, each with the length of what is left.
std::uint64_t recordStart(const Move& move);
/// Writes the end, with the `actual` bytes from the device.
void recordEnd(std::uint64_t urb, const Move& move, std::int32_t status, std::size_t actual);
/// The submission has failed.
void recordRefusal(std::uint64_t urb, const Move& move, std::int32_t status);

/// Writes a whole request: `data` go in the direction of the request.
void recordRequest(const Place& place, const Request& request, const Bytes& data,
                   std::int32_t status = capture::statusCompleted);
/// The same for a descriptor that the device has given. A report descriptor is that of an interface.
void recordDescriptor(const Place& place, std::uint8_t type, std::uint8_t index,
                      std::uint16_t languageOrInterface, const Bytes& descriptor);

}  // namespace simbus::record
