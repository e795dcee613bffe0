#pragma once

#include "hid/HidDeviceOperations.h"

/// The operations of macOS on one HID device: I/O Kit plug-ins and the Core Foundation run loop. `list` is
/// not among them (HidHandling has it) and null.
HidDeviceOperations ioKitDeviceOperations();
