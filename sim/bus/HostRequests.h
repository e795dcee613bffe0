// Requests that a host makes by itself, without a program that has opened the device.
#pragma once

#include <chrono>
#include <string>

#include "Bus.h"

namespace simbus {

/// Runs one transfer and waits until it has ended; after `limit` it is cancelled. Returns whether it has
/// completed; status and length are in the transfer. The caller must not hold a lock that a completion takes.
SIMBUS_API bool runTransfer(ConnectionId connection, Transfer& transfer,
                            std::chrono::milliseconds limit = std::chrono::seconds(5));

/// Reads a descriptor of a device (request type 0x80) or of an interface (0x81); empty when the device does
/// not give it.
SIMBUS_API Bytes readDescriptor(const DeviceInfo& device, std::uint8_t requestType, std::uint16_t value,
                                std::uint16_t index, std::uint16_t length);

/// Reads a string descriptor in the device's first language, one UTF-16 unit per character; empty when there
/// is none.
SIMBUS_API std::optional<std::wstring> readString(const DeviceInfo& device, std::uint8_t index);

}  // namespace simbus
