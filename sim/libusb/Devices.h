// Devices as the library sees them come and go, and who refers to them. State's lock held.
#pragma once

#include "Objects.h"

namespace sim {

void deviceArrived(libusb_context& context, const simbus::DeviceInfoPtr& info, bool notify);
void deviceLeft(libusb_context& context, const simbus::DeviceInfo& info);

void holdDevice(libusb_device& device);     // a reference of the library's own
void releaseDevice(libusb_device& device);  // frees it with the last reference

}  // namespace sim
