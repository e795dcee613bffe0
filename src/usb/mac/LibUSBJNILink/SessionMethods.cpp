#include "LibUSBJNILink/SessionMethods.h"

#include <com_talvane_orvex_comm_ORVEXCommUSBAccess.h>

#include <exception>

#include "MacOSXUSBAccess/session/Session.h"

int32_t g_SessionId = -1;
int32_t g_LastError = 0;
libusb_context* g_pContext = nullptr;

namespace {

constexpr jint kNoSession = -1;
constexpr jint kOpenSession = 0;
constexpr jint kSessionExists = -115;
constexpr jint kThreadNotStarted = -99;  // libusb's "other error"

jint startSession() {
    try {
        return LibUSB_Initialize(&g_pContext);
    } catch (const std::exception&) {
        // No thread or no memory for one, no session; nothing may be thrown into the virtual machine.
        LibUSB_Release(&g_pContext);
        return kThreadNotStarted;
    }
}

}  // namespace

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbInitialize(JNIEnv* /*env*/, jobject /*self*/) {
    if (g_SessionId != kNoSession) {
        return kSessionExists;
    }
    const jint result = startSession();
    if (result != 0) {
        return result;
    }
    g_SessionId = kOpenSession;
    return g_SessionId;
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbRelease(JNIEnv* /*env*/, jobject /*self*/,
                                                               jint sessionId) {
    if (sessionId != g_SessionId) {
        return kWrongSession;
    }
    LibUSB_Release(&g_pContext);
    g_SessionId = kNoSession;
    return 0;
}

jint Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_usbGetLibVersion(JNIEnv* /*env*/, jobject /*self*/) {
    return LibUSB_GetLibVersion();
}
