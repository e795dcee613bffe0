#include "MacOSXUSBAccess/records/RecordLifetime.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>

#include "MacOSXUSBAccess/records/CompletionHandOver.h"
#include "MacOSXUSBAccess/records/Descriptors.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "ground/SharedField.h"
#include "hid/HIDAccess.h"

namespace {

constexpr std::chrono::seconds kRetireLimit{3};
constexpr timeval kRetirePeriod{0, 10'000};

/// Records kept aside, linked through pNext.
tagUSB_DEVICE_ACCESS_ENTRY* g_recordsKeptAside = nullptr;

bool hasOpenState(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    return entry.hDevice != nullptr || !entry.callbackInfos.empty();
}

/// True while the open-device map may point to the record, a thread has looked it up there, or a thread is
/// inside a call on it: a HID read continues to its time-out after the close.
bool isReferredTo(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const DeviceRecord& record = privateSide(entry);
    return record.heldByCaller || record.users.load() != 0 || someThreadIsInside(entry);
}

/// Deletes a record that is in no list, unless it has to be kept. Returns false when it is kept.
bool deleteUnlinked(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (hasOpenState(entry)) {
        return false;
    }
    holdDevice(entry, nullptr);
    if (isReferredTo(entry)) {
        return false;
    }
    deleteHIDAccess(entry.pHIDAccess);
    delete &privateSide(entry);
    return true;
}

void endIfRetired(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (privateSide(entry).isRetired && cancelTransfers(entry)) {
        endOpenState(entry);
    }
}

bool cutOff(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const bool ended = retireAndEnd(entry);
    if (ended) {
        holdDevice(entry, nullptr);
    }
    return ended;
}

}  // namespace

tagUSB_DEVICE_ACCESS_ENTRY* newDeviceRecord(tagUSB_DEVICE_LIST& list) {
    auto* entry = new DeviceRecord{};
    entry->pDeviceList = &list;
    entry->initFlag = 1;
    entry->changeReported = 1;
    entry->isPresent = 1;
    entry->reportedPresent = 1;
    entry->packetSize = kStandardPacketSize;
    entry->exPacketSize = kStandardPacketSize;
    clearEndpointList(kMaxEndpoints, entry->endpoints);
    return entry;
}

bool retireRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    storeShared(entry.isOpen, 0U);
    libusb_context* context = loadShared(entry.pDeviceList->pContext);
    const auto deadline = std::chrono::steady_clock::now() + kRetireLimit;
    while (!cancelTransfers(entry)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            privateSide(entry).isRetired = true;
            return false;
        }
        handleEventsFor(context, kRetirePeriod);
    }
    return true;
}

void endOpenState(tagUSB_DEVICE_ACCESS_ENTRY& entry, HandleClose close) {
    privateSide(entry).isRetired = false;
    closeHandle(entry, close);
    freeTransferRecords(entry);
}

bool retireAndEnd(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const bool quiet = !hasOpenState(entry) || retireRecord(entry);
    if (quiet) {
        endOpenState(entry);
    }
    return quiet;
}

void endRetiredRecords() {
    for (tagUSB_DEVICE_LIST* list = g_pDeviceList; list != nullptr; list = list->pNextList) {
        for (tagUSB_DEVICE_ACCESS_ENTRY* entry = list->pFirst; entry != nullptr; entry = entry->pNext) {
            endIfRetired(*entry);
        }
    }
    tagUSB_DEVICE_ACCESS_ENTRY** place = &g_recordsKeptAside;
    while (*place != nullptr) {
        tagUSB_DEVICE_ACCESS_ENTRY& entry = **place;
        tagUSB_DEVICE_ACCESS_ENTRY* next = entry.pNext;
        endIfRetired(entry);
        if (deleteUnlinked(entry)) {
            *place = next;
        } else {
            place = &entry.pNext;
        }
    }
}

bool cutOffRecords(tagUSB_DEVICE_LIST& list) {
    bool all = true;
    for (tagUSB_DEVICE_ACCESS_ENTRY* entry = g_recordsKeptAside; entry != nullptr; entry = entry->pNext) {
        if (entry->pDeviceList == &list) {
            all = cutOff(*entry) && all;
        }
    }
    for (tagUSB_DEVICE_ACCESS_ENTRY* entry = list.pFirst; entry != nullptr; entry = entry->pNext) {
        all = cutOff(*entry) && all;
    }
    return all;
}

void deleteDeviceRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    unlinkRecord(entry);
    if (!deleteUnlinked(entry)) {
        entry.pCompositeParent = nullptr;
        entry.pCompositeChild = nullptr;
        entry.isPresent = 0;
        entry.pNext = g_recordsKeptAside;
        g_recordsKeptAside = &entry;
    }
}

void formatText(char (&field)[kStringBytes], const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(field, sizeof field, format,
                   arguments);  // NOLINT(clang-analyzer-valist.Uninitialized): it is
    va_end(arguments);
}
