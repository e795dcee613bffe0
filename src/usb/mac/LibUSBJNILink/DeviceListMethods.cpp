#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include <algorithm>
#include <cstdio>

#include "LibUSBJNILink/EntryFrame.h"
#include "LibUSBJNILink/ListedDevice.h"
#include "LibUSBJNILink/SessionMethods.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "ground/ResultCodes.h"

namespace {

/// The device information line, at most 511 characters; empty until it is formatted.
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

/// The line as a Java string. Device strings may contain bytes 0x80 to 0xFF, each a character of its own.
/// They are encoded as two bytes: NewStringUTF would take raw ones for parts of longer characters and lose
/// the end of the line.
jstring javaText(JNIEnv* env, const InformationLine& line) {
    char encoded[2 * sizeof line.text];
    char* end = encoded;
    for (const char* each = line.text; *each != '\0'; ++each) {
        auto byte = static_cast<unsigned char>(*each);
        if (byte >= 0x80) {
            *end++ = static_cast<char>(0xC0 | byte >> 6);
            byte = static_cast<unsigned char>(0x80 | (byte & 0x3F));
        }
        *end++ = static_cast<char>(byte);
    }
    *end = '\0';
    return env->NewStringUTF(encoded);
}

/// Copies up to sixteen ids to `ids`. Returns their number; 0 for a null array or without memory.
jint copyVendorIds(JNIEnv* env, jintArray array, int32_t (&ids)[kMaxVendorIds]) {
    if (array == nullptr) {
        return 0;
    }
    const jint count = std::clamp(env->GetArrayLength(array), 0, kMaxVendorIds);
    jint* elements = env->GetIntArrayElements(array, nullptr);
    if (elements == nullptr) {
        return 0;
    }
    std::copy_n(elements, count, ids);
    env->ReleaseIntArrayElements(array, elements, 0);
    return count;
}

}  // namespace

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCreateDeviceList(JNIEnv* /*env*/, jobject /*self*/,
                                                                        jint sessionId, jint vendorId) {
    return answer([&] {
        return sessionId != g_SessionId
                   ? kWrongSession
                   : static_cast<jint>(LibUSB_CreateDeviceList(g_pContext, static_cast<uint32_t>(vendorId)));
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbCreateDeviceList2(JNIEnv* env, jobject /*self*/,
                                                                         jint sessionId,
                                                                         jintArray vendorIds) {
    return answer([&] {
        if (sessionId != g_SessionId) {
            return kWrongSession;
        }
        int32_t ids[kMaxVendorIds] = {};
        const jint count = copyVendorIds(env, vendorIds, ids);
        return static_cast<jint>(LibUSB_CreateDeviceList2(g_pContext, count, ids));
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbUpdateDeviceList(JNIEnv* /*env*/, jobject /*self*/,
                                                                        jint listHandle, jint unused) {
    return answer([&] {
        return LibUSB_UpdateDeviceList(static_cast<uint32_t>(listHandle), static_cast<uint32_t>(unused));
    });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbReleaseDeviceList(JNIEnv* /*env*/, jobject /*self*/,
                                                                         jint listHandle) {
    return answer([&] { return LibUSB_ReleaseDeviceList(static_cast<uint32_t>(listHandle)); });
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetDeviceListCount(JNIEnv* /*env*/, jobject /*self*/,
                                                                          jint listHandle) {
    return answer([&] {
        tagUSB_DEVICE_ACCESS_ENTRY* entry = nullptr;
        jint count = -1;
        do {
            entry = LibUSB_EnumerateDeviceList(static_cast<uint32_t>(listHandle), entry);
            ++count;
        } while (entry != nullptr);
        return count;
    });
}

jstring Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetDeviceInfo(JNIEnv* env, jobject /*self*/,
                                                                        jint listHandle, jint index) {
    InformationLine line;
    answer([&] {
        const tagUSB_DEVICE_ACCESS_ENTRY* entry = findListedDevice(listHandle, index);
        if (entry != nullptr) {
            line.format(*entry);
        }
        return 0;
    });
    return javaText(env, line);
}

jstring Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetChangeInfo(JNIEnv* env, jobject /*self*/,
                                                                        jint listHandle, jint index) {
    InformationLine line;
    answer([&] {
        tagUSB_DEVICE_ACCESS_ENTRY* entry =
            LibUSB_GetDeviceFromChangeList(static_cast<uint32_t>(listHandle), static_cast<uint32_t>(index));
        if (entry != nullptr && entry->reportedPresent != entry->isPresent) {
            line.format(*entry);
            entry->reportedPresent = entry->isPresent;
            entry->changeReported = 1;
        }
        return 0;
    });
    return javaText(env, line);
}
