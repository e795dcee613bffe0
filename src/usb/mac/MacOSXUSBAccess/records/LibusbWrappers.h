#pragma once

#include "ground/DeviceRecords.h"

/// Logs and opens `device` for the record; the handle goes to `*handle`. Returns libusb_open's result; a null
/// device answers LIBUSB_ERROR_NO_DEVICE.
int tlvn_libusb_open(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device* device, libusb_device_handle** handle);
/// Logs and closes `handle`, a handle of the record's device.
void tlvn_libusb_close(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device_handle* handle);
