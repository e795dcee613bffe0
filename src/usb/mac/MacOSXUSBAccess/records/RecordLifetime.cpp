#include "MacOSXUSBAccess/records/RecordLifetime.h"

#include <cstdarg>
#include <cstdio>
#include <new>

#include "MacOSXUSBAccess/records/Descriptors.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "hid/HIDAccess.h"

namespace {

/// Records kept aside, chained through pNext.
tagUSB_DEVICE_ACCESS_ENTRY* g_recordsKeptAside = nullptr;

void freeRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    deleteHIDAccess(entry.pHIDAccess);
    delete &privateSide(entry);
}

}  // namespace

tagUSB_DEVICE_ACCESS_ENTRY* newDeviceRecord(tagUSB_DEVICE_LIST& list) {
    auto* entry = new (std::nothrow) DeviceRecord{};
    if (entry != nullptr) {
        entry->pDeviceList = &list;
        clearEndpointList(kMaxEndpoints, entry->endpoints);
    }
    return entry;
}

void deleteDeviceRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    // A read from a HID device goes on to its time-out after the close.
    const bool inUse = privateSide(entry).heldByCaller || someThreadIsInside(entry);
    if (!severFromSession(entry) || inUse) {
        keepRecordAside(entry);
    } else {
        unlinkRecord(entry);
        freeRecord(entry);
    }
}

void keepRecordAside(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    unlinkRecord(entry);
    entry.pCompositeParent = nullptr;
    entry.pCompositeChild = nullptr;
    entry.isPresent = 0;
    entry.pNext = g_recordsKeptAside;
    g_recordsKeptAside = &entry;
}

void deleteIfKeptAside(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    tagUSB_DEVICE_ACCESS_ENTRY** place = &g_recordsKeptAside;
    while (*place != nullptr && *place != &entry) {
        place = &(*place)->pNext;
    }
    const bool severed = entry.hDevice == nullptr && entry.callbackInfos.empty();
    if (*place != nullptr && severed && !someThreadIsInside(entry)) {
        *place = entry.pNext;
        freeRecord(entry);
    }
}

bool severFromSession(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (!discardOpenState(entry)) {
        return false;
    }
    holdDevice(entry, nullptr);
    return true;
}

bool severKeptAside(const libusb_context* context) {
    bool severed = true;
    for (tagUSB_DEVICE_ACCESS_ENTRY* entry = g_recordsKeptAside; entry != nullptr; entry = entry->pNext) {
        if (entry->pDeviceList->pContext == context) {
            severed = severFromSession(*entry) && severed;
        }
    }
    return severed;
}

void formatText(char (&field)[kStringBytes], const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(field, sizeof field, format,
                   arguments);  // NOLINT(clang-analyzer-valist.Uninitialized): it is
    va_end(arguments);
}
