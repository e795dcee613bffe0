#pragma once

#include "ground/DeviceRecords.h"

// Keeping a list current, and giving it up. On the Java callers' threads, one list operation at a time.
//
// Results: 0, -103 no list has this handle (or the list given is null), -104 there is no list at all.

/// Enumerates again when a hotplug event has flagged the list; else does nothing. Records keep their place
/// for the list's life: those not found are marked absent, new ones are appended. A list of an ended session
/// stays as it is. Throws std::bad_alloc; the list is then as it was, and still flagged.
int32_t LibUSB_UpdateDeviceList(uint32_t handle, uint32_t unused);

/// Closes and deletes all records of the list and drops a counted reference for each. The list stays in the
/// chain, empty. A record that is still in use is closed and kept aside.
int32_t LibUSB_ReleaseDeviceList(uint32_t handle);

/// Deletes all records of a list, letting go of each device directly, past the counted references.
int32_t ReleaseInternalDeviceList2(tagUSB_DEVICE_LIST* list);
