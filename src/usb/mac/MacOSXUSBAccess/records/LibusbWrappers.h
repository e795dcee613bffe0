#pragma once

#include "ground/DeviceRecords.h"

/// Logs the call and opens `device` for the record, with the handle in `*handle`. Returns the result of
/// libusb_open, or LIBUSB_ERROR_NO_DEVICE for a null device.
int tlvn_libusb_open(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device* device, libusb_device_handle** handle);
/// Logs the call and closes `handle`, a handle of the record's device.
void tlvn_libusb_close(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device_handle* handle);

/// Whether the close of a handle is logged.
enum class HandleClose { silent, logged };
/// Closes the record's handle, if it has one, and clears `hDevice`. The only place that does.
void closeHandle(tagUSB_DEVICE_ACCESS_ENTRY& entry, HandleClose close);
