#include "LibUSBJNILink/OpenDeviceMap.h"

std::map<int32_t, OpenDevices> g_DevMap;

tagUSB_DEVICE_ACCESS_ENTRY* findOpenDevice(int32_t listHandle, int32_t index) {
    const OpenDevices& devices = g_DevMap[listHandle];
    const auto found = devices.find(index);
    return found == devices.end() ? nullptr : found->second;
}

void enterOpenDevice(int32_t listHandle, int32_t index, tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    g_DevMap[listHandle][index] = entry;
}

void forgetOpenDevice(int32_t listHandle, int32_t index) {
    g_DevMap[listHandle].erase(index);
}
