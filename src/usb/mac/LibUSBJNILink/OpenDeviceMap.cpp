#include "LibUSBJNILink/OpenDeviceMap.h"

#include <new>

#include "MacOSXUSBAccess/records/Immortal.h"

namespace {

Immortal<std::map<int32_t, OpenDevices>> g_map;

/// The inner map of a list handle, empty for one that was never seen; null when there is no memory for that.
OpenDevices* devicesOf(int32_t listHandle) {
    try {
        return &g_DevMap[listHandle];
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

std::map<int32_t, OpenDevices>& g_DevMap = g_map.object;

tagUSB_DEVICE_ACCESS_ENTRY* findOpenDevice(int32_t listHandle, int32_t index) {
    const OpenDevices* devices = devicesOf(listHandle);
    if (devices == nullptr) {
        return nullptr;
    }
    const auto found = devices->find(index);
    return found == devices->end() ? nullptr : found->second;
}

void enterOpenDevice(int32_t listHandle, int32_t index, tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    g_DevMap[listHandle][index] = entry;
}

void forgetOpenDevice(int32_t listHandle, int32_t index) {
    g_DevMap[listHandle].erase(index);
}
