#pragma once

#include "ground/DeviceRecords.h"

/// Splits the maker's composite devices: appends a record for the interface that is split off each device of
/// the list whose configuration has, after its first interface, a vendor-specific one (class and subclass
/// 0xFF) with two bulk endpoints from there on. Leaves devices that are already split unchanged. Returns
/// `handle`.
uint32_t HandleCompositeDevices(uint32_t handle, tagUSB_DEVICE_LIST* list);
