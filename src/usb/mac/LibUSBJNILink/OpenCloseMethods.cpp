#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include "LibUSBJNILink/EntryFrame.h"
#include "LibUSBJNILink/ListedDevice.h"
#include "LibUSBJNILink/OpenDeviceMap.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"
#include "ground/ResultCodes.h"

namespace {

/// Adds an opened device to the map. If that fails, closes it: nobody else could.
void enterOrClose(jint listHandle, jint index, tagUSB_DEVICE_ACCESS_ENTRY& entry) {
    try {
        enterOpenDevice(listHandle, index, &entry);
    } catch (...) {
        LibUSB_CloseDevice(&entry);
        throw;
    }
}

}  // namespace

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbOpenDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                  jint listHandle, jint index) {
    return answer([&] {
        tagUSB_DEVICE_ACCESS_ENTRY* entry = findListedDevice(listHandle, index);
        if (entry == nullptr) {
            return kBadArgument;
        }
        const jint result = LibUSB_OpenDevice(entry);
        if (result == 0) {
            enterOrClose(listHandle, index, *entry);
        }
        return result;
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCloseDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                   jint listHandle, jint index) {
    return answer([&] {
        // Deliberate: any close removes the device from the map, also one that fails.
        tagUSB_DEVICE_ACCESS_ENTRY* entry = takeOpenDevice(listHandle, index);
        if (entry == nullptr) {
            endRetiredRecords();  // this device may be one of them
            return kBadArgument;
        }
        return LibUSB_CloseDevice(entry);
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbResetDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                   jint listHandle, jint index) {
    return answer([&] {
        const OpenDevice device = findOpenDevice(listHandle, index);
        return device.record() == nullptr ? kBadArgument : LibUSB_ResetDevice(device.record());
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbRestartDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                     jint listHandle, jint index) {
    return answer([&] {
        tagUSB_DEVICE_ACCESS_ENTRY* entry = findListedDevice(listHandle, index);
        return entry == nullptr ? kBadArgument : LibUSB_RestartDevice(entry);
    });
}
