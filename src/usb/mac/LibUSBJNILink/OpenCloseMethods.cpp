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
    tagUSB_DEVICE_ACCESS_ENTRY* open = findOpenDevice(listHandle, index);
    if (open == nullptr) {
        finishCloses();  // this device may have an unfinished close: any close removes it from the map
    }
    return callOn(open, [&](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        const jint result = LibUSB_CloseDevice(&entry);
        forgetOpenDevice(listHandle, index);
        return result;
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbResetDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                   jint listHandle, jint index) {
    return callOn(findOpenDevice(listHandle, index),
                  [](tagUSB_DEVICE_ACCESS_ENTRY& entry) { return LibUSB_ResetDevice(&entry); });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbRestartDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                     jint listHandle, jint index) {
    return callOn(findListedDevice(listHandle, index),
                  [](tagUSB_DEVICE_ACCESS_ENTRY& entry) { return LibUSB_RestartDevice(&entry); });
}
