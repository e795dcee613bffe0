#include "MacOSXUSBAccess/lists/ListCreation.h"

#include <libusb.h>

#include <algorithm>

#include "DebugUtil/DebugLog.h"
#include "HotplugUsb/HotplugUsb.h"
#include "MacOSXUSBAccess/lists/CompositeDevices.h"
#include "MacOSXUSBAccess/lists/DeviceEnumeration.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

namespace {

constexpr uint32_t kEveryVendor = 0xFFFFFFFF;
constexpr uint32_t kInternalHandle = 4242;
constexpr int32_t kInternalListFailed = -102;
constexpr auto kNoMemory = static_cast<uint32_t>(LIBUSB_ERROR_NO_MEM);

EnumerationStyle watchedList() {
    EnumerationStyle style{};
    style.tracesSteps = true;
    style.countsReferences = true;
    style.readsBusNumber = true;
    return style;
}

EnumerationStyle plainList(bool everyVendor) {
    EnumerationStyle style{};
    style.everyVendor = everyVendor;
    style.freesEmptyArray = true;
    return style;
}

/// First list of the running session in this context that has records and passes `matches`, or null.
template <class Matches>
const tagUSB_DEVICE_LIST* findReusableList(libusb_context* context, Matches matches) {
    const tagUSB_DEVICE_LIST* list = context == nullptr ? nullptr : g_pDeviceList;
    while (list != nullptr && !(list->pContext == context && list->pFirst != nullptr && matches(list))) {
        list = list->pNextList;
    }
    return list;
}

/// The steps that every way of creation ends with.
uint32_t fillList(tagUSB_DEVICE_LIST& list, const EnumerationStyle& style) {
    enumerateDevices(list, style);
    return HandleCompositeDevices(list.handle, &list);
}

/// Makes a list with the next handle and links it. Null when there is no memory.
tagUSB_DEVICE_LIST* linkNewList(libusb_context* context, int32_t count, const int32_t* vendorIds) {
    tagUSB_DEVICE_LIST* list = newDeviceList(context, count, vendorIds);
    if (list != nullptr) {
        list->handle = g_NextDeviceListHandle++;
        appendDeviceList(*list);
    }
    return list;
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
    tagUSB_DEVICE_LIST* list = linkNewList(context, count, vendorIds);
    if (list == nullptr) {
        return kNoMemory;
    }
    for (int32_t slot = 0; slot < std::min(count, kMaxVendorIds); ++slot) {
        registerForHotplug(list->pContext, list->vidList[slot]);
    }
    return fillList(*list, watchedList());
}

uint32_t LibUSB_CreateDeviceList(libusb_context* context, uint32_t vendorId) {
    const auto id = static_cast<int32_t>(vendorId);
    const tagUSB_DEVICE_LIST* existing = findReusableList(
        context, [id](const tagUSB_DEVICE_LIST* list) { return deviceListContainsOnlyVID(list, id); });
    if (existing != nullptr) {
        return existing->handle;
    }
    tagUSB_DEVICE_LIST* list = linkNewList(context, 1, &id);
    return list == nullptr ? kNoMemory : fillList(*list, plainList(vendorId == kEveryVendor));
}

tagUSB_DEVICE_LIST* CreateInternalDeviceList2(libusb_context* context, int32_t count,
                                              const int32_t* vendorIds, int32_t* status) {
    *status = kInternalListFailed;
    tagUSB_DEVICE_LIST* list = newDeviceList(context, count, vendorIds);
    if (list == nullptr) {
        return nullptr;
    }
    list->handle = kInternalHandle;
    *status = static_cast<int32_t>(fillList(*list, plainList(false)));
    return list;
}
