#pragma once

#include <jni.h>

#include <cstdint>

#include "MacOSXUSBAccess/records/DeviceListChain.h"

/// Returns the record at this index of a device list, whether it is open or not; null when there is none.
inline tagUSB_DEVICE_ACCESS_ENTRY* findListedDevice(jint listHandle, jint index) {
    return LibUSB_GetDeviceFromIndex(static_cast<uint32_t>(listHandle), static_cast<uint32_t>(index));
}
