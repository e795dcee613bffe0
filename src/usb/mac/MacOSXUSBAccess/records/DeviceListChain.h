#pragma once

#include "ground/DeviceRecords.h"
#include "ground/ResultCodes.h"

// The chain of device lists, and every way to find a list or a record in it. Lists are linked at the end and
// never unlinked. Callers serialise list operations; only find_device_list may run beside them (it is called
// on the hotplug thread).

extern tagUSB_DEVICE_LIST* g_pDeviceList;  ///< head of the chain; shared field
extern uint32_t g_NextDeviceListHandle;    ///< handle of the next list: 0, 1, 2, ... never reused
extern libusb_context* g_liveContext;      ///< the running session's context; null between sessions

/// Codes of a look-up by handle.

/// A list made but not linked: all fields zero, `vidList` holding the first sixteen of `count` ids and then
/// -1, `vidCount` the count as given. A context that is not the running session's is taken for null, so that
/// nothing done with the list reaches libusb.
tagUSB_DEVICE_LIST* newDeviceList(libusb_context* context, int32_t count, const int32_t* vendorIds);
/// False once the list's session has ended, also when a transfer that does not come back keeps its context.
bool isOfRunningSession(const tagUSB_DEVICE_LIST& list);
/// Links a list at the end of the chain. From here on the hotplug thread may see it.
void appendDeviceList(tagUSB_DEVICE_LIST& list);
/// The list with this handle. On failure null, and `status` holds kNoLists or kNoSuchList, else 0.
tagUSB_DEVICE_LIST* findDeviceList(uint32_t handle, int32_t& status);

/// Appends `first` and all that follow it to the end of the list's chain and makes the list their owner. The
/// end is looked for from `behind` on, a record of the list, or from its beginning.
void appendRecords(tagUSB_DEVICE_LIST& list, tagUSB_DEVICE_ACCESS_ENTRY* first,
                   tagUSB_DEVICE_ACCESS_ENTRY* behind = nullptr);
/// Takes a record out of its list's chain.
void unlinkRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// First list of the running session in this context that watches the vendor id, or null. Later lists that
/// watch the same id are never found: meant.
tagUSB_DEVICE_LIST* find_device_list(libusb_context* context, uint32_t vendorId);

/// True when the list's leading ids are `count` in number and each occurs in `vendorIds`. The order does not
/// matter and duplicates are not noticed ({A, A} contains {A, B}): meant.
bool deviceListContainsVIDList(const tagUSB_DEVICE_LIST* list, int32_t count, const int32_t* vendorIds);
/// True when some slot of the list equals the id.
bool deviceListContainsVID(const tagUSB_DEVICE_LIST* list, int32_t vendorId);
/// True when slot 0 equals the id and slot 1 is unused.
bool deviceListContainsOnlyVID(const tagUSB_DEVICE_LIST* list, int32_t vendorId);

/// The record after `previous`, or the list's first for null; null at the end and for an unknown handle. With
/// `previous` set the handle is not looked at.
tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_EnumerateDeviceList(uint32_t handle, tagUSB_DEVICE_ACCESS_ENTRY* previous);
/// The record at a position, 0 being the first; absent devices count. Null beyond the end or for an unknown
/// handle.
tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_GetDeviceFromIndex(uint32_t handle, uint32_t index);
/// Always null: no separate change list is kept; presence stands in each record.
tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_GetDeviceFromChangeList(uint32_t handle, uint32_t index);
