#include "MacOSXUSBAccess/io/OpenClose.h"

#include <libusb.h>

#include "DebugUtil/DebugLog.h"
#include "HidHandling/HidDispatch.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/DeviceReferences.h"
#include "MacOSXUSBAccess/records/LibusbWrappers.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "ground/ResultCodes.h"
#include "ground/SharedField.h"

namespace {

constexpr int kDrivenConfiguration = 1;
constexpr int kKernelDriverInterface = 0;

/// Deliberate: the refusal messages print the reference count in the place of the device pointer.
void* countAsPointer(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    const uintptr_t count = static_cast<uint32_t>(getRefCount(entry.pDevice));
    return reinterpret_cast<void*>(count);  // NOLINT(performance-no-int-to-ptr): for %p only
}

void logState(const char* function, tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    debug_log("[%s] %s ref_count: %d, pDev: %p", function, entry.sSerialNumber, getRefCount(entry.pDevice),
              static_cast<void*>(entry.pDevice));
}

/// Returns the code with which an open is refused now, or 0.
int32_t refusal(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    if (loadShared(entry.isOpen) != 0) {
        debug_log("[LibUSB_OpenDevice] %s acquired == 1, pDev: %p", entry.sSerialNumber,
                  countAsPointer(entry));
        return kAlreadyOpen;
    }
    if (entry.isPresent == 0) {
        debug_log("[LibUSB_OpenDevice] %s bus.state == 0, pDev: %p", entry.sSerialNumber,
                  countAsPointer(entry));
        return kNotAvailable;
    }
    return entry.isUnsupportedClass != 0 ? kUnsupportedClass : 0;
}

/// The end of an open that has failed on the way.
int32_t failOpen(tagUSB_DEVICE_ACCESS_ENTRY& entry, int libusbResult, int32_t result) {
    storeShared(entry.lastResult, libusbResult);
    endOpenState(entry);
    return result;
}

int selectConfiguration(libusb_device_handle* handle) {
    int active = kDrivenConfiguration;
    const int result = libusb_get_configuration(handle, &active);
    const bool known = result == LIBUSB_SUCCESS;
    return known && active != kDrivenConfiguration ? libusb_set_configuration(handle, kDrivenConfiguration)
                                                   : LIBUSB_SUCCESS;
}

/// Opens the device, sets its configuration, claims its interface and creates the transfer records.
int32_t openThroughLibusb(tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    // A device that is unplugged while open returns as a new device; the old handle and transfers are still
    // here.
    if (!retireAndEnd(entry)) {
        storeShared(entry.lastResult, LIBUSB_ERROR_BUSY);
        return kOpenFailed;
    }
    int result = tlvn_libusb_open(&entry, entry.pDevice, &entry.hDevice);
    if (result != LIBUSB_SUCCESS) {
        storeShared(entry.lastResult, result);
        return kOpenFailed;
    }
    // Deliberate: the answer is not used; a kernel driver is never detached.
    libusb_kernel_driver_active(entry.hDevice, kKernelDriverInterface);
    result = selectConfiguration(entry.hDevice);
    if (result != LIBUSB_SUCCESS) {
        return failOpen(entry, result, kConfigurationFailed);
    }
    result = libusb_claim_interface(entry.hDevice, entry.interfaceNumber);
    if (result != LIBUSB_SUCCESS) {
        return failOpen(entry, result, kClaimFailed);
    }
    return createTransferRecords(entry) ? 0 : failOpen(entry, LIBUSB_ERROR_NO_MEM, kOpenFailed);
}

/// Releases the interface of a quiet record with a handle.
void releaseInterface(const tagUSB_DEVICE_ACCESS_ENTRY& entry, int attachResult) {
    const int result = libusb_release_interface(entry.hDevice, entry.interfaceNumber);
    if (result != LIBUSB_SUCCESS) {
        debug_log("Failed to release endpoint %d: %d", entry.interfaceNumber, result);
    }
    if (attachResult != LIBUSB_SUCCESS) {
        libusb_attach_kernel_driver(entry.hDevice, kKernelDriverInterface);
    }
}

}  // namespace

int32_t LibUSB_OpenDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    int32_t result = refusal(*entry);
    if (result != 0) {
        return result;
    }
    entry->kernelDriverDetached = 0;
    if (!isOfRunningSession(*entry->pDeviceList)) {
        storeShared(entry->lastResult, LIBUSB_ERROR_NO_DEVICE);
        return kOpenFailed;
    }
    endRetiredRecords();  // one of them may hold the interface
    if (entry->isHid == 1) {
        HID_CloseDevice(entry);  // a device unplugged while open is still open here
        // Deliberate: the record counts as open whatever HID_OpenDevice returns. Its reads then time out.
        HID_OpenDevice(entry);
    } else {
        logState("LibUSB_OpenDevice", *entry);
        result = openThroughLibusb(*entry);
    }
    if (result == 0) {
        privateSide(*entry).heldByCaller = true;
        storeShared(entry->isOpen, 1U);
    }
    return result;
}

int32_t LibUSB_CloseDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    privateSide(*entry).heldByCaller = false;
    if (loadShared(entry->isOpen) == 0) {
        if (entry->isHid == 1) {
            HID_CloseDevice(entry);  // still open after a re-plug or the release of its list
        }
        retireAndEnd(*entry);
        endRetiredRecords();  // deletes the record if its list was released
        return kNotOpen;
    }
    int attachResult = LIBUSB_SUCCESS;
    if (entry->kernelDriverDetached == 1) {
        attachResult = entry->hDevice == nullptr
                           ? LIBUSB_SUCCESS
                           : libusb_attach_kernel_driver(entry->hDevice, kKernelDriverInterface);
        entry->kernelDriverDetached = 0;
    }
    if (entry->isHid == 1) {
        const int32_t result = HID_CloseDevice(entry);
        storeShared(entry->isOpen, 0U);
        return result;
    }
    logState("LibUSB_CloseDevice", *entry);
    // Transfers that do not complete keep their handle until a later call finds them completed.
    if (retireRecord(*entry)) {
        if (entry->hDevice != nullptr) {
            releaseInterface(*entry, attachResult);
        }
        endOpenState(*entry, HandleClose::logged);
    }
    return 0;
}
