#pragma once

#include "ground/DeviceRecords.h"

// Opening and closing a record, on the caller's thread. Callers serialise both per record.

/// Opens the device, sets configuration 1, claims the record's interface and creates its 32 transfer records;
/// a HID record opens its HIDAccess instead. Returns 0, -105 already open, -131 device absent, -158 device
/// class not driven, -107 libusb_open failed (or memory ran out, the session has ended, or transfers of an
/// earlier open have not completed), -130 configuration 1 refused, -108 interface claim refused; for the last
/// three `lastResult` holds libusb's code.
int32_t LibUSB_OpenDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// Cancels running transfers, releases the interface and closes the device. Returns 0, whatever the release
/// and the close returned, or -109 when the record is not open.
int32_t LibUSB_CloseDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);
