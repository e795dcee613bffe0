#include "MacOSXUSBAccess/lists/ListUpdate.h"

#include <libusb.h>

#include <cstring>
#include <new>

#include "DebugUtil/DebugLog.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "ground/ResultCodes.h"
#include "ground/SharedField.h"

namespace {

bool isSameDevice(const tagUSB_DEVICE_ACCESS_ENTRY& one, const tagUSB_DEVICE_ACCESS_ENTRY& other) {
    return one.idVendor == other.idVendor && one.idProduct == other.idProduct &&
           one.bcdDevice == other.bcdDevice && std::strcmp(one.sManufacturer, other.sManufacturer) == 0 &&
           std::strcmp(one.sProduct, other.sProduct) == 0 &&
           std::strcmp(one.sSerialNumber, other.sSerialNumber) == 0;
}

tagUSB_DEVICE_ACCESS_ENTRY* findSameDevice(const tagUSB_DEVICE_LIST& list,
                                           const tagUSB_DEVICE_ACCESS_ENTRY& wanted) {
    tagUSB_DEVICE_ACCESS_ENTRY* entry = list.pFirst;
    while (entry != nullptr && !isSameDevice(*entry, wanted)) {
        entry = entry->pNext;
    }
    return entry;
}

void updateDevice(tagUSB_DEVICE_ACCESS_ENTRY& old, const tagUSB_DEVICE_ACCESS_ENTRY& found) {
    if (old.pDevice == found.pDevice) {
        return;
    }
    storeShared(old.isOpen, 0U);
    tlvn_libusb_unref_device(&old, old.pDevice);
    holdDevice(old, found.pDevice);
    try {
        tlvn_libusb_ref_device(&old, old.pDevice);
    } catch (const std::bad_alloc&) {
        // The record takes no counted reference then, like those that an update adds.
    }
}

/// Moves a child to the device of its parent's new record. Counted references do not change.
/// Deliberate: a child counts as present with its parent, even when its interface is gone or looks different.
void updateChild(tagUSB_DEVICE_ACCESS_ENTRY& child, const tagUSB_DEVICE_ACCESS_ENTRY& foundParent) {
    child.isPresent = 1;
    const bool split = foundParent.pCompositeChild != nullptr;
    libusb_device* device = split ? foundParent.pCompositeChild->pDevice : foundParent.pDevice;
    if (child.pDevice != device) {
        storeShared(child.isOpen, 0U);
        holdDevice(child, device);
    }
}

/// Deletes a found record, a duplicate of `survivor`. If its composite partner is still in the enumerated
/// list, `survivor` becomes the partner's partner; a record of the list that has replaced the partner keeps
/// its own.
void deleteDuplicate(tagUSB_DEVICE_ACCESS_ENTRY& found, tagUSB_DEVICE_ACCESS_ENTRY& survivor) {
    const auto isLeft = [&found](const tagUSB_DEVICE_ACCESS_ENTRY* partner) {
        return partner != nullptr && partner->pDeviceList == found.pDeviceList;
    };
    if (isLeft(found.pCompositeChild)) {
        found.pCompositeChild->pCompositeParent = &survivor;
    }
    if (isLeft(found.pCompositeParent)) {
        found.pCompositeParent->pCompositeChild = &survivor;
    }
    deleteDeviceRecord(found);
}

/// Marks the records of the list that the new enumeration has found, and removes those from the enumeration.
void matchRecords(tagUSB_DEVICE_LIST& list, tagUSB_DEVICE_LIST& enumerated) {
    for (tagUSB_DEVICE_ACCESS_ENTRY* old = list.pFirst; old != nullptr; old = old->pNext) {
        old->isPresent = 0;
    }
    for (tagUSB_DEVICE_ACCESS_ENTRY* old = list.pFirst; old != nullptr; old = old->pNext) {
        tagUSB_DEVICE_ACCESS_ENTRY* found = findSameDevice(enumerated, *old);
        if (found == nullptr) {
            continue;
        }
        DN_WriteStrStr("UDL-05 DETemp is already in list", old->sSerialNumber, 1);
        old->isPresent = 1;
        updateDevice(*old, *found);
        if (old->pCompositeChild != nullptr) {
            updateChild(*old->pCompositeChild, *found);
        }
        deleteDuplicate(*found, *old);
    }
}

/// Closes the record, with the log line of a close, drops its counted reference and deletes it.
void releaseRecord(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (retireRecord(entry)) {
        endOpenState(entry, HandleClose::logged);
    }
    if (entry.pDevice != nullptr) {
        tlvn_libusb_unref_device(&entry, entry.pDevice);
    }
    deleteDeviceRecord(entry);
}

/// Enumerates the devices of the list into a temporary list.
tagUSB_DEVICE_LIST* enumerateAgain(tagUSB_DEVICE_LIST& list) {
    try {
        int32_t ignored = 0;
        return CreateInternalDeviceList2(list.pContext, list.vidCount, list.vidList, &ignored);
    } catch (const std::bad_alloc&) {
        list.changePending.store(true);  // the change has not been processed yet
        throw;
    }
}

}  // namespace

int32_t LibUSB_UpdateDeviceList(uint32_t handle, uint32_t /*unused*/) {
    int32_t status = 0;
    tagUSB_DEVICE_LIST* list = findDeviceList(handle, status);
    if (list == nullptr || !isOfRunningSession(*list) || !list->changePending.load()) {
        return status;
    }
    list->changePending.exchange(false);
    tagUSB_DEVICE_LIST* enumerated = enumerateAgain(*list);
    matchRecords(*list, *enumerated);
    // Deliberate: the remaining, new records take no counted reference; only the log shows it.
    appendRecords(*list, enumerated->pFirst);
    unref_unplugged_devices(list);
    delete enumerated;
    return 0;
}

int32_t LibUSB_ReleaseDeviceList(uint32_t handle) {
    endRetiredRecords();
    int32_t status = 0;
    tagUSB_DEVICE_LIST* list = findDeviceList(handle, status);
    while (list != nullptr && list->pFirst != nullptr) {
        releaseRecord(*list->pFirst);
    }
    return status;
}

int32_t ReleaseInternalDeviceList2(tagUSB_DEVICE_LIST* list) {
    if (list == nullptr) {
        return kNoSuchList;
    }
    while (list->pFirst != nullptr) {
        retireAndEnd(*list->pFirst);
        deleteDeviceRecord(*list->pFirst);
    }
    return 0;
}
