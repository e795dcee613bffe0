#pragma once

#include "ground/DeviceRecords.h"

// Making device lists. On the Java callers' threads, one list operation at a time. Each of these throws
// std::bad_alloc when there is no memory for all of a list; then there is no list, and what was registered
// and referenced for it is given back.

/// A list of the devices of `count` vendor ids (at most sixteen are looked at; -1 matches nothing), each of
/// them watched for hotplug events. A list of the running session with the same ids and at least one record
/// is reused. Returns the list's handle.
uint32_t LibUSB_CreateDeviceList2(libusb_context* context, int32_t count, const int32_t* vendorIds);

/// A list of the devices of one vendor, or of all for 0xFFFFFFFF. Not watched for hotplug events itself: it
/// is updated only when another list watches its vendor id and stands behind it in the chain. Reuse and
/// result as above.
uint32_t LibUSB_CreateDeviceList(libusb_context* context, uint32_t vendorId);

/// A temporary list for an update: linked nowhere, without counted references or hotplug watch. `status`
/// receives its handle, 4242; -102 when an exception is thrown.
tagUSB_DEVICE_LIST* CreateInternalDeviceList2(libusb_context* context, int32_t count,
                                              const int32_t* vendorIds, int32_t* status);
