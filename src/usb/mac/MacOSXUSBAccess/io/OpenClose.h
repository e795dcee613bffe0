#pragma once

#include "ground/DeviceRecords.h"

// Opening and closing a record. On the caller's thread, which serialises both per record.

/// Opens the device, makes configuration 1 active, claims the record's interface and makes its 32 transfer
/// records. Returns 0, -105 already open, -131 device absent, -158 class not driven, -107 libusb_open failed
/// (or no memory, or transfers of an earlier opening have not come back), -130 configuration 1 refused, -108
/// interface claim refused; for the last three `lastResult` holds libusb's code.
int32_t LibUSB_OpenDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);

/// Ends the transfers that still run, releases the interface and closes the device. Returns 0, whatever
/// release and close did, or -109 when the record is not open.
int32_t LibUSB_CloseDevice(tagUSB_DEVICE_ACCESS_ENTRY* entry);
