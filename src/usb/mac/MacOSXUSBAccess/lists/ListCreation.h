#pragma once

#include "ground/DeviceRecords.h"

// Creation of device lists, on the Java callers' threads, one list operation at a time. Each function throws
// std::bad_alloc when there is no memory for the whole list; then no list is created, and its hotplug watches
// and references are undone.

/// Creates a list of the devices of `count` vendor ids (the first sixteen are used; -1 matches no device) and
/// watches each id for hotplug events. Reuses a list of the running session that has the same ids and at
/// least one record. Returns the list's handle.
uint32_t LibUSB_CreateDeviceList2(libusb_context* context, int32_t count, const int32_t* vendorIds);

/// Creates a list of the devices of one vendor, or of all vendors for 0xFFFFFFFF. Reuse and result as above.
/// Deliberate: 0xFFFFFFFF (-1) matches every device here and none in LibUSB_CreateDeviceList2.
/// Deliberate: the list has no hotplug watch of its own. It is updated only when another list watches its
/// vendor id and comes after it in the chain.
uint32_t LibUSB_CreateDeviceList(libusb_context* context, uint32_t vendorId);

/// Creates a temporary list for an update: not linked, without counted references or hotplug watches.
/// `status` receives its handle, 4242; -102 when an exception is thrown.
tagUSB_DEVICE_LIST* CreateInternalDeviceList2(libusb_context* context, int32_t count,
                                              const int32_t* vendorIds, int32_t* status);
