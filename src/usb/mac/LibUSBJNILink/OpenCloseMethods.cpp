#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include "LibUSBJNILink/DeviceCall.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/records/RecordLifetime.h"

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
    return callOn(findListedDevice(listHandle, index), [&](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        const jint result = LibUSB_OpenDevice(&entry);
        if (result == 0) {
            enterOrClose(listHandle, index, entry);
        }
        return result;
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCloseDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                   jint listHandle, jint index) {
    // Deliberate: any close removes the device from the map, also one that fails.
    tagUSB_DEVICE_ACCESS_ENTRY* open = takeOpenDevice(listHandle, index);
    if (open == nullptr) {
        endRetiredRecords();  // this device may be one of them
    }
    return callOn(open, [](tagUSB_DEVICE_ACCESS_ENTRY& entry) { return LibUSB_CloseDevice(&entry); });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbResetDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                   jint listHandle, jint index) {
    const OpenDevice device = findOpenDevice(listHandle, index);
    return callOn(device.record(),
                  [](tagUSB_DEVICE_ACCESS_ENTRY& entry) { return LibUSB_ResetDevice(&entry); });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbRestartDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                     jint listHandle, jint index) {
    return callOn(findListedDevice(listHandle, index),
                  [](tagUSB_DEVICE_ACCESS_ENTRY& entry) { return LibUSB_RestartDevice(&entry); });
}
