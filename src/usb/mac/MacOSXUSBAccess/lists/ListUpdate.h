#pragma once

#include "ground/DeviceRecords.h"

// Update and release of lists, on the Java callers' threads, one list operation at a time.
//
// Results: 0; -103 no list has this handle (or the list is null); -104 there is no list at all.

/// Enumerates again if a hotplug event has flagged the list; otherwise, and for a list of an ended session,
/// does nothing. A record keeps its index for the life of the list: absent devices are marked, new ones
/// appended. Throws std::bad_alloc, leaving the list unchanged and flagged. `unused` is ignored.
int32_t LibUSB_UpdateDeviceList(uint32_t handle, uint32_t unused);

/// Closes and deletes all records of the list and drops a counted reference for each. The empty list stays in
/// the chain. A record that is still in use is closed and kept aside.
int32_t LibUSB_ReleaseDeviceList(uint32_t handle);

/// Deletes all records of a list. Drops their references on the devices, but no counted references.
int32_t ReleaseInternalDeviceList2(tagUSB_DEVICE_LIST* list);
