#pragma once

#include "hid/HidDeviceOperations.h"

/// The macOS operations: `list`, which lists the devices, and those on one device, through I/O Kit plug-ins
/// and the Core Foundation run loop.
HidDeviceOperations ioKitOperations(bool (*list)(std::vector<HidDeviceInfo>& devices));
