// The HID interfaces that a program has opened with hidapi: on which device of which bus they are.
#pragma once

#include <hidapi.h>

#include <cstdint>
#include <string>

#include "Traffic.h"

namespace simbus::record {

struct HidPlace {
    Place place;
    std::uint8_t interface = 0;
    std::uint8_t inEndpoint = 0x81;
    std::uint8_t outEndpoint = 0;  ///< 0: output reports are requests
};

/// Finds the device with the libusb that the program would use, and records its descriptors and strings. A
/// device that libusb does not find gets a place and descriptors of the recorder's own.
HidPlace recordHidDevice(const hid_device_info& info, const Bytes& reportDescriptor);

/// The report descriptor as the system has it; empty when it is not known.
Bytes reportDescriptorOf(const std::string& path);

}  // namespace simbus::record
