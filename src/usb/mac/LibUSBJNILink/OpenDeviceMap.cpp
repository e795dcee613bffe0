#include "LibUSBJNILink/OpenDeviceMap.h"

#include <new>

#include "ground/Immortal.h"

namespace {

Immortal<std::map<int32_t, OpenDevices>> g_map;

}  // namespace

std::map<int32_t, OpenDevices>& g_DevMap = g_map.object;

tagUSB_DEVICE_ACCESS_ENTRY* findOpenDevice(int32_t listHandle, int32_t index) {
    try {
        const OpenDevices& devices = g_DevMap[listHandle];
        const auto found = devices.find(index);
        return found == devices.end() ? nullptr : found->second;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void enterOpenDevice(int32_t listHandle, int32_t index, tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    g_DevMap[listHandle][index] = entry;
}

void forgetOpenDevice(int32_t listHandle, int32_t index) {
    g_DevMap[listHandle].erase(index);
}
