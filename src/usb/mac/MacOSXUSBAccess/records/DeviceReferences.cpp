#include "MacOSXUSBAccess/records/DeviceReferences.h"

#include <libusb.h>

#include "DebugUtil/DebugLog.h"
#include "DebugUtil/RecordDump.h"
#include "ground/Immortal.h"

namespace {

Immortal<std::map<libusb_device*, std::atomic<int32_t>>> g_counts;

void* printable(libusb_device* device) {
    return device;
}

}  // namespace

std::map<libusb_device*, std::atomic<int32_t>>& g_refCount = g_counts.object;

void tlvn_libusb_ref_device(tagUSB_DEVICE_ACCESS_ENTRY* /*entry*/, libusb_device* device) {
    std::atomic<int32_t>& count = g_refCount[device];
    const int32_t before = count.fetch_add(1);
    debug_log("[tlvn_libusb_ref_device] ref_count: before %d, after: %d, %p", before, count.load(),
              printable(device));
    libusb_ref_device(device);
}

void tlvn_libusb_unref_device(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device* device) {
    const auto found = g_refCount.find(device);
    if (found == g_refCount.end()) {
        debug_log("[tlvn_libusb_unref_device] device %p not found: %s", printable(device),
                  entry->sSerialNumber);
        return;
    }
    if (found->second.load() < 1) {
        return;
    }
    const int32_t before = found->second.fetch_sub(1);
    libusb_unref_device(device);
    const int32_t after = found->second.load();
    debug_log("[tlvn_libusb_unref_device] ref_count: before: %d, after: %d, %p", before, after,
              printable(device));
    if (after == 0) {
        g_refCount.erase(found);
    }
}

int32_t getRefCount(libusb_device* device) {
    const auto found = g_refCount.find(device);
    return found == g_refCount.end() ? -1 : found->second.load();
}

void unref_unplugged_devices(tagUSB_DEVICE_LIST* list) {
    if (list == nullptr) {
        return;
    }
    for (tagUSB_DEVICE_ACCESS_ENTRY* entry = list->pFirst; entry != nullptr; entry = entry->pNext) {
        if (entry->isPresent != 0) {
            continue;
        }
        const int32_t count = getRefCount(entry->pDevice);
        if (count >= 1) {
            debug_log("[unref_unplugged_devices] unref device: %p", printable(entry->pDevice));
            DN_WriteDAE(entry);
            tlvn_libusb_unref_device(entry, entry->pDevice);
        } else if (count == 0) {
            debug_log("[unref_unplugged_devices] unref device count already at 0: %p",
                      printable(entry->pDevice));
        } else {
            debug_log("[unref_unplugged_devices] no ref found for device: %p", printable(entry->pDevice));
        }
    }
}

void dropCountedReferences() {
    for (const auto& [device, count] : g_refCount) {
        for (int32_t left = count.load(); left > 0; --left) {
            libusb_unref_device(device);
        }
    }
    g_refCount.clear();
}

void holdDevice(tagUSB_DEVICE_ACCESS_ENTRY& entry, libusb_device* device) {
    libusb_device* before = entry.pDevice;
    entry.pDevice = device == nullptr ? nullptr : libusb_ref_device(device);
    if (before != nullptr) {
        libusb_unref_device(before);
    }
}
