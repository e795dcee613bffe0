#include "MacOSXUSBAccess/records/LibusbWrappers.h"

#include <libusb.h>

#include <utility>

#include "DebugUtil/DebugLog.h"

// Deliberate: the logged pair after the serial number is bus number and bcdDevice, both in decimal.

int tlvn_libusb_open(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device* device,
                     libusb_device_handle** handle) {
    debug_log("[tlvn_libusb_open] %s: %d.%d interface: %d dev: %p", entry->sSerialNumber, entry->busNumber,
              static_cast<int>(entry->bcdDevice), entry->interfaceNumber, static_cast<void*>(device));
    // A record has no device once its session has ended.
    return device == nullptr ? LIBUSB_ERROR_NO_DEVICE : libusb_open(device, handle);
}

void tlvn_libusb_close(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device_handle* handle) {
    debug_log("[tlvn_libusb_close] %s: %d.%d interface: %d dev: %p", entry->sSerialNumber, entry->busNumber,
              static_cast<int>(entry->bcdDevice), entry->interfaceNumber, static_cast<void*>(entry->pDevice));
    libusb_close(handle);
}

void closeHandle(tagUSB_DEVICE_ACCESS_ENTRY& entry, HandleClose close) {
    libusb_device_handle* handle = std::exchange(entry.hDevice, nullptr);
    if (handle != nullptr && close == HandleClose::logged) {
        tlvn_libusb_close(&entry, handle);
    } else if (handle != nullptr) {
        libusb_close(handle);
    }
}
