#include "MacOSXUSBAccess/records/RecordLifetime.h"

#include <cstdarg>
#include <cstdio>

#include "MacOSXUSBAccess/records/Descriptors.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "hid/HIDAccess.h"

namespace {

/// Records kept aside, linked through pNext.
tagUSB_DEVICE_ACCESS_ENTRY* g_recordsKeptAside = nullptr;

void freeRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    deleteHIDAccess(entry.pHIDAccess);
    delete &privateSide(entry);
}

/// True while the open-device map may point to the record, a thread has looked it up there, or a thread is
/// inside a call on it: a HID read continues to its time-out after the close.
bool isInUse(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const DeviceRecord& record = privateSide(entry);
    return record.heldByCaller || record.users.load() != 0 || someThreadIsInside(entry);
}

}  // namespace

tagUSB_DEVICE_ACCESS_ENTRY* newDeviceRecord(tagUSB_DEVICE_LIST& list) {
    auto* entry = new DeviceRecord{};
    entry->pDeviceList = &list;
    clearEndpointList(kMaxEndpoints, entry->endpoints);
    return entry;
}

void deleteDeviceRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const bool inUse = isInUse(entry);
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

void finishCloses() {
    for (tagUSB_DEVICE_LIST* list = g_pDeviceList; list != nullptr; list = list->pNextList) {
        for (tagUSB_DEVICE_ACCESS_ENTRY* entry = list->pFirst; entry != nullptr; entry = entry->pNext) {
            finishClose(*entry);
        }
    }
    tagUSB_DEVICE_ACCESS_ENTRY** place = &g_recordsKeptAside;
    while (*place != nullptr) {
        tagUSB_DEVICE_ACCESS_ENTRY& entry = **place;
        if (finishClose(entry) && !isInUse(entry)) {
            *place = entry.pNext;
            holdDevice(entry, nullptr);
            freeRecord(entry);
        } else {
            place = &entry.pNext;
        }
    }
}

bool severFromSession(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (!discardOpenState(entry)) {
        return false;
    }
    holdDevice(entry, nullptr);
    return true;
}

bool severKeptAside(const tagUSB_DEVICE_LIST& list) {
    bool severed = true;
    for (tagUSB_DEVICE_ACCESS_ENTRY* entry = g_recordsKeptAside; entry != nullptr; entry = entry->pNext) {
        if (entry->pDeviceList == &list) {
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
