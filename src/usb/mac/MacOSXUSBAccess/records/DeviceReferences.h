#pragma once

#include <atomic>
#include <cstdint>
#include <map>

#include "ground/DeviceRecords.h"

// Two kinds of reference on libusb devices.
//
// Counted references: the library's own bookkeeping in g_refCount. A record of a multi-vendor list takes one;
// records that an update adds, composite children and records of single-vendor lists take none, and a list
// release drops one for each record all the same (what is not there is logged and absorbed).
//
// Held devices: every record that points at a device holds one plain libusb reference on it, whatever the
// counts say. So no record points at freed memory, and no new device can appear at the address of one that a
// record still names.
//
// Called on the Java callers' threads, one at a time.

/// How often the library has referenced each device. An entry leaves when its count comes to 0.
extern std::map<libusb_device*, std::atomic<int32_t>>& g_refCount;

/// Takes one counted reference. The entry is not used. Throws std::bad_alloc; then nothing is taken.
void tlvn_libusb_ref_device(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device* device);
/// Drops one counted reference; a device without one is only logged, with the entry's serial number.
void tlvn_libusb_unref_device(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device* device);
/// The device's count, or -1 when it has no entry.
int32_t getRefCount(libusb_device* device);
/// Drops one counted reference for each record of the list whose device is absent. Null is allowed.
void unref_unplugged_devices(tagUSB_DEVICE_LIST* list);

/// Gives back what the library has counted, for a session that ends before its lists are released.
void dropCountedReferences();

/// Points the record at a device and holds it; lets go of the one it held before. Null only lets go.
void holdDevice(tagUSB_DEVICE_ACCESS_ENTRY& entry, libusb_device* device);
