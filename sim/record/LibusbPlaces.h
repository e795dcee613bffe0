// The devices that a program has opened with libusb.
#pragma once

#include <libusb.h>

#include "Traffic.h"

namespace simbus::record {

Place placeOf(libusb_device_handle* handle);
/// Records the device descriptor and those of all configurations.
void recordDescriptors(libusb_device_handle* handle);

}  // namespace simbus::record
