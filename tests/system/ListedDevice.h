// The record of a list that has a serial number.
#pragma once

#include <cstring>

#include "MacOSXUSBAccess/records/DeviceListChain.h"

inline tagUSB_DEVICE_ACCESS_ENTRY* findDevice(uint32_t list, const char* serial) {
    tagUSB_DEVICE_ACCESS_ENTRY* entry = LibUSB_EnumerateDeviceList(list, nullptr);
    while (entry != nullptr && std::strcmp(entry->sSerialNumber, serial) != 0) {
        entry = LibUSB_EnumerateDeviceList(list, entry);
    }
    return entry;
}
