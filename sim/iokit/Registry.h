#pragma once

#include <IOKit/IOKitLib.h>

#include <optional>

#include "../hidapi/UsbHid.h"

namespace sim {

/// A service of the registry: a HID interface, or a USB device as a whole.
struct Service {
    simbus::DeviceInfoPtr device;
    std::optional<simbus::HidInterface> hid;
};

std::optional<Service> serviceOf(io_object_t object);

}  // namespace sim
