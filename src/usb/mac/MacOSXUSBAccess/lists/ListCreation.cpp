#include "MacOSXUSBAccess/lists/ListCreation.h"

#include <algorithm>
#include <new>

#include "DebugUtil/DebugLog.h"
#include "HotplugUsb/HotplugUsb.h"
#include "MacOSXUSBAccess/lists/CompositeDevices.h"
#include "MacOSXUSBAccess/lists/DeviceEnumeration.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "ground/ResultCodes.h"
#include "ground/SharedField.h"

namespace {

constexpr uint32_t kEveryVendor = 0xFFFFFFFF;
constexpr uint32_t kInternalHandle = 4242;

constexpr EnumerationStyle kWatchedList{false, true};
constexpr EnumerationStyle kPlainList{false, false};
constexpr EnumerationStyle kEveryDevice{true, false};

/// Returns the first list of the running session in this context that has records and satisfies `matches`, or
/// null.
template <class Matches>
const tagUSB_DEVICE_LIST* findReusableList(libusb_context* context, Matches matches) {
    const tagUSB_DEVICE_LIST* list = context == nullptr ? nullptr : g_pDeviceList;
    while (list != nullptr && !(list->pContext == context && list->pFirst != nullptr && matches(list))) {
        list = list->pNextList;
    }
    return list;
}

/// The last steps of every list creation.
uint32_t fillList(tagUSB_DEVICE_LIST& list, const EnumerationStyle& style) {
    enumerateDevices(list, style);
    return HandleCompositeDevices(list.handle, &list);
}

/// Undoes a linked list that could not be filled for lack of memory. It stays in the chain, because the event
/// thread may be reading it, but without session and records.
void takeBack(tagUSB_DEVICE_LIST& list, const EnumerationStyle& style) {
    libusb_context* context = list.pContext;
    storeShared(list.pContext, nullptr);
    for (tagUSB_DEVICE_ACCESS_ENTRY* entry = list.pFirst; entry != nullptr; entry = entry->pNext) {
        const bool counted = style.isWatched && entry->familyStatus != kCompositeChild;
        if (counted && entry->pDevice != nullptr) {
            tlvn_libusb_unref_device(entry, entry->pDevice);
        }
    }
    ReleaseInternalDeviceList2(&list);
    for (const int32_t id : list.vidList) {
        if (find_device_list(context, static_cast<uint32_t>(id)) == nullptr) {
            forgetHotplug(context, id);
        }
    }
}

/// Creates a list with the next handle, links it and fills it. Returns the handle.
uint32_t makeList(libusb_context* context, int32_t count, const int32_t* vendorIds,
                  const EnumerationStyle& style) {
    tagUSB_DEVICE_LIST& list = *newDeviceList(context, count, vendorIds);
    list.handle = g_NextDeviceListHandle++;
    appendDeviceList(list);
    try {
        const int32_t watched = style.isWatched ? std::min(count, kMaxVendorIds) : 0;
        for (int32_t slot = 0; slot < watched; ++slot) {
            registerForHotplug(list.pContext, list.vidList[slot]);
        }
        return fillList(list, style);
    } catch (const std::bad_alloc&) {
        takeBack(list, style);
        throw;
    }
}

}  // namespace

uint32_t LibUSB_CreateDeviceList2(libusb_context* context, int32_t count, const int32_t* vendorIds) {
    DN_WriteStr("\nLibUSB_CreateDeviceList2 01: enter ==============================================", 1);
    const tagUSB_DEVICE_LIST* existing = findReusableList(context, [&](const tagUSB_DEVICE_LIST* list) {
        return deviceListContainsVIDList(list, count, vendorIds);
    });
    if (existing != nullptr) {
        DN_WriteStrUInt(
            "\nLibUSB_CreateDeviceList2 such DeviceList already exists; handle=", existing->handle, 1);
        return existing->handle;
    }
    return makeList(context, count, vendorIds, kWatchedList);
}

uint32_t LibUSB_CreateDeviceList(libusb_context* context, uint32_t vendorId) {
    const auto id = static_cast<int32_t>(vendorId);
    const tagUSB_DEVICE_LIST* existing = findReusableList(
        context, [id](const tagUSB_DEVICE_LIST* list) { return deviceListContainsOnlyVID(list, id); });
    if (existing != nullptr) {
        return existing->handle;
    }
    return makeList(context, 1, &id, vendorId == kEveryVendor ? kEveryDevice : kPlainList);
}

tagUSB_DEVICE_LIST* CreateInternalDeviceList2(libusb_context* context, int32_t count,
                                              const int32_t* vendorIds, int32_t* status) {
    *status = kNotEnumerated;
    tagUSB_DEVICE_LIST* list = newDeviceList(context, count, vendorIds);
    list->handle = kInternalHandle;
    try {
        *status = static_cast<int32_t>(fillList(*list, kPlainList));
    } catch (const std::bad_alloc&) {
        ReleaseInternalDeviceList2(list);
        delete list;
        throw;
    }
    return list;
}
