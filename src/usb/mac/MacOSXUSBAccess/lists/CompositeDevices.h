#pragma once

#include "ground/DeviceRecords.h"

/// Splits the maker's composite devices: for each whole device of the list whose configuration has, beyond
/// its first interface, a vendor-specific one (class and subclass 0xFF) with two bulk endpoints from there
/// on, a record of that interface is appended to the list. Devices split before are left as they are. Returns
/// `handle`.
uint32_t HandleCompositeDevices(uint32_t handle, tagUSB_DEVICE_LIST* list);
