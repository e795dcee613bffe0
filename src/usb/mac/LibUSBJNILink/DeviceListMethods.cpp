#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include <algorithm>
#include <cstdio>

#include "LibUSBJNILink/DeviceCall.h"
#include "LibUSBJNILink/SessionMethods.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"

namespace {

/// The device information line, 511 characters at most; empty until it is formatted.
struct InformationLine {
    char text[512] = "";

    void format(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        std::snprintf(text, sizeof text, "%d:=%04X:=%04X:=%04X:=%s:=%s:=%s:=x:=%s:=%d:=%d:=end",
                      static_cast<int>(entry.isPresent), entry.idVendor & 0xFFFF, entry.idProduct & 0xFFFF,
                      entry.bcdDevice & 0xFFFF, entry.sManufacturer, entry.sProduct, entry.sSerialNumber,
                      typeLetter(entry), entry.familyStatus, entry.interfaceNumber);
    }

    static const char* typeLetter(const tagUSB_DEVICE_ACCESS_ENTRY& entry) {
        if (entry.isHid != 0) {
            return "h";
        }
        return entry.isUnsupportedClass != 0 ? "u" : "b";
    }
};

/// Copies up to sixteen ids to `ids` and returns how many; 0 for a null array.
jint copyVendorIds(JNIEnv* env, jintArray array, int32_t (&ids)[kMaxVendorIds]) {
    const jint length = array == nullptr ? 0 : env->GetArrayLength(array);
    jint* elements = array == nullptr ? nullptr : env->GetIntArrayElements(array, nullptr);
    if (elements == nullptr) {
        return 0;
    }
    const jint count = std::clamp(length, 0, kMaxVendorIds);
    std::copy_n(elements, count, ids);
    env->ReleaseIntArrayElements(array, elements, 0);
    return count;
}

}  // namespace

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCreateDeviceList(JNIEnv* /*env*/, jobject /*self*/,
                                                                        jint sessionId, jint vendorId) {
    if (sessionId != g_SessionId) {
        return kWrongSession;
    }
    return static_cast<jint>(LibUSB_CreateDeviceList(g_pContext, static_cast<uint32_t>(vendorId)));
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCreateDeviceList2(JNIEnv* env, jobject /*self*/,
                                                                         jint sessionId,
                                                                         jintArray vendorIds) {
    if (sessionId != g_SessionId) {
        return kWrongSession;
    }
    int32_t ids[kMaxVendorIds] = {};
    const jint count = copyVendorIds(env, vendorIds, ids);
    return static_cast<jint>(LibUSB_CreateDeviceList2(g_pContext, count, ids));
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbUpdateDeviceList(JNIEnv* /*env*/, jobject /*self*/,
                                                                        jint listHandle, jint unused) {
    return LibUSB_UpdateDeviceList(static_cast<uint32_t>(listHandle), static_cast<uint32_t>(unused));
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReleaseDeviceList(JNIEnv* /*env*/, jobject /*self*/,
                                                                         jint listHandle) {
    return LibUSB_ReleaseDeviceList(static_cast<uint32_t>(listHandle));
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetDeviceListCount(JNIEnv* /*env*/, jobject /*self*/,
                                                                          jint listHandle) {
    tagUSB_DEVICE_ACCESS_ENTRY* entry = nullptr;
    jint count = -1;
    do {
        entry = LibUSB_EnumerateDeviceList(static_cast<uint32_t>(listHandle), entry);
        ++count;
    } while (entry != nullptr);
    return count;
}

jstring Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetDeviceInfo(JNIEnv* env, jobject /*self*/,
                                                                        jint listHandle, jint index) {
    InformationLine line;
    const tagUSB_DEVICE_ACCESS_ENTRY* entry = findListedDevice(listHandle, index);
    if (entry != nullptr) {
        line.format(*entry);
    }
    return env->NewStringUTF(line.text);
}

jstring Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetChangeInfo(JNIEnv* env, jobject /*self*/,
                                                                        jint listHandle, jint index) {
    InformationLine line;
    tagUSB_DEVICE_ACCESS_ENTRY* entry =
        LibUSB_GetDeviceFromChangeList(static_cast<uint32_t>(listHandle), static_cast<uint32_t>(index));
    if (entry != nullptr && entry->reportedPresent != entry->isPresent) {
        line.format(*entry);
        entry->reportedPresent = entry->isPresent;
        entry->changeReported = 1;
    }
    return env->NewStringUTF(line.text);
}
