#pragma once

#include "MacOSXUSBAccess/records/DeviceRecords.h"

// Making device lists. On the Java callers' threads, one list operation at a time.

/// A list of the devices of `count` vendor ids (at most sixteen are looked at; -1 matches nothing), each of
/// them watched for hotplug events. A list of the running session with the same ids and at least one record
/// is reused. Returns the list's handle; LIBUSB_ERROR_NO_MEM's bits when there is no memory for a list.
uint32_t LibUSB_CreateDeviceList2(libusb_context* context, int32_t count, const int32_t* vendorIds);

/// A list of the devices of one vendor, or of all for 0xFFFFFFFF. Not watched for hotplug events itself: it
/// is updated only when another list watches its vendor id and stands behind it in the chain. Reuse and
/// result as above.
uint32_t LibUSB_CreateDeviceList(libusb_context* context, uint32_t vendorId);

/// A temporary list for an update: linked nowhere, without counted references or hotplug watch. `status`
/// receives its handle, 4242, or a negative code. Null when there is no memory for a list.
tagUSB_DEVICE_LIST* CreateInternalDeviceList2(libusb_context* context, int32_t count,
                                              const int32_t* vendorIds, int32_t* status);
