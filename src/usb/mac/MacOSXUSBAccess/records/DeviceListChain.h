#pragma once

#include "ground/DeviceRecords.h"
#include "ground/ResultCodes.h"

// The chain of device lists, and all look-ups of lists and records. Lists are appended and never unlinked.
// Callers serialise list operations; only find_device_list may run concurrently with them, in the hotplug
// callback.

extern tagUSB_DEVICE_LIST* g_pDeviceList;  ///< head of the chain; shared field
extern uint32_t g_NextDeviceListHandle;    ///< handle of the next list: 0, 1, 2, ... never reused
extern libusb_context* g_liveContext;      ///< the running session's context; null between sessions

/// Creates a list that is not linked: all fields zero, `vidList` with the first sixteen of `count` ids, then
/// -1, `vidCount` as given. Replaces a context other than the running session's by null, so that no operation
/// on the list reaches libusb.
tagUSB_DEVICE_LIST* newDeviceList(libusb_context* context, int32_t count, const int32_t* vendorIds);
/// False once the list's session has ended, even while an unfinished transfer keeps the context.
bool isOfRunningSession(const tagUSB_DEVICE_LIST& list);
/// Links a list at the end of the chain. From then on the hotplug callback may find it.
void appendDeviceList(tagUSB_DEVICE_LIST& list);
/// Returns the list with this handle and sets `status` to 0; on failure null, with `status` kNoLists or
/// kNoSuchList.
tagUSB_DEVICE_LIST* findDeviceList(uint32_t handle, int32_t& status);

/// Appends `first` and its successors to the list and makes the list their owner. The search for the end
/// starts at `behind`, a record of the list, or at the head when it is null.
void appendRecords(tagUSB_DEVICE_LIST& list, tagUSB_DEVICE_ACCESS_ENTRY* first,
                   tagUSB_DEVICE_ACCESS_ENTRY* behind = nullptr);
/// Unlinks a record from its list.
void unlinkRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry);

/// Returns the first list of the running session in this context that watches the vendor id, or null.
/// Deliberate: later lists that watch the same id are never found, so a hotplug event flags only the first.
tagUSB_DEVICE_LIST* find_device_list(libusb_context* context, uint32_t vendorId);

/// True when the list has `count` ids and each of them occurs in `vendorIds`, in any order.
/// Deliberate: duplicates are not noticed, so a list of {A, A} is reused for {A, B}.
bool deviceListContainsVIDList(const tagUSB_DEVICE_LIST* list, int32_t count, const int32_t* vendorIds);
/// True when some slot of the list equals the id.
bool deviceListContainsVID(const tagUSB_DEVICE_LIST* list, int32_t vendorId);
/// True when slot 0 equals the id and slot 1 is unused.
bool deviceListContainsOnlyVID(const tagUSB_DEVICE_LIST* list, int32_t vendorId);

/// Returns the record after `previous`, or the first one when `previous` is null; null at the end and for an
/// unknown handle. The handle is not checked when `previous` is set.
tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_EnumerateDeviceList(uint32_t handle, tagUSB_DEVICE_ACCESS_ENTRY* previous);
/// Returns the record at a position, 0 being the first; absent devices count. Null beyond the end and for an
/// unknown handle.
tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_GetDeviceFromIndex(uint32_t handle, uint32_t index);
/// Deliberate: always null, so usbGetChangeInfo returns an empty line; each record holds its presence.
tagUSB_DEVICE_ACCESS_ENTRY* LibUSB_GetDeviceFromChangeList(uint32_t handle, uint32_t index);
