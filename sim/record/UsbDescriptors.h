// The descriptors of a device, put together again from what libusb has read of them: the device is not asked.
#pragma once

#include <libusb.h>

#include "capture/Packet.h"

namespace simbus::record {

capture::Bytes bytesOf(const libusb_device_descriptor& descriptor);
/// With its interfaces, their endpoints and everything between them, in the device's order.
capture::Bytes bytesOf(const libusb_config_descriptor& descriptor);
capture::Bytes bytesOf(const libusb_bos_descriptor& descriptor);

}  // namespace simbus::record
