#pragma once

#include <atomic>
#include <cstdint>
#include <map>

#include "ground/DeviceRecords.h"

// Two kinds of references on libusb devices.
//
// Counted references are the library's own bookkeeping in g_refCount. Each record of a multi-vendor list
// takes one.
// Deliberate: records that an update adds, composite children and records of single-vendor lists take none,
// yet a list release drops one for each record. A reference that is missing is logged and otherwise ignored.
//
// Held devices: every record that points to a device holds one plain libusb reference on it, whatever the
// counts are. So no record points to freed memory, and no new device can appear at the address of one that a
// record still names.
//
// All functions are called on the Java callers' threads, one at a time.

/// Number of counted references on each device. An entry is removed when its count reaches 0.
extern std::map<libusb_device*, std::atomic<int32_t>>& g_refCount;

/// Takes one counted reference. `entry` is unused. Throws std::bad_alloc without taking one.
void tlvn_libusb_ref_device(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device* device);
/// Drops one counted reference. For a device without one, only logs the device and `entry`'s serial number.
void tlvn_libusb_unref_device(tagUSB_DEVICE_ACCESS_ENTRY* entry, libusb_device* device);
/// Returns the device's count, or -1 when it has no entry.
int32_t getRefCount(libusb_device* device);
/// Drops one counted reference for each record of the list whose device is absent. Null is allowed.
void unref_unplugged_devices(tagUSB_DEVICE_LIST* list);

/// Drops all counted references, for a session that ends before its lists are released.
void dropCountedReferences();

/// Points the record to `device` and takes a plain reference on it; drops the reference on the previous
/// device. With null it only drops.
void holdDevice(tagUSB_DEVICE_ACCESS_ENTRY& entry, libusb_device* device);
