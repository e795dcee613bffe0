#pragma once

#include "hid/HidDeviceOperations.h"

/// The macOS operations on one HID device: I/O Kit plug-ins and the Core Foundation run loop. `list` is null
/// here: HidHandling adds it.
HidDeviceOperations ioKitDeviceOperations();
