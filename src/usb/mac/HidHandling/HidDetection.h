#pragma once

#include "ground/DeviceRecords.h"

/// Marks the records of the list that are HID devices: each of the platform's HID devices marks the first
/// record with its ids and serial number that is not marked yet, so two alike mark two records. A marked
/// record is driven through a HIDAccess from then on and gets its descriptor and endpoints anew. Not matched
/// are devices without a serial number and ids of 0x8000 and above. Runs once at each list creation, before
/// the composite split. Returns 0 when the platform could not be asked, else 1.
int32_t HID_MarkHidDevicesInList(tagUSB_DEVICE_LIST* list);
