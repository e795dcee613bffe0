#pragma once

#include <jni.h>

#include <cstdint>

#include "LibUSBJNILink/EntryFrame.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "LibUSBJNILink/PinnedBytes.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "ground/ResultCodes.h"

// The frame of every call on one device: find the record, pin the Java array, call, unpin, return the result.

inline tagUSB_DEVICE_ACCESS_ENTRY* findListedDevice(jint listHandle, jint index) {
    return LibUSB_GetDeviceFromIndex(static_cast<uint32_t>(listHandle), static_cast<uint32_t>(index));
}

/// Returns the result of `function(record)`, or -114 when there is no record.
template <class Function>
jint callOn(tagUSB_DEVICE_ACCESS_ENTRY* entry, Function function) {
    return answer([&] { return entry == nullptr ? kBadArgument : function(*entry); });
}

/// Calls `function(record, bytes)` with the bytes of the array. `touched(record, array)` returns how many
/// bytes the call may access; a shorter array is replaced by a copy of that size, of which it gets back as
/// much as it holds. Without a record the array is not pinned.
template <class Touched, class Function>
jint callWithBytes(JNIEnv* env, tagUSB_DEVICE_ACCESS_ENTRY* entry, jbyteArray array, Touched touched,
                   Function function) {
    return callOn(entry, [&](tagUSB_DEVICE_ACCESS_ENTRY& found) {
        PinnedBytes pinned(env, array);
        return pinned.withAtLeast(touched(found, pinned),
                                  [&](uint8_t* bytes) { return function(found, bytes); });
    });
}
