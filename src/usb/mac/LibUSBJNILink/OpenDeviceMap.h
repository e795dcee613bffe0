#pragma once

#include <cstdint>
#include <map>

#include "ground/DeviceRecords.h"

// The records that Java has opened, by list handle and device index. The map owns nothing.
//
// One lock guards it, so that a transfer may start while another thread opens or closes a device, releases a
// list or ends the session. The lock is held for a look-up or a change only, never across a call of libusb or
// the HID interface, or a wait. A look-up counts its caller as a user of the record before it gives the lock
// back, and a record with users is not deleted. The count does not hold up a close: whether the record is
// still open, the call on it finds out.

using OpenDevices = std::map<int32_t, tagUSB_DEVICE_ACCESS_ENTRY*>;
extern std::map<int32_t, OpenDevices>& g_DevMap;

/// The result of a look-up. For its lifetime the record found is not deleted.
class OpenDevice {
 public:
    explicit OpenDevice(tagUSB_DEVICE_ACCESS_ENTRY* found) : found_(found) {
        if (found_ != nullptr) {
            privateSide(*found_).users.fetch_add(1);
        }
    }
    ~OpenDevice() {
        if (found_ != nullptr) {
            privateSide(*found_).users.fetch_sub(1);
        }
    }
    OpenDevice(const OpenDevice&) = delete;
    OpenDevice& operator=(const OpenDevice&) = delete;

    /// Null when there is none. It may be closed at any time.
    tagUSB_DEVICE_ACCESS_ENTRY* record() const& { return found_; }
    tagUSB_DEVICE_ACCESS_ENTRY* record() && = delete;

 private:
    tagUSB_DEVICE_ACCESS_ENTRY* found_;
};

/// Looks up the record opened at (list, index).
/// Deliberate: the look-up of a new list handle inserts an empty inner map, unless memory runs out.
OpenDevice findOpenDevice(int32_t listHandle, int32_t index);
/// Adds a record, replacing an earlier one at the same index. Throws std::bad_alloc, leaving the index
/// unchanged.
void enterOpenDevice(int32_t listHandle, int32_t index, tagUSB_DEVICE_ACCESS_ENTRY* entry);
/// Looks up a record as findOpenDevice does, removes it and returns it, or null. The caller, which closes it,
/// is not counted as a user. The inner map of the list stays, even when empty.
tagUSB_DEVICE_ACCESS_ENTRY* takeOpenDevice(int32_t listHandle, int32_t index);
