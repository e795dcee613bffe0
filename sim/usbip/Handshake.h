// The USB/IP messages between client and server before the first transfer: big-endian, version 1.1.1, as used
// by the programs usbip and usbipd and the kernel.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "bus/Bus.h"

namespace simbus::usbip {

/// The first bytes of each request and answer: version, operation, status.
using Preamble = std::array<std::uint8_t, 8>;
/// Follows the preamble of a request to import a device; padded with zeroes.
using BusIdField = std::array<char, 32>;

enum class Operation { list, import, unknown };  ///< unknown also for another version

enum class ImportStatus : std::uint32_t { granted = 0, deviceBusy = 2, noDevice = 4 };

Operation parseOperation(const Preamble& preamble);

/// Returns the name in the field; empty when it is not terminated.
std::string parseBusId(const BusIdField& field);

/// The name that clients use for a device, such as "1-4". It changes with each plug.
std::string busIdOf(const DeviceInfo& device);

Bytes listAnswer(const std::vector<DeviceInfoPtr>& devices);

/// When the import is granted, the answer contains `device`; otherwise `device` is ignored.
Bytes importAnswer(ImportStatus status, const DeviceInfo* device);

}  // namespace simbus::usbip
