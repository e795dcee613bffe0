#pragma once

#include "ground/DeviceRecords.h"

/// Marks the records of `list` that are HID devices, once per list creation, before the composite split. Each
/// HID device of the platform marks the first unmarked record with its ids and serial number, so two
/// identical devices mark two records. A marked record is driven through a HIDAccess, and its configuration
/// and endpoints are read again. Devices without a serial number or with an id of 0x8000 or above are not
/// matched. Returns 0 when the platform cannot list its devices, else 1.
int32_t HID_MarkHidDevicesInList(tagUSB_DEVICE_LIST* list);
