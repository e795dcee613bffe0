// What client and server of USB/IP say to each other before the first transfer: big-endian messages of
// version 1.1.1, as the programs usbip and usbipd and the kernel speak them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "bus/Bus.h"

namespace simbus::usbip {

// The start of each request and each answer: version, operation, status.
using Preamble = std::array<std::uint8_t, 8>;
// Behind the preamble of a request to import a device; filled up with zeroes.
using BusIdField = std::array<char, 32>;

enum class Operation { list, import, unknown };  // unknown also when the client speaks another version

enum class ImportStatus : std::uint32_t { granted = 0, deviceBusy = 2, noDevice = 4 };

Operation parseOperation(const Preamble& preamble);

// The name in the field; empty when its end is missing.
std::string parseBusId(const BusIdField& field);

// The name of a device towards clients, such as "1-4". Another plug, another name.
std::string busIdOf(const DeviceInfo& device);

Bytes listAnswer(const std::vector<DeviceInfoPtr>& devices);

// When granted, `device` follows; otherwise it is not looked at.
Bytes importAnswer(ImportStatus status, const DeviceInfo* device);

}  // namespace simbus::usbip
