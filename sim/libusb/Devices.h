// Devices as the library sees them, and their reference counts. The state's lock is held.
#pragma once

#include "Objects.h"

namespace sim {

void deviceArrived(libusb_context& context, const simbus::DeviceInfoPtr& info, bool notify);
void deviceLeft(libusb_context& context, const simbus::DeviceInfo& info);

/// The device of this connection; null when the context has none.
libusb_device* findDevice(const libusb_context& context, simbus::ConnectionId connection);

void holdDevice(libusb_device& device);     ///< takes a reference of the library's own
void releaseDevice(libusb_device& device);  ///< drops one; frees the device with the last reference

}  // namespace sim
