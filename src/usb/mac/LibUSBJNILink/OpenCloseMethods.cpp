#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include "LibUSBJNILink/DeviceCall.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/OpenClose.h"

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbOpenDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                  jint listHandle, jint index) {
    return callOn(findListedDevice(listHandle, index), [&](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        const jint result = LibUSB_OpenDevice(&entry);
        if (result == 0) {
            enterOpenDevice(listHandle, index, &entry);
        }
        return result;
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCloseDevice(JNIEnv* /*env*/, jobject /*self*/,
                                                                   jint listHandle, jint index) {
    return callOn(findOpenDevice(listHandle, index), [&](tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        const jint result = LibUSB_CloseDevice(&entry);
        forgetOpenDevice(listHandle, index);  // whatever the close answered
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
