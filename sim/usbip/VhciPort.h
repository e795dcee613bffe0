// The ports of the kernel's virtual host controller (vhci_hcd), through its files in sysfs.
#pragma once

#include "bus/Bus.h"

namespace simbus::usbip {

/// Waits some seconds, if there are free ports, for one from which the kernel has removed the last device. It
/// may have to talk to other devices first.
void waitForEmptyPort(Speed speed);

/// Plugs a device of that speed into a free port, an empty one if there is any; the kernel uses a duplicate
/// of `socket`. Does not wait. Returns the port's number. Throws std::runtime_error when there is no
/// controller or no free port.
int attachToFreePort(int socket, Speed speed, ConnectionId connection);

/// Waits until the kernel has released the port. Returns false when it does not within some seconds.
bool waitUntilFree(int port);

/// Waits until the kernel has configured the device at the port, or has released the port. Returns false when
/// it does neither within some seconds.
bool waitUntilConfigured(int port);

}  // namespace simbus::usbip
