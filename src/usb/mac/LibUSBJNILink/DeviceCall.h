#pragma once

#include <jni.h>

#include <cstdint>

#include "LibUSBJNILink/EntryFrame.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "LibUSBJNILink/PinnedBytes.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "ground/ResultCodes.h"

// The frame of every call on one device, within that of every method: find the record, pin the Java array,
// call, unpin, return the result.

inline tagUSB_DEVICE_ACCESS_ENTRY* findListedDevice(jint listHandle, jint index) {
    return LibUSB_GetDeviceFromIndex(static_cast<uint32_t>(listHandle), static_cast<uint32_t>(index));
}

/// Calls `function(record)`, or answers -114 when there is no record.
template <class Function>
jint callOn(tagUSB_DEVICE_ACCESS_ENTRY* entry, Function function) {
    return answer([&] { return entry == nullptr ? kBadArgument : function(*entry); });
}

/// Calls `function(record, bytes)` on the array's bytes. `touched(record, array)` tells how many bytes the
/// call may touch; an array that has fewer is worked on in a copy of that size, of which it gets back what
/// fits. Without a record the array is not touched.
template <class Touched, class Function>
jint callWithBytes(JNIEnv* env, tagUSB_DEVICE_ACCESS_ENTRY* entry, jbyteArray array, Touched touched,
                   Function function) {
    return callOn(entry, [&](tagUSB_DEVICE_ACCESS_ENTRY& found) {
        PinnedBytes pinned(env, array);
        return pinned.withAtLeast(touched(found, pinned),
                                  [&](uint8_t* bytes) { return function(found, bytes); });
    });
}
