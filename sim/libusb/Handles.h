// The first step of every call on a handle. The state's lock is held.
#pragma once

#include "Objects.h"

namespace sim {

/// The handle, if it is valid, and the code to return when the call
/// ends there.
struct Opened {
    libusb_device_handle* handle = nullptr;
    int error = LIBUSB_SUCCESS;
    simbus::ConnectionId connection = 0;
};

Opened attachedHandle(const char* function, libusb_device_handle* given);
/// The same for calls about an interface.
Opened attachedInterface(const char* function, libusb_device_handle* given, int interfaceNumber);

}  // namespace sim
