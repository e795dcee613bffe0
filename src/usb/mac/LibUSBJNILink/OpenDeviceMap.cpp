#include "LibUSBJNILink/OpenDeviceMap.h"

#include <mutex>
#include <new>

#include "ground/Immortal.h"

namespace {

struct GuardedMap {
    std::mutex mutex;
    std::map<int32_t, OpenDevices> lists;
};
Immortal<GuardedMap> g_guarded;

/// Inserts an empty inner map for a new list handle. Without memory the next look-up tries again.
void noteList(int32_t listHandle) {
    try {
        g_DevMap[listHandle];
    } catch (const std::bad_alloc&) {
    }
}

/// The record at (list, index), or null. The calling thread holds the lock.
tagUSB_DEVICE_ACCESS_ENTRY* lookUp(int32_t listHandle, int32_t index) {
    const auto list = g_DevMap.find(listHandle);
    if (list == g_DevMap.end()) {
        noteList(listHandle);
        return nullptr;
    }
    const auto found = list->second.find(index);
    return found == list->second.end() ? nullptr : found->second;
}

}  // namespace

std::map<int32_t, OpenDevices>& g_DevMap = g_guarded.object.lists;

OpenDevice findOpenDevice(int32_t listHandle, int32_t index) {
    const std::lock_guard lock(g_guarded.object.mutex);
    return OpenDevice(lookUp(listHandle, index));  // counted before the lock is given back
}

void enterOpenDevice(int32_t listHandle, int32_t index, tagUSB_DEVICE_ACCESS_ENTRY* entry) {
    const std::lock_guard lock(g_guarded.object.mutex);
    g_DevMap[listHandle][index] = entry;
}

tagUSB_DEVICE_ACCESS_ENTRY* takeOpenDevice(int32_t listHandle, int32_t index) {
    const std::lock_guard lock(g_guarded.object.mutex);
    tagUSB_DEVICE_ACCESS_ENTRY* entry = lookUp(listHandle, index);
    if (entry != nullptr) {
        g_DevMap[listHandle].erase(index);
    }
    return entry;
}
